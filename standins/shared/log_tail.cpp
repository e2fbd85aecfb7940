#include "shared/log_tail.h"

#include "shared/places.h"

namespace crv::standins {
namespace {

root::ScopedFile OpenToRead(const std::wstring& path) {
  return root::ScopedFile(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

std::string ReadFrom(const root::ScopedFile& file, std::uint64_t offset) {
  LARGE_INTEGER position;
  position.QuadPart = static_cast<LONGLONG>(offset);
  SetFilePointerEx(file.get(), position, nullptr, FILE_BEGIN);
  std::string text;
  char buffer[16384];
  for (DWORD read = 0; ReadFile(file.get(), buffer, sizeof(buffer), &read, nullptr) && read > 0;) text.append(buffer, read);
  return text;
}

}  // namespace

std::optional<LogTail::Mark> LogTail::MarkOf(const root::ScopedFile& file) {
  BY_HANDLE_FILE_INFORMATION information = {};
  if (!file || !GetFileInformationByHandle(file.get(), &information)) return std::nullopt;
  return Mark{std::uint64_t{information.nFileIndexHigh} << 32 | information.nFileIndexLow,
              std::uint64_t{information.nFileSizeHigh} << 32 | information.nFileSizeLow};
}

LogTail::LogTail() : before_(MarkOf(OpenToRead(LogFile()))) {}

std::string LogTail::Read() const {
  const root::ScopedFile file = OpenToRead(LogFile());
  const std::optional<Mark> now = MarkOf(file);
  if (!now) return {};
  if (!before_) return ReadFrom(file, 0);
  if (now->identity == before_->identity && now->size >= before_->size) return ReadFrom(file, before_->size);
  std::string text;
  if (const root::ScopedFile old_file = OpenToRead(OldLogFile())) {
    const std::optional<Mark> old = MarkOf(old_file);
    text = ReadFrom(old_file, old && old->identity == before_->identity ? before_->size : 0);
  }
  return text + ReadFrom(file, 0);
}

bool IsOfSystemsAge(const std::string& text) {
  static const bool has_name = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "CtrlRoutine") != nullptr;
  return !has_name && text.ends_with("Failed to get address of CtrlRoutine");
}

}  // namespace crv::standins
