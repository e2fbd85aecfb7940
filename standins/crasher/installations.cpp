// What becomes of the crash guard before a fault, and what it leaves.
#include <windows.h>

#include <malloc.h>

#include <cstdio>
#include <vector>

#include "crasher/stage.h"

namespace crv::standins::crasher {
namespace {

LONG WINAPI OtherFilter(EXCEPTION_POINTERS*) {
  std::puts("other filter");
  std::fflush(stdout);
  return EXCEPTION_CONTINUE_SEARCH;
}

int FolderRemoved(Stage& stage) {
  stage.guard->SetDumpFolder(stage.folder + L"\\removed\\deeper");
  WriteToNull();
  return 0;
}

int FileRefused(Stage& stage) {
  stage.guard->SetDumpFolder(L"Q:\\there\\is\\no\\such\\drive");
  WriteToNull();
  return 0;
}

int FilterReplaced(Stage&) {
  std::printf("replaced %d\n", SetUnhandledExceptionFilter(&OtherFilter) != nullptr);
  std::fflush(stdout);
  WriteToNull();
  return 0;
}

int Uninstalled(Stage& stage) {
  SetUnhandledExceptionFilter(&OtherFilter);  // what the guard finds, and puts back
  std::printf("install %u", static_cast<unsigned>(stage.Install()));
  std::printf(" %u", static_cast<unsigned>(stage.Install()));
  std::printf(" uninstall %d", stage.guard->Uninstall());
  std::printf(" %d\n", stage.guard->Uninstall());
  std::fflush(stdout);
  WriteToNull();
  return 0;
}

int InstalledAgain(Stage& stage) {
  SetUnhandledExceptionFilter(&OtherFilter);  // not called: the guard's filter is the last one
  stage.Install();
  stage.guard->Uninstall();
  std::printf("install %u\n", static_cast<unsigned>(stage.Install()));
  std::fflush(stdout);
  WriteToNull();
  return 0;
}

// The library as its host uses it. Gives what `run` answered.
DWORD RunLibrary(HMODULE library, const wchar_t* command_line) {
  using Run = DWORD(__stdcall*)(const wchar_t*);
  const auto run = reinterpret_cast<Run>(reinterpret_cast<void*>(GetProcAddress(library, "_run@4")));
  const DWORD result = run ? run(command_line) : ERROR_PROC_NOT_FOUND;
  std::printf("run 0x%08lx\n", result);
  std::fflush(stdout);
  return result;
}

// As many wrong requests as one process can make: the library's own limit counts.
int FourRuns(Stage&) {
  SetErrorMode(0);
  const HMODULE library = LoadLibraryW(L"wsc.dll");
  for (int i = 0; i < 4; ++i) RunLibrary(library, L"crasher.exe /svc");
  const UINT mode = SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  std::printf("error mode 0x%04x\n", mode & ~SEM_NOALIGNMENTFAULTEXCEPT);  // which some systems never clear
  return 0;
}

// At another place than the one that it was linked for, as most systems load it.
int LibraryMoved(Stage&) {
  const HMODULE first = LoadLibraryW(L"wsc.dll");
  FreeLibrary(first);
  VirtualAlloc(first, 1, MEM_RESERVE, PAGE_NOACCESS);
  const HMODULE library = LoadLibraryW(L"wsc.dll");
  std::printf("moved %d\n", library && library != first);
  RunLibrary(library, L"crasher.exe /svc");
  return 0;
}

// Afterwards nothing of the library may be called any more.
int LibraryUnloaded(Stage&) {
  SetUnhandledExceptionFilter(&OtherFilter);
  const HMODULE library = LoadLibraryW(L"wsc.dll");
  RunLibrary(library, L"crasher.exe /av");
  FreeLibrary(library);
  std::printf("loaded %d\n", GetModuleHandleW(L"wsc.dll") != nullptr);
  std::printf("previous %d\n", SetUnhandledExceptionFilter(&OtherFilter) == &OtherFilter);
  std::fflush(stdout);
  WriteToNull();
  return 0;
}

int FreeSlots() {
  std::vector<DWORD> taken;
  for (DWORD slot = TlsAlloc(); slot != TLS_OUT_OF_INDEXES; slot = TlsAlloc()) taken.push_back(slot);
  for (const DWORD slot : taken) TlsFree(slot);
  return static_cast<int>(taken.size());
}

// Bytes of the C runtime's heap, which the library shares.
std::size_t HeapInUse() {
  const HANDLE heap = reinterpret_cast<HANDLE>(_get_heap_handle());
  PROCESS_HEAP_ENTRY entry = {};
  std::size_t sum = 0;
  HeapLock(heap);
  while (HeapWalk(heap, &entry)) {
    if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) sum += entry.cbData;
  }
  HeapUnlock(heap);
  return sum;
}

// What each load costs the process for good.
int LoadedOften(Stage&) {
  constexpr int kLoads = 10;
  int slots = 0;
  std::size_t bytes = 0;
  for (int i = 0; i <= kLoads; ++i) {
    if (i == 1) slots = FreeSlots(), bytes = HeapInUse();  // the first load brings other libraries along
    const HMODULE library = LoadLibraryW(L"wsc.dll");
    RunLibrary(library, L"crasher.exe /as");
    FreeLibrary(library);
  }
  constexpr std::size_t kPage = 4096;  // bytes
  const std::size_t pages = (HeapInUse() - bytes) / kLoads / kPage;
  std::printf("lost slots %d, pages %u\n", slots - FreeSlots(), static_cast<unsigned>(pages));
  return 0;
}

// The library in a process where only the loader finds a thread-local slot: its crash guard works without the mark of re-entry.
int NoSlot(Stage&) {
  constexpr DWORD kForRuntime = 8;  // given back later: the compiler's runtime cannot throw without one
  DWORD last = 0;
  for (DWORD slot = TlsAlloc(); slot != TLS_OUT_OF_INDEXES; slot = TlsAlloc()) last = slot;
  TlsFree(last);
  const HMODULE library = LoadLibraryW(L"wsc.dll");
  for (DWORD i = 1; i <= kForRuntime; ++i) TlsFree(last - i);
  RunLibrary(library, L"crasher.exe");
  return 0;
}

}  // namespace

const Case kInstallations[] = {
    {L"folder-removed", L"the dump folder is gone when the crash comes", &FolderRemoved},
    {L"file-refused", L"no dump file can be created", &FileRefused},
    {L"filter-replaced", L"somebody sets another filter after the install", &FilterReplaced},
    {L"uninstalled", L"installed twice, uninstalled twice, then a crash", &Uninstalled, true},
    {L"installed-again", L"installed, uninstalled, installed, then a crash", &InstalledAgain, true},
    {L"unloaded", L"wsc.dll runs and is freed, then a crash", &LibraryUnloaded, true},
    {L"four-runs", L"wsc.dll makes four wrong requests", &FourRuns, true},
    {L"moved", L"wsc.dll makes a wrong request where it was not linked for", &LibraryMoved, true},
    {L"loaded-often", L"wsc.dll is loaded, runs a wrong request and is freed, again and again", &LoadedOften, true},
    {L"no-slot", L"wsc.dll runs where no thread-local slot is left", &NoSlot, true},
    {},
};

}  // namespace crv::standins::crasher
