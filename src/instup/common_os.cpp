#include "instup/common_os.h"

#include <memory>
#include <new>

#include "instup/library_folders.h"
#include "root/lock.h"
#include "root/optional_functions.h"

namespace crv::instup {
namespace {

struct Library {
  CRITICAL_SECTION section;  // never destroyed
  std::int32_t references = 0;
  bool has_table = false;  // the optional-function table is initialised
  root::CLock* lock = nullptr;
  LibraryFolders folders;
};

Library* the_library = nullptr;  // made by the very first call and kept until the process ends

class LibraryLock {
 public:
  explicit LibraryLock(Library& library) : section_(library.section) { EnterCriticalSection(&section_); }
  ~LibraryLock() { LeaveCriticalSection(&section_); }
  LibraryLock(const LibraryLock&) = delete;
  LibraryLock& operator=(const LibraryLock&) = delete;

 private:
  CRITICAL_SECTION& section_;
};

DWORD Result(DWORD code) {
  SetLastError(code);
  return code;
}

void Release(Library& library) {
  if (--library.references != 0) return;
  if (library.lock) library.lock->Destroy(true);
  library.lock = nullptr;
  if (library.has_table) root::OptionalTableRelease();
  library.has_table = false;
}

// A reference that is given back at the end of the scope unless it is kept. Needs the library's lock.
class Reference {
 public:
  explicit Reference(Library& library) : library_(&library) { ++library.references; }
  ~Reference() {
    if (library_) Release(*library_);
  }
  Reference(const Reference&) = delete;
  Reference& operator=(const Reference&) = delete;

  void Keep() { library_ = nullptr; }

 private:
  Library* library_;
};

// The information's first stage lasts as long as the process, so a later failure does not give the reference on it back.
DWORD MakeLibrary() {
  if (const DWORD result = root::OsInfoAcquire(); result != ERROR_SUCCESS) return result;
  auto library = std::make_unique<Library>();
  if (!InitializeCriticalSectionAndSpinCount(&library->section, 0)) return GetLastError();
  the_library = library.release();
  return ERROR_SUCCESS;
}

// A host started with a poor environment lacks the variable, on which much of the system relies. A value that does not fit the
// buffer is there all the same.
void RepairSystemRoot() {
  wchar_t folder[MAX_PATH] = {};
  const DWORD expanded = ExpandEnvironmentStringsW(L"%SystemRoot%", folder, MAX_PATH);
  if (expanded > MAX_PATH || (expanded > 0 && folder[0] != L'\0' && folder[0] != L'%')) return;
  const UINT length = GetWindowsDirectoryW(folder, MAX_PATH);
  if (length > 0 && length < MAX_PATH) SetEnvironmentVariableW(L"SystemRoot", folder);
}

DWORD StartUp(Library& library, std::uint32_t flags) {
  RepairSystemRoot();
  if (const DWORD result = root::OptionalTableInit(flags); result != ERROR_SUCCESS) return result;
  library.has_table = true;
  library.lock = new root::CLockCS;
  SettleLibraryFolders(library.folders);
  SettleDataSubFolders(library.folders);
  return ERROR_SUCCESS;
}

DWORD Initialize(std::uint32_t flags) {
  if (!the_library) {
    if (const DWORD result = MakeLibrary(); result != ERROR_SUCCESS) return result;
  }
  const LibraryLock lock(*the_library);
  Reference reference(*the_library);
  if (the_library->references == 1) {
    if (const DWORD result = StartUp(*the_library, flags); result != ERROR_SUCCESS) return result;
  }
  reference.Keep();
  return ERROR_SUCCESS;
}

}  // namespace

DWORD CmnOsInitialize(std::uint32_t flags) {
  try {
    return Result(Initialize(flags));
  } catch (const std::bad_alloc&) {
    return Result(ERROR_NOT_ENOUGH_MEMORY);
  }
}

DWORD CmnOsUninitialize() {
  if (the_library) {
    const LibraryLock lock(*the_library);
    // One release too many would make the next initialisation count from below zero and set nothing up.
    if (the_library->references > 0) Release(*the_library);
  }
  return Result(ERROR_SUCCESS);
}

const std::wstring& CmnOsProgramFolder() {
  static const std::wstring none;
  return the_library ? the_library->folders.program : none;
}

}  // namespace crv::instup
