#include "centre/places.h"

#include <windows.h>
#include <shlobj.h>

#include "base/exceptions.h"

namespace crv::standins::centre {

std::wstring Beside(const wchar_t* file) {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return path.substr(0, path.rfind(L'\\') + 1) + file;
}

std::wstring LogFolder() {
  wchar_t common[MAX_PATH] = {};
  const HRESULT result = SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, common);
  if (FAILED(result)) throw exceptions::error(result, "cannot find the folder for common application data");
  return std::wstring(common) + L"\\CORVID Software\\Corvid\\log";
}

std::wstring LogFile() { return LogFolder() + L"\\wsc.log"; }

std::wstring OldLogFile() { return LogFile() + L".old"; }

}  // namespace crv::standins::centre
