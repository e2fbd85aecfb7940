#include "support/registered_centre.h"

#include <gtest/gtest.h>
#include <objbase.h>

#include "wsc/iwsc_product.h"

namespace crv::test {

RegisteredCentre::RegisteredCentre() {
  EXPECT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
  library_ = LoadLibraryW(L"security_center.dll");
  if (!library_) {
    ADD_FAILURE() << "security_center.dll is missing beside the test program";
    return;
  }
  using GetClassObject = HRESULT(WINAPI*)(REFCLSID, REFIID, void**);
  const auto get_class_object = reinterpret_cast<GetClassObject>(reinterpret_cast<void*>(GetProcAddress(library_, "DllGetClassObject")));
  IUnknown* factory = nullptr;
  EXPECT_EQ(S_OK, get_class_object(CLSID_WscIsv, IID_IClassFactory, reinterpret_cast<void**>(&factory)));
  if (!factory) return;
  EXPECT_EQ(S_OK, CoRegisterClassObject(CLSID_WscIsv, factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &registration_));
  factory->Release();
}

RegisteredCentre::~RegisteredCentre() {
  if (registration_) CoRevokeClassObject(registration_);
  CoUninitialize();
  if (library_) FreeLibrary(library_);
}

long RegisteredCentre::live_objects() const {
  using LiveObjects = long(WINAPI*)();
  const auto live_objects = library_ ? reinterpret_cast<LiveObjects>(reinterpret_cast<void*>(GetProcAddress(library_, "LiveObjects"))) : nullptr;
  if (live_objects) return live_objects();
  ADD_FAILURE() << "security_center.dll does not count its objects";
  return -1;
}

}  // namespace crv::test
