#include "root/module_path.h"

#include <psapi.h>

#include <memory>

#include "base/exceptions.h"
#include "platform/mapped_file_name.h"
#include "root/nt_path.h"
#include "root/system_library.h"

// The header of the image that this code is linked into; its address is the module's handle.
extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace crv::root {

std::wstring GetModulePath(HMODULE module) {
  if (!module) module = GetModuleHandleW(nullptr);
  constexpr DWORD kNameSize = 32768;  // characters: the longest path that NT knows
  const auto name = std::make_unique_for_overwrite<wchar_t[]>(kNameSize);
  const auto mapped_file_name = FindSystemFunction<decltype(GetMappedFileNameW)>(L"psapi.dll", "GetMappedFileNameW");
  const DWORD answered = mapped_file_name ? mapped_file_name(GetCurrentProcess(), module, name.get(), kNameSize) : 0;
  const DWORD length = platform::DocumentMappedFileName(answered, name.get(), kNameSize);
  if (length == 0) throw exceptions::error(GetLastError(), "Unable to retrieve the path of the module!");
  return NtPathToWin32Path(std::wstring(name.get(), length));
}

std::wstring GetThisModulePath() { return GetModulePath(reinterpret_cast<HMODULE>(&__ImageBase)); }

}  // namespace crv::root
