#include "shared/dump_files.h"

#include <dbghelp.h>

#include <algorithm>
#include <utility>

#include "base/exceptions.h"
#include "base/format_message.h"
#include "root/scoped_handle.h"

namespace crv::standins {
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

std::vector<std::wstring> DumpFiles(const std::wstring& folder) {
  std::vector<std::pair<ULONGLONG, std::wstring>> found_files;  // when each was written, and its path
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW((folder + L"\\*.mdmp").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return {};
  do {
    const FILETIME& time = found.ftLastWriteTime;
    found_files.emplace_back(ULONGLONG{time.dwHighDateTime} << 32 | time.dwLowDateTime, folder + L"\\" + found.cFileName);
  } while (FindNextFileW(search, &found));
  FindClose(search);
  std::sort(found_files.begin(), found_files.end());  // by the time: the numbers in the names do not always grow with it
  std::vector<std::wstring> files;
  for (auto& [time, path] : found_files) files.push_back(std::move(path));
  return files;
}

DumpContent ReadDump(const std::wstring& path) {
  std::vector<char> dump = ReadFileBytes(path);
  DumpContent content;
  ULONG size = 0;
  if (const auto* const header = reinterpret_cast<const MINIDUMP_HEADER*>(dump.data());
      dump.size() >= sizeof(*header) && header->Signature == MINIDUMP_SIGNATURE) {
    const auto* const directory = reinterpret_cast<const MINIDUMP_DIRECTORY*>(dump.data() + header->StreamDirectoryRva);
    const std::size_t room =
        header->StreamDirectoryRva < dump.size() ? (dump.size() - header->StreamDirectoryRva) / sizeof(*directory) : 0;
    for (std::size_t i = 0; i < header->NumberOfStreams && i < room; ++i) content.streams.push_back(directory[i].StreamType);
  }
  if (const auto* const system = FindStream<MINIDUMP_SYSTEM_INFO>(dump, SystemInfoStream, size))
    content.build = system->BuildNumber;
  if (const auto* const threads = FindStream<MINIDUMP_THREAD_LIST>(dump, ThreadListStream, size)) {
    for (ULONG i = 0; i < threads->NumberOfThreads; ++i) content.threads.push_back(threads->Threads[i].ThreadId);
  }
  if (const auto* const exception = FindStream<MINIDUMP_EXCEPTION_STREAM>(dump, ExceptionStream, size)) {
    content.exception = exception->ExceptionRecord.ExceptionCode;
    content.exception_thread = exception->ThreadId;
  }
  if (const auto* const comment = FindStream<wchar_t>(dump, CommentStreamW, size)) {
    const std::wstring text(comment, size / sizeof(wchar_t));
    content.comment = ToUtf8(text.substr(0, text.find(L'\0')));
  }
  return content;
}

}  // namespace crv::standins
