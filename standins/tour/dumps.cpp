#include "tour/dumps.h"

#include <dbghelp.h>

#include <algorithm>

#include "base/exceptions.h"
#include "base/format_message.h"
#include "root/scoped_handle.h"
#include "shared/places.h"

namespace crv::standins::tour {
namespace {

std::vector<char> ReadFileBytes(const std::wstring& path) {
  const root::ScopedFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  LARGE_INTEGER size = {};
  if (!file || !GetFileSizeEx(file.get(), &size)) throw exceptions::error(GetLastError(), L"cannot open %s", path.c_str());
  std::vector<char> bytes(static_cast<std::size_t>(size.QuadPart));
  DWORD read = 0;
  if (!ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) || read != bytes.size()) {
    throw exceptions::error(GetLastError(), L"cannot read %s", path.c_str());
  }
  return bytes;
}

// The stream of that type; null when there is none.
template <typename Content>
const Content* FindStream(std::vector<char>& dump, ULONG type, ULONG& size) {
  void* stream = nullptr;
  if (dump.size() < sizeof(MINIDUMP_HEADER) || !MiniDumpReadDumpStream(dump.data(), type, nullptr, &stream, &size))
    return nullptr;
  return static_cast<const Content*>(stream);
}

}  // namespace

std::vector<std::wstring> DumpFiles() {
  std::vector<std::wstring> files;
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW((LogFolder() + L"\\*.mdmp").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return files;
  do {
    files.push_back(LogFolder() + L"\\" + found.cFileName);
  } while (FindNextFileW(search, &found));
  FindClose(search);
  // Their names are numbers that grow with the time.
  std::sort(files.begin(), files.end(),
            [](const std::wstring& a, const std::wstring& b) { return a.size() == b.size() ? a < b : a.size() < b.size(); });
  return files;
}

DumpContent ReadDump(const std::wstring& path) {
  std::vector<char> dump = ReadFileBytes(path);
  DumpContent content;
  ULONG size = 0;
  if (const auto* const exception = FindStream<MINIDUMP_EXCEPTION_STREAM>(dump, ExceptionStream, size)) {
    content.exception = exception->ExceptionRecord.ExceptionCode;
  }
  if (const auto* const comment = FindStream<wchar_t>(dump, CommentStreamW, size)) {
    const std::wstring text(comment, size / sizeof(wchar_t));
    content.comment = ToUtf8(text.substr(0, text.find(L'\0')));
  }
  return content;
}

}  // namespace crv::standins::tour
