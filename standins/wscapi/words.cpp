// Security Center's client library wscapi.dll: change notifications on request, and variants of the library that lack a function.
#include <windows.h>

#include "base/exceptions.h"
#include "shared/area.h"
#include "shared/console.h"
#include "shared/places.h"
#include "shared/words.h"
#include "wscapi/control.h"
#include "root/scoped_handle.h"

namespace crv::standins {
namespace {

constexpr wchar_t kLibrary[] = L"wscapi.dll";
constexpr DWORD kListenerLimit = 10'000;           // ms
constexpr wchar_t kAside[] = L"wscapi_aside.dll";  // the whole library while a variant lies in its place

void MoveOver(const std::wstring& from, const std::wstring& to) {
  if (!MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING)) {
    throw exceptions::error(GetLastError(), L"cannot move %s", from.c_str());
  }
}

bool IsThere(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

void RestoreLibrary() {
  if (IsThere(Beside(kAside))) MoveOver(Beside(kAside), Beside(kLibrary));
}

void WriteNoLibrary(const std::wstring& path) {
  const root::ScopedFile file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
  constexpr char kText[] = "This is not a library.\r\n";
  DWORD written = 0;
  if (!file || !WriteFile(file.get(), kText, sizeof(kText) - 1, &written, nullptr)) {
    throw exceptions::error(GetLastError(), L"cannot write %s", path.c_str());
  }
}

void ReplaceLibrary(const Words& words) {
  const std::wstring& variant = words[0];
  if (variant != L"normal" && variant != L"without-register" && variant != L"without-unregister" && variant != L"broken") {
    throw UsageError{L"there is no variant '" + variant + L"' of wscapi.dll"};
  }
  RestoreLibrary();
  if (variant == L"normal") return;
  MoveOver(Beside(kLibrary), Beside(kAside));
  if (variant == L"broken") return WriteNoLibrary(Beside(kLibrary));
  const std::wstring from = Beside(variant == L"without-register" ? L"wscapi_without_WscRegisterForChanges.dll"
                                                                  : L"wscapi_without_WscUnRegisterChanges.dll");
  if (!CopyFileW(from.c_str(), Beside(kLibrary).c_str(), TRUE)) {
    throw exceptions::error(GetLastError(), L"cannot copy %s", from.c_str());
  }
}

void Notify(const Words& words) {
  const bool heard = SomebodyListens();
  RequestNotifications(NumberFrom(words[0]), words.size() > 1 ? NumberFrom(words[1]) : 0);
  if (!heard) PrintLine(L"nobody is registered for changes");
}

// Waits until somebody is registered.
void AwaitListener(const Words&) {
  for (const DWORD begin = GetTickCount(); !SomebodyListens(); Sleep(20)) {
    if (GetTickCount() - begin >= kListenerLimit) throw exceptions::error(ERROR_TIMEOUT, "nobody registers for changes");
  }
}

std::wstring DescribeLibrary() {
  const root::ScopedModule library(LoadLibraryExW(Beside(kLibrary).c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
  if (!library) return L"cannot be loaded (error " + std::to_wstring(GetLastError()) + L")";
  if (!GetProcAddress(library.get(), "WscRegisterForChanges")) return L"lacks WscRegisterForChanges";
  if (!GetProcAddress(library.get(), "WscUnRegisterChanges")) return L"lacks WscUnRegisterChanges";
  return L"complete";
}

Table Rows() {
  return {{L"Client library", L"Registered for changes"},
          {kLibrary + (L" " + DescribeLibrary()), SomebodyListens() ? L"yes" : L"nobody"}};
}

void Clear() {
  RestoreLibrary();
  ClearChanges();
}

}  // namespace

const Area& WscapiArea() {
  static const Area area = {
      .commands = {{L"changes", L"COUNT [MS]", L"notifies everybody who is registered for changes, spread over MS milliseconds",
                    1, 2, &Notify},
                   {L"changes-awaited", L"", L"returns when somebody is registered for changes", 0, 0, &AwaitListener},
                   {L"changes-library", L"normal | without-register | without-unregister | broken",
                    L"which variant of wscapi.dll lies beside the host", 1, 1, &ReplaceLibrary}},
      .calls = &ChangesCalls(),
      .table = &Rows,
      .clear = &Clear,
  };
  return area;
}

}  // namespace crv::standins
