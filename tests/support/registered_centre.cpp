#include "support/registered_centre.h"

#include <gtest/gtest.h>
#include <objbase.h>
#include <wbemcli.h>

#include "wsc/iwsc_product.h"

namespace crv::test {

RegisteredClass::RegisteredClass(const wchar_t* library, REFCLSID class_id) {
  EXPECT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
  library_ = LoadLibraryW(library);
  if (!library_) {
    ADD_FAILURE() << "a stand-in's library is missing beside the test program";
    return;
  }
  using GetClassObject = HRESULT(WINAPI*)(REFCLSID, REFIID, void**);
  const auto get_class_object = reinterpret_cast<GetClassObject>(reinterpret_cast<void*>(GetProcAddress(library_, "DllGetClassObject")));
  IUnknown* factory = nullptr;
  EXPECT_EQ(S_OK, get_class_object(class_id, IID_IClassFactory, reinterpret_cast<void**>(&factory)));
  if (!factory) return;
  EXPECT_EQ(S_OK, CoRegisterClassObject(class_id, factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &registration_));
  factory->Release();
}

RegisteredClass::~RegisteredClass() {
  if (registration_) CoRevokeClassObject(registration_);
  CoUninitialize();
  if (library_) FreeLibrary(library_);
}

long RegisteredClass::live_objects() const {
  using LiveObjects = long(WINAPI*)();
  const auto live_objects = library_ ? reinterpret_cast<LiveObjects>(reinterpret_cast<void*>(GetProcAddress(library_, "LiveObjects"))) : nullptr;
  if (live_objects) return live_objects();
  ADD_FAILURE() << "the library does not count its objects";
  return -1;
}

RegisteredCentre::RegisteredCentre() : RegisteredClass(L"security_center.dll", CLSID_WscIsv) {}
RegisteredWmi::RegisteredWmi() : RegisteredClass(L"security_center_wmi.dll", CLSID_WbemLocator) {}

}  // namespace crv::test
