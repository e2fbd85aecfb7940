#include "shared/report_text.h"

#include <windows.h>

#include "base/exceptions.h"
#include "root/scoped_handle.h"

namespace crv::standins {

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '<': escaped += "&lt;"; break;
      case '>': escaped += "&gt;"; break;
      case '&': escaped += "&amp;"; break;
      case '"': escaped += "&quot;"; break;
      default: escaped += c;
    }
  }
  return escaped;
}

void WriteTextFile(const std::wstring& path, const std::string& text) {
  const root::ScopedFile file(
      CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  if (!file || !WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) ||
      !FlushFileBuffers(file.get())) {
    throw exceptions::error(GetLastError(), L"cannot write %s", path.c_str());
  }
}

}  // namespace crv::standins
