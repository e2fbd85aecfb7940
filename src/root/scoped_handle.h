// The one owner of system handles and of whatever else has to be given back. Each kind is an alias made of this template and a
// tiny traits type that names the invalid value and the closer. Releasing keeps the thread's last error, so that an error read
// after a scope ends is still the one of the failed call. An owner is used by one thread at a time.
#pragma once

#include <windows.h>
#include <winsvc.h>

#include <utility>

namespace crv::root {

template <typename Traits>
class ScopedHandle {
 public:
  using Handle = typename Traits::Handle;

  ScopedHandle() = default;
  explicit ScopedHandle(Handle handle) : handle_(handle) {}  // takes ownership
  ScopedHandle(ScopedHandle&& other) noexcept : handle_(other.release()) {}
  ScopedHandle& operator=(ScopedHandle&& other) noexcept {
    reset(other.release());
    return *this;
  }
  ~ScopedHandle() { reset(); }

  explicit operator bool() const { return handle_ != Traits::Invalid(); }
  Handle get() const { return handle_; }

  // Closes what is held and gives the place for a call that hands out a new handle.
  Handle* put() {
    reset();
    return &handle_;
  }

  // Closes what is held and takes ownership of the given handle.
  void reset(Handle handle = Traits::Invalid()) {
    const Handle old = std::exchange(handle_, handle);
    if (old == Traits::Invalid()) return;
    const DWORD last_error = GetLastError();
    Traits::Close(old);
    SetLastError(last_error);
  }

  // Gives up ownership without closing.
  Handle release() { return std::exchange(handle_, Traits::Invalid()); }

 private:
  Handle handle_ = Traits::Invalid();
};

template <typename T>
struct NullHandleTraits {
  using Handle = T;
  static Handle Invalid() { return nullptr; }
};

struct FileTraits {  // CreateFileW and its kin: invalid is INVALID_HANDLE_VALUE
  using Handle = HANDLE;
  static Handle Invalid() { return INVALID_HANDLE_VALUE; }
  static void Close(Handle handle) { CloseHandle(handle); }
};
struct KernelTraits : NullHandleTraits<HANDLE> {  // processes, threads, events, tokens
  static void Close(Handle handle) { CloseHandle(handle); }
};
struct RegistryKeyTraits : NullHandleTraits<HKEY> {
  static void Close(Handle handle) { RegCloseKey(handle); }
};
struct ServiceTraits : NullHandleTraits<SC_HANDLE> {
  static void Close(Handle handle) { CloseServiceHandle(handle); }
};
struct ModuleTraits : NullHandleTraits<HMODULE> {
  static void Close(Handle handle) { FreeLibrary(handle); }
};
struct SidTraits : NullHandleTraits<PSID> {
  static void Close(Handle handle) { FreeSid(handle); }
};
struct ProcessHeapBlockTraits : NullHandleTraits<void*> {
  static void Close(Handle handle) { HeapFree(GetProcessHeap(), 0, handle); }
};
struct VolumeSearchTraits {  // FindFirstVolumeW
  using Handle = HANDLE;
  static Handle Invalid() { return INVALID_HANDLE_VALUE; }
  static void Close(Handle handle) { FindVolumeClose(handle); }
};

using ScopedFile = ScopedHandle<FileTraits>;
using ScopedKernelHandle = ScopedHandle<KernelTraits>;
using ScopedRegistryKey = ScopedHandle<RegistryKeyTraits>;
using ScopedService = ScopedHandle<ServiceTraits>;
using ScopedModule = ScopedHandle<ModuleTraits>;
using ScopedSidBlock = ScopedHandle<SidTraits>;
using ScopedProcessHeapBlock = ScopedHandle<ProcessHeapBlockTraits>;
using ScopedVolumeSearch = ScopedHandle<VolumeSearchTraits>;

}  // namespace crv::root
