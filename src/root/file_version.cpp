#include "root/file_version.h"

#include <windows.h>
#include <winver.h>

#include <cstddef>
#include <memory>

#include "base/exceptions.h"
#include "root/system_library.h"

namespace crv::root {

namespace {

constexpr wchar_t kLibrary[] = L"version.dll";

[[noreturn]] void Fail(const char* step) { throw exceptions::error(GetLastError(), "%s", step); }

}  // namespace

FileVersion GetFileVersion(const std::wstring& path) {
  const auto get_size = FindSystemFunction<decltype(GetFileVersionInfoSizeW)>(kLibrary, "GetFileVersionInfoSizeW");
  DWORD unused = 0;
  const DWORD size = get_size ? get_size(path.c_str(), &unused) : 0;
  if (size == 0) Fail("GetFileVersionInfoSizeW");
  const auto get = FindSystemFunction<decltype(GetFileVersionInfoW)>(kLibrary, "GetFileVersionInfoW");
  const auto resource = std::make_unique<std::byte[]>(size);
  if (!get || !get(path.c_str(), 0, size, resource.get())) Fail("GetFileVersionInfoW");

  const auto query = FindSystemFunction<decltype(VerQueryValueW)>(kLibrary, "VerQueryValueW");
  void* block = nullptr;
  UINT block_size = 0;  // bytes
  if (!query || !query(resource.get(), L"\\", &block, &block_size)) Fail("VerQueryValueW");
  const auto* const info = static_cast<const VS_FIXEDFILEINFO*>(block);
  if (block_size < sizeof(*info) || info->dwSignature != VS_FFI_SIGNATURE) Fail("VerQueryValueW signature is invalid");
  return {HIWORD(info->dwFileVersionMS), LOWORD(info->dwFileVersionMS), HIWORD(info->dwFileVersionLS),
          LOWORD(info->dwFileVersionLS)};
}

}  // namespace crv::root
