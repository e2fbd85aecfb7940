// stress.exe: kills the suite's host at random moments, runs it many times in sequence and many of it at once, and looks at what
// is left behind. Lies beside the installed suite; `run` beside its source brings it there.
#include <windows.h>
#include <winternl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <sstream>
#include <vector>

#include "base/exceptions.h"
#include "root/scoped_handle.h"
#include "security_center/control.h"
#include "shared/places.h"
#include "sweep/machine.h"

using namespace crv;

namespace {

constexpr wchar_t kUpdate[] = L"/svc /update /antivirus /antispyware /firewall /state:on /signatures:up_to_date";
constexpr wchar_t kInstall[] = L"/av /update";
constexpr DWORD kLimit = 60'000;       // ms for one run
constexpr DWORD kProgramsEnd = 5'000;  // ms that installers have after a kill
constexpr UINT kKilled = 0xE0570009;

unsigned failures = 0;

void Fail(const char* what, const std::string& detail = {}) {
  ++failures;
  std::printf("  FAILED %s %s\n", what, detail.c_str());
  std::fflush(stdout);
}

root::ScopedKernelHandle Start(const std::wstring& tail) {
  const std::wstring program = standins::Beside(L"wsc_proxy.exe");
  std::wstring command_line = L"\"" + program + L"\" " + tail;
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started = {};
  if (!CreateProcessW(program.c_str(), command_line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started)) {
    throw exceptions::error(GetLastError(), "cannot start wsc_proxy.exe");
  }
  CloseHandle(started.hThread);
  return root::ScopedKernelHandle(started.hProcess);
}

DWORD ResultOf(const root::ScopedKernelHandle& process) {
  DWORD result = ERROR_TIMEOUT;
  if (WaitForSingleObject(process.get(), kLimit) == WAIT_OBJECT_0) GetExitCodeProcess(process.get(), &result);
  return result;
}

std::string Narrow(const std::vector<std::wstring>& lines) {
  std::string text;
  for (const std::wstring& line : lines) text += std::string(line.begin(), line.end()) + "; ";
  return text;
}

// Handles of all processes together.
unsigned long AllHandles() {
  std::vector<unsigned char> buffer(1024 * 1024);
  ULONG size = 0;
  if (NtQuerySystemInformation(SystemProcessInformation, buffer.data(), static_cast<ULONG>(buffer.size()), &size) != 0) return 0;
  unsigned long count = 0;
  for (const unsigned char* at = buffer.data();;) {
    const auto* const process = reinterpret_cast<const SYSTEM_PROCESS_INFORMATION*>(at);
    count += process->HandleCount;
    if (process->NextEntryOffset == 0) return count;
    at += process->NextEntryOffset;
  }
}

bool IsWholeRecord(const std::string& line) {
  unsigned year, month, day, hour, minute, second, millisecond, process, thread;
  char level[16], tag[16];
  return std::sscanf(line.c_str(), "%4u-%2u-%2u %2u:%2u:%2u.%3u %u %u %15s %15s", &year, &month, &day, &hour, &minute, &second,
                     &millisecond, &process, &thread, level, tag) == 11 &&
         (std::strcmp(tag, "wsc") == 0 || std::strcmp(tag, "crashguard") == 0) && line.back() == '\r' &&
         line.find("\xEF\xBF\xBD") == line.npos && line.find(" wsc started", line.find(" wsc started") + 1) == line.npos;
}

struct Log {
  unsigned records = 0;
  unsigned starts = 0;
  unsigned broken = 0;
};

Log ReadLog() {
  Log log;
  for (const std::wstring& path : {standins::OldLogFile(), standins::LogFile()}) {
    std::istringstream lines(sweep::ReadText(path));
    for (std::string line; std::getline(lines, line);) {
      ++log.records;
      if (!IsWholeRecord(line)) ++log.broken;
      if (line.find("wsc started: ") != line.npos) ++log.starts;
    }
  }
  return log;
}

sweep::Picture SetStage() {
  sweep::ClearStandIns();
  for (const wchar_t* const tail : {kUpdate, kInstall}) {
    if (const DWORD result = ResultOf(Start(tail))) throw exceptions::error(result, "the stage cannot be set");
  }
  sweep::RemoveLog();
  return sweep::TakePicture();
}

// True when no program of the suite is left in time; a suspended one stays.
bool ProgramsEnd() {
  for (DWORD waited = 0; waited < kProgramsEnd; waited += 20) {
    if (sweep::LeftPrograms(false).empty()) return true;
    Sleep(20);
  }
  return false;
}

void Kill(unsigned count, unsigned seed) {
  std::printf("%u kills at random moments, seed %u\n", count, seed);
  const sweep::Picture stage = SetStage();
  std::mt19937 random(seed);
  const wchar_t* const tails[] = {kUpdate, kInstall};
  DWORD lengths[2];
  for (int i = 0; i < 2; ++i) {
    const DWORD begin = GetTickCount();
    ResultOf(Start(tails[i]));
    lengths[i] = GetTickCount() - begin;
  }
  unsigned hit = 0, suspended = 0;
  for (unsigned i = 0; i < count; ++i) {
    const int which = static_cast<int>(i % 2);
    {
      const root::ScopedKernelHandle process = Start(tails[which]);
      Sleep(random() % (lengths[which] + lengths[which] / 10 + 1));
      if (WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT) ++hit;
      TerminateProcess(process.get(), kKilled);
      WaitForSingleObject(process.get(), kLimit);
    }
    if (!ProgramsEnd()) {
      ++suspended;
      Fail("still there after a kill:", Narrow(sweep::LeftPrograms(true)));
    }
    if (const DWORD result = ResultOf(Start(tails[which]))) Fail("the run after a kill:", std::to_string(result));
    const sweep::Picture now = sweep::TakePicture();
    if (now != stage) {
      Fail("left after a kill and the next run:", Narrow(sweep::Differences(stage, now)));
      sweep::PutBack(stage, now);
    }
  }
  const Log log = ReadLog();
  std::printf(
      "  %u of them while the host ran; %u left a program behind; a run takes %lu and %lu ms; %u records in the log, %u broken\n",
      hit, suspended, lengths[0], lengths[1], log.records, log.broken);
}

void Repeat(unsigned count) {
  std::printf("%u runs in sequence\n", count);
  const sweep::Picture stage = SetStage();
  constexpr unsigned kWarm = 20;
  constexpr unsigned kReport = 1000;
  unsigned long handles = 0;
  unsigned wrong = 0;
  const DWORD begin = GetTickCount();
  for (unsigned i = 0; i < count; ++i) {
    if (ResultOf(Start(kUpdate)) != 0) ++wrong;
    if (i == std::min(kWarm, count - 1)) handles = AllHandles();
    if ((i + 1) % kReport == 0)
      std::printf("  after %u runs: %lu handles, %lu ms each\n", i + 1, AllHandles(), (GetTickCount() - begin) / (i + 1));
  }
  const DWORD took = GetTickCount() - begin;
  const unsigned long handles_after = AllHandles();
  if (wrong) Fail("runs with another result than 0:", std::to_string(wrong));
  const sweep::Picture now = sweep::TakePicture();
  if (now != stage) Fail("changed by the runs:", Narrow(sweep::Differences(stage, now)));
  const Log log = ReadLog();
  if (log.broken) Fail("broken records:", std::to_string(log.broken));
  if (handles_after > handles + handles / 10) Fail("handles grew");
  std::printf("  %lu ms each; handles of all processes %lu, at the end %lu; the log holds %u records of %u runs, %u broken\n",
              took / count, handles, handles_after, log.records, log.starts, log.broken);
}

void AtOnce(unsigned hosts, unsigned rounds) {
  std::printf("%u hosts at once, %u times\n", hosts, rounds);
  SetStage();
  unsigned wrong = 0, records = 0, broken = 0, products = 0;
  for (unsigned round = 0; round < rounds; ++round) {
    standins::ClearSecurityCenter();
    sweep::RemoveLog();
    std::vector<root::ScopedKernelHandle> running;
    for (unsigned i = 0; i < hosts; ++i) running.push_back(Start(kUpdate));
    for (const root::ScopedKernelHandle& process : running) {
      if (const DWORD result = ResultOf(process)) {
        ++wrong;
        Fail("a host among many:", std::to_string(result));
      }
    }
    const Log log = ReadLog();
    records += log.records;
    broken += log.broken;
    if (log.starts != hosts) Fail("hosts in the log:", std::to_string(log.starts));
    for (const wchar_t* const name : standins::kProductInterfaces) {
      const std::optional<standins::Product> product = standins::ReadProduct(name);
      if (product && product->state == 0) ++products;
    }
  }
  if (broken) Fail("broken records:", std::to_string(broken));
  if (products != rounds * std::size(standins::kProductInterfaces)) Fail("products registered and on:", std::to_string(products));
  std::printf("  %u wrong results; %u products on; %u records, %u broken\n", wrong, products, records, broken);
}

unsigned Number(int count, char** words, const char* name, unsigned usual) {
  for (int i = 1; i < count; ++i) {
    const std::string word = words[i];
    const std::string head = std::string("--") + name + "=";
    if (word.starts_with(head)) return static_cast<unsigned>(std::stoul(word.substr(head.size())));
  }
  return usual;
}

}  // namespace

int main(int count, char** words) {
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  try {
    if (const unsigned kills = Number(count, words, "kills", 1000)) Kill(kills, Number(count, words, "seed", GetTickCount()));
    if (const unsigned rounds = Number(count, words, "rounds", 10)) AtOnce(Number(count, words, "hosts", 32), rounds);
    if (const unsigned runs = Number(count, words, "runs", 10000)) Repeat(runs);
    sweep::ClearStandIns();
  } catch (const exceptions::error& failure) {
    Fail(failure.what(), std::to_string(failure.code()));
  }
  std::printf("%u failures\n", failures);
  return failures ? 1 : 0;
}
