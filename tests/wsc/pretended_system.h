// What the client finds on the machine, for the length of a scope: another version of Windows, a COM class of the stand-ins.
#pragma once

#include <gtest/gtest.h>
#include <objbase.h>

namespace crv::test {

// What root/os_version.h tells the product in a test program that is linked with pretended_system.cpp.
class PretendedWindows {
 public:
  PretendedWindows(DWORD major, DWORD minor, WORD service_pack);
  ~PretendedWindows();

 private:
  const OSVERSIONINFOEXW before_;
};

// A class in a library beside the test program, registered for this process alone, on a thread that joins COM's multithreaded
// apartment. Its state lies under HKEY_LOCAL_MACHINE, redirected or not.
class RegisteredClass {
 public:
  RegisteredClass(const wchar_t* library, REFCLSID class_id) : library_(LoadLibraryW(library)) {
    EXPECT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    IUnknown* factory = nullptr;
    const auto get_class_object = Function<decltype(DllGetClassObject)>("DllGetClassObject");
    EXPECT_EQ(S_OK, get_class_object(class_id, IID_IClassFactory, reinterpret_cast<void**>(&factory)));
    EXPECT_EQ(S_OK, CoRegisterClassObject(class_id, factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &registration_));
    factory->Release();
  }
  ~RegisteredClass() {
    EXPECT_EQ(0, Function<long WINAPI()>("LiveObjects")()) << "interface pointers were leaked";
    CoRevokeClassObject(registration_);
    CoUninitialize();
    FreeLibrary(library_);
  }

 private:
  template <typename Signature>
  Signature* Function(const char* name) const {
    return reinterpret_cast<Signature*>(reinterpret_cast<void*>(GetProcAddress(library_, name)));
  }

  const HMODULE library_;
  DWORD registration_ = 0;
};

}  // namespace crv::test
