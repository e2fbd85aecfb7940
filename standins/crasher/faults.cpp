// One fault each, in a process that is guarded.
#include <windows.h>
#include <tlhelp32.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "base/exceptions.h"
#include "crasher/stage.h"
#include "dumper/control.h"
#include "installer/control.h"
#include "entry/run.h"
#include "platform/throw_record.h"

namespace crv::standins::crasher {

// Of external linkage, so that the compiler cannot know every class derived from it.
struct Unfinished {
  Unfinished() {
    Unfinished* volatile const unfinished = this;  // the compiler does not know what it points to
    unfinished->Act();
  }
  virtual ~Unfinished() = default;
  virtual void Act() = 0;
};
struct Finished : Unfinished {
  void Act() override {}
};

namespace {

constexpr DWORD kSlowInstaller = 45'000;  // ms, in which the crash must be over
constexpr DWORD kMoment = 300;            // ms, for another thread to get where it is going

void Say(const char* text) {
  std::puts(text);
  std::fflush(stdout);
}

// Ends the dumper that this process started, with exit code 9.
void EndDumper() {
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof(entry);
  const HANDLE processes = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  for (BOOL more = Process32FirstW(processes, &entry); more; more = Process32NextW(processes, &entry)) {
    if (entry.th32ParentProcessID != GetCurrentProcessId()) continue;
    const HANDLE dumper = OpenProcess(PROCESS_TERMINATE, FALSE, entry.th32ProcessID);
    TerminateProcess(dumper, 9);
    CloseHandle(dumper);
  }
  CloseHandle(processes);
}

int AccessViolation(Stage&) {
  WriteToNull();
  return 0;
}

int InAnotherThread(Stage&) {
  std::thread([] { WriteToNull(); }).join();
  return 0;
}

int DivisionByZero(Stage&) {
  volatile int dividend = 1000;
  volatile int divisor = 0;
  return dividend / divisor;
}

int IllegalInstruction(Stage&) {
  asm volatile("ud2");
  return 0;
}

int Breakpoint(Stage&) {
  asm volatile("int3");
  return 0;
}

[[gnu::noinline]] int FillStack(volatile int& depth) {
  volatile char page[512];
  depth = depth + 1;
  page[0] = static_cast<char>(depth);
  return depth > 0 ? FillStack(depth) + page[0] : 0;
}

int StackOverflow(Stage&) {
  volatile int depth = 0;
  return FillStack(depth);
}

int Abort(Stage&) { std::abort(); }

[[gnu::noinline]] void ThrowUncaught() { throw std::runtime_error("nobody catches this"); }

int UncaughtException(Stage&) {
  ThrowUncaught();
  return 0;
}

int PureVirtualCall(Stage&) {
  const Finished object;
  return 0;
}

// The second thread crashes while the handler of the first crash is being called, and waits there for the filter.
int TwoThreads(Stage& stage) {
  const auto connection = stage.guard->ConnectDumpWritten([] {
    const HANDLE begun = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::thread([begun] {
      SetEvent(begun);
      WriteToNull();
    }).detach();
    WaitForSingleObject(begun, INFINITE);
    Sleep(kMoment);
  });
  WriteToNull();
  return 0;
}

// A handler that crashes while nobody guards the writer.
int InWriter(Stage& stage) {
  const auto connection = stage.guard->ConnectDumpWritten([] { WriteToNull(); });
  return static_cast<int>(stage.guard->WriteDumpInternal(nullptr, L"asked.mdmp", nullptr));
}

[[gnu::noinline]] void ThrowFatal(int number) { throw exceptions::fatal(87, "number %d", number); }

// The events are told on the way: an uncaught fatal error is one exception, raised twice.
int UncaughtFatal(Stage& stage) {
  const auto written = stage.guard->ConnectDumpWritten([] { Say("written"); });
  const auto fatal = stage.guard->ConnectFatalDumpWritten([] { Say("fatal written"); });
  ThrowFatal(0);
  return 0;
}

// Where a caught one was dumped and freed, the next one lies, and is another one.
int CaughtAndUncaughtFatal(Stage&) {
  const void* places[3] = {};
  for (const void*& place : places) {
    try {
      ThrowFatal(0);
    } catch (const exceptions::fatal& caught) {
      place = &caught;
    }
  }
  Say(places[1] == places[2] ? "same place" : "other places");
  ThrowFatal(0);
  return 0;
}

int FourFatals(Stage&) {
  for (int i = 0; i < 4; ++i) {
    try {
      ThrowFatal(i);
    } catch (const exceptions::fatal&) {
    }
  }
  return 0;
}

// As Microsoft's compiler throws: nobody lets the thread go on, so the filter meets the context that is dumped already.
int MicrosoftFatal(Stage&) {
  struct Record {
    platform::TypeDescriptor descriptor = {nullptr, nullptr, ".?AVfatal@exceptions@crv@@"};
    platform::CatchableType catchable = {};
    platform::CatchableTypeArray array = {1, {}};
    platform::ThrowInfo info = {};
  } record;
  record.catchable.type = reinterpret_cast<DWORD>(&record.descriptor);
  record.array.types[0] = reinterpret_cast<DWORD>(&record.catchable);
  record.info.types = reinterpret_cast<DWORD>(&record.array);
  const ULONG_PTR parameters[] = {platform::kThrowMagic, 0, reinterpret_cast<ULONG_PTR>(&record.info)};
  RaiseException(platform::kThrownObject, EXCEPTION_NONCONTINUABLE, 3, parameters);
  return 0;
}

int CrashNow(Stage& stage) {
  stage.guard->CrashNow();
  return 0;
}

int CrashAfter(Stage& stage) {
  const HANDLE thread = stage.guard->CrashAfter(kMoment);
  WaitForSingleObject(thread, INFINITE);
  return 0;
}

// While a run of the module waits for the suite's installer, which is told to take its time.
int CrashDuringRun(Stage& stage) {
  ClearInstaller();
  InstallerBehaviour slow;
  slow.duration = kSlowInstaller;
  ScriptInstaller(kUpdateSetup, slow);
  std::thread([&stage] {
    while (InstallerRuns().empty()) Sleep(10);
    ClearInstaller();
    stage.guard->CrashNow();
  }).detach();
  return static_cast<int>(run(L"crasher.exe /av /update"));
}

// Another thread's crash is being dumped when a run of the module ends.
int CrashWhileRunEnds(Stage& stage) {
  const HANDLE begun = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  static volatile bool dumped = false;
  const auto connection = stage.guard->ConnectDumpWritten([begun] {
    SetEvent(begun);
    Sleep(kMoment);
    dumped = true;
  });
  std::thread(&WriteToNull).detach();
  WaitForSingleObject(begun, INFINITE);
  run(L"crasher.exe /av");
  Say(dumped ? "run came back after the dump" : "run came back");
  Sleep(kSlowInstaller);  // the crash ends the process
  return 0;
}

// The dumper never comes to its end by itself.
int DumperEnded(Stage&) {
  std::thread([before = DumperRuns().size()] {
    while (DumperRuns().size() == before) Sleep(10);
    Sleep(kMoment);
    EndDumper();
  }).detach();
  WriteToNull();
  return 0;
}

int NoCrash(Stage&) { return 0; }

int FailFast(Stage&) {
  asm volatile("int $0x29" ::"c"(7));  // FAST_FAIL_FATAL_APP_EXIT
  return 0;
}

int HeapCorruption(Stage&) {
  char* const block = static_cast<char*>(HeapAlloc(GetProcessHeap(), 0, 64));
  for (int i = -32; i < 96; ++i) const_cast<volatile char*>(block)[i] = 'x';
  HeapFree(GetProcessHeap(), 0, block);
  return 0;
}

}  // namespace

[[gnu::noinline]] void WriteToNull() {
  volatile char* volatile const nothing = nullptr;
  *nothing = 1;
}

const Case kFaults[] = {
    {L"access-violation", L"a write to address 0", &AccessViolation},
    {L"other-thread", L"the same in another thread", &InAnotherThread},
    {L"division", L"a division by zero", &DivisionByZero},
    {L"illegal-instruction", L"an instruction that does not exist", &IllegalInstruction},
    {L"breakpoint", L"a breakpoint without a debugger", &Breakpoint},
    {L"stack-overflow", L"endless recursion", &StackOverflow},
    {L"abort", L"abort of the C runtime", &Abort},
    {L"uncaught", L"a C++ exception that nobody catches", &UncaughtException},
    {L"pure-virtual", L"a call of a pure virtual function", &PureVirtualCall},
    {L"two-threads", L"a second thread crashes while the first crash is dumped", &TwoThreads},
    {L"in-writer", L"an event handler crashes while a dump is written on request", &InWriter},
    {L"dumper-ended", L"the dumper hangs and somebody ends it", &DumperEnded},
    {L"uncaught-fatal", L"a fatal error that nobody catches", &UncaughtFatal},
    {L"last-fatal", L"three fatal errors are caught, the fourth is not", &CaughtAndUncaughtFatal},
    {L"four-fatals", L"four fatal errors are thrown and caught", &FourFatals},
    {L"microsoft-fatal", L"a fatal error of Microsoft's compiler that nobody catches", &MicrosoftFatal},
    {L"crash-now", L"CrashNow", &CrashNow},
    {L"crash-after", L"CrashAfter", &CrashAfter},
    {L"during-run", L"CrashNow while a run of the module waits for the installer", &CrashDuringRun, true},
    {L"run-ends", L"a run of the module ends while another thread's crash is dumped", &CrashWhileRunEnds},
    {L"none", L"no crash at all", &NoCrash},
    {L"fail-fast", L"the system's fast fail", &FailFast},
    {L"heap-corruption", L"a heap block written over at both ends", &HeapCorruption},
    {},
};

}  // namespace crv::standins::crasher
