#include "root/file_version.h"

#include <windows.h>
#include <winver.h>

#include <cstddef>
#include <memory>

#include "base/exceptions.h"

namespace crv::root {

FileVersion GetFileVersion(const std::wstring& path) {
  DWORD unused = 0;
  const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &unused);
  if (size == 0) throw exceptions::error(GetLastError(), "GetFileVersionInfoSizeW");
  const auto resource = std::make_unique<std::byte[]>(size);
  if (!GetFileVersionInfoW(path.c_str(), 0, size, resource.get())) throw exceptions::error(GetLastError(), "GetFileVersionInfoW");

  void* block = nullptr;
  UINT block_size = 0;  // bytes
  if (!VerQueryValueW(resource.get(), L"\\", &block, &block_size)) throw exceptions::error(GetLastError(), "VerQueryValueW");
  const auto* const info = static_cast<const VS_FIXEDFILEINFO*>(block);
  if (block_size < sizeof(*info) || info->dwSignature != VS_FFI_SIGNATURE) {
    throw exceptions::error(GetLastError(), "VerQueryValueW signature is invalid");
  }
  return {HIWORD(info->dwFileVersionMS), LOWORD(info->dwFileVersionMS), HIWORD(info->dwFileVersionLS),
          LOWORD(info->dwFileVersionLS)};
}

}  // namespace crv::root
