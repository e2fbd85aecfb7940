#include "shared/com_server.h"

#include "base/exceptions.h"
#include "shared/places.h"
#include "root/scoped_handle.h"

namespace crv::standins {
namespace {

void Call(const wchar_t* file, const char* function) {
  const std::wstring path = Beside(file);
  const root::ScopedModule library(LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
  if (!library) throw exceptions::error(GetLastError(), L"cannot load %s", path.c_str());
  const auto call = reinterpret_cast<HRESULT(__stdcall*)()>(reinterpret_cast<void*>(GetProcAddress(library.get(), function)));
  if (!call) throw exceptions::error(GetLastError(), "%ls has no %s", path.c_str(), function);
  const HRESULT result = call();
  if (FAILED(result)) throw exceptions::error(result, "%s", function);
}

}  // namespace

void RegisterServer(const wchar_t* file) { Call(file, "DllRegisterServer"); }

void UnregisterServer(const wchar_t* file) { Call(file, "DllUnregisterServer"); }

}  // namespace crv::standins
