// The filters, called by hand: the repair of a console control thread that begins at another process's address, and what stays
// as it was. A crash that needs no repair has to be the first one of its process, so each row has a process of its own.
#include "crashguard/exception_filters.h"

#include "base/exceptions.h"
#include "crashguard/crash_guard_module.h"
#include "crashguard/stage.h"

namespace crv::crashguard {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct Filters : DumpStage {
  Filters() {
    AcquireCrashGuardModule()->Install(folder_, folder_, 0, 0);
    const std::uintptr_t here = AcquireCrashGuardModule()->handler().ctrl_routine();
    EXPECT_NE(0u, here);
    record.ExceptionCode = static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION);
    record.ExceptionAddress = reinterpret_cast<void*>(here ^ 0x12340000);
    context.Esp = reinterpret_cast<DWORD>(stack);
    context.Eip = reinterpret_cast<DWORD>(record.ExceptionAddress);
    AcquireCrashGuardModule()->Uninstall();  // no dump, if it comes to that
    log_.clear();
  }

  // Installs in a system where kernel32 has no such function.
  void ForgetCtrlRoutine() {
    const test::ImportFake<decltype(GetProcAddress)> none("kernel32.dll", "GetProcAddress",
                                                          [](auto*, auto...) -> FARPROC { return nullptr; });
    AcquireCrashGuardModule()->Install(folder_, folder_, 0, 0);
    AcquireCrashGuardModule()->Uninstall();
    record.ExceptionAddress = reinterpret_cast<void*>(0x12340000);  // with the low half of no address
  }

  // Called as from code that had set the direction flag.
  LONG Filter(PTOP_LEVEL_EXCEPTION_FILTER filter = &TopLevelExceptionFilter) {
    EXCEPTION_POINTERS pointers = {&record, &context};
    asm volatile("std" ::: "cc", "memory");
    const LONG answer = filter(&pointers);
    const unsigned flags = __builtin_ia32_readeflags_u32();
    asm volatile("cld" ::: "cc", "memory");
    EXPECT_EQ(0u, flags & 0x400);
    return answer;
  }

  DWORD stack[2] = {0x1000, 0x80000002};  // return address, argument
  EXCEPTION_RECORD record = {};
  CONTEXT context = {};
};

TEST_F(Filters, AControlThreadGoesOnAtThisProcesssAddress) {
  for (const DWORD argument : {0x80000000u, 0x80000008u}) {
    stack[1] = argument;
    log_.clear();
    EXPECT_EQ(EXCEPTION_CONTINUE_EXECUTION, Filter());
    EXPECT_EQ(AcquireCrashGuardModule()->handler().ctrl_routine(), context.Eip);
    EXPECT_THAT(log_.lines(), ElementsAre("narrow 2 crashguard: Entering TopLevelExceptionFilter...",
                                          "narrow 3 crashguard: Warning: Relocated kernel32 detected."));
  }
  int fatal_dumps = 0;
  const auto connection = AcquireCrashGuard()->ConnectFatalDumpWritten([&] { ++fatal_dumps; });
  AcquireCrashGuard()->WriteDumpInternal(nullptr, L"no\\such\\folder.mdmp", nullptr);
  EXPECT_EQ(0, fatal_dumps) << "what is repaired is no crash";
}

TEST_F(Filters, TheVectoredHandlerKeepsTheLastErrorAndLeavesAloneWhatItsOwnWorkThrows) {
  SetLastError(77);
  EXPECT_EQ(EXCEPTION_CONTINUE_SEARCH, Filter(&VectoredExceptionHandler));
  EXPECT_EQ(77u, GetLastError());
  const auto fail = [] { EXPECT_THROW(throw exceptions::fatal(1, "x"), exceptions::fatal); };
  const test::ImportFake<decltype(CreateProcessW)> dumper("kernel32.dll", "CreateProcessW",
                                                          [&](auto*, auto...) { return fail(), FALSE; });
  AcquireCrashGuard()->Install(folder_, folder_, install_flags::kVectoredHandler, 3);
  AcquireCrashGuard()->SetDumpFolder(L"Q:\\nowhere");
  log_.clear();
  fail();
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("Failed to start process dumper"), HasSubstr("failed with error: 7")));
  AcquireCrashGuard()->Uninstall();
}

TEST_F(Filters, AFaultBehindTheDumpLeavesTheCrashToTheSystem) {
  for (const DWORD code : {EXCEPTION_ACCESS_VIOLATION, STATUS_STACK_OVERFLOW}) {  // the second one is handled on the spare stack
    record.ExceptionCode = code;
    record.ExceptionAddress = nullptr;
    const auto crash = [&] {
      const test::ImportFake<decltype(OpenThreadToken)> fault(
          "advapi32.dll", "OpenThreadToken", [](auto*, auto...) { return RaiseException(0x77, 0, 0, nullptr), FALSE; });
      std::exit(Filter() == EXCEPTION_CONTINUE_SEARCH ? 0 : 1);
    };
    EXPECT_EXIT(crash(), testing::ExitedWithCode(0), "");
  }
}

TEST_F(Filters, TheRepairNeedsEveryCondition) {
  const struct {
    const char* description;
    void (*spoil)(Filters& filters);
  } rows[] = {
      {"another code", [](Filters& r) { r.record.ExceptionCode = static_cast<DWORD>(EXCEPTION_GUARD_PAGE); }},
      {"another offset", [](Filters& r) { r.record.ExceptionAddress = static_cast<char*>(r.record.ExceptionAddress) + 1; }},
      {"an argument too large", [](Filters& r) { r.stack[1] = 0x80000009; }},
      {"an argument too small", [](Filters& r) { r.stack[1] = 0x7FFFFFFF; }},
      {"no stack to read", [](Filters& r) { r.context.Esp = 0x10; }},
      {"no address of this process", [](Filters& r) { r.ForgetCtrlRoutine(); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.description);
    const auto crash = [&] {
      row.spoil(*this);
      const DWORD before = context.Eip;
      const LONG answer = Filter();
      const std::string last = log_.lines().back();
      std::exit(answer == EXCEPTION_CONTINUE_SEARCH && context.Eip == before &&
                        last == "narrow 4 crashguard: CrashHandler not installed."
                    ? 0
                    : 1);
    };
    EXPECT_EXIT(crash(), testing::ExitedWithCode(0), "");
  }
}

}  // namespace
}  // namespace crv::crashguard
