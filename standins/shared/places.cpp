#include "shared/places.h"

#include <windows.h>
#include <shlobj.h>

#include "base/exceptions.h"
#include "shared/own_path.h"

namespace crv::standins {

std::wstring Beside(const wchar_t* file) {
  const std::wstring path = OwnPath();
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

}  // namespace crv::standins
