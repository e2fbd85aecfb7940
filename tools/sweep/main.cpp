// sweep.exe: makes every call fail that wsc.dll makes, one after the other, each in a process of its own, and looks at what came of
// it. Lies beside the installed suite; `run` beside its sources brings it there.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>
#include <set>

#include "base/exceptions.h"
#include "service/control.h"
#include "shared/places.h"
#include "sweep/expectations.h"
#include "sweep/functions.h"
#include "sweep/machine.h"
#include "sweep/scenarios.h"
#include "sweep/symbols.h"

namespace crv::sweep {
namespace {

constexpr DWORD kLimit = 60'000;  // ms for one run
constexpr int kCensuses = 3;      // that handles are counted before they count as leaked

struct Options {
  bool all = false;
  unsigned seed = 0;
  DWORD seconds = 100;
  std::string scenario;  // part of a name; empty: every one
  std::string function;
  LONG call = 0;
  bool verbose = false;
  std::wstring progress;  // a file that keeps what has passed, for the next start
};

struct Counts {
  unsigned passed = 0;
  unsigned failed = 0;
  unsigned not_reached = 0;
};

// The faults that passed, kept in a file so that a sweep that was stopped goes on where it was. It holds for one build of the library.
class Passed {
 public:
  explicit Passed(const std::wstring& path) {
    if (path.empty()) return;
    const std::string build = std::to_string(std::hash<std::string>()(ReadText(standins::Beside(L"wsc.dll"))));
    std::ifstream before(path.c_str());
    std::string line;
    if (std::getline(before, line) && line == build) {
      while (std::getline(before, line)) lines_.insert(line);
    }
    file_.open(path.c_str());
    file_ << build << '\n';
    for (const std::string& kept : lines_) file_ << kept << '\n';
    file_.flush();
    if (!lines_.empty()) std::printf("%u faults passed before\n", unsigned(lines_.size()));
  }

  bool Has(const Scenario& scenario, const Fault& fault) const { return lines_.contains(Line(scenario, fault)); }
  void Add(const Scenario& scenario, const Fault& fault) {
    if (file_.is_open()) file_ << Line(scenario, fault) << std::endl;
  }
  std::size_t size() const { return lines_.size(); }

 private:
  static std::string Line(const Scenario& scenario, const Fault& fault) {
    return std::string(scenario.name) + "; " + fault.function + "; " + std::to_string(fault.call) + "; " +
           std::to_string(fault.code);
  }

  std::set<std::string> lines_;
  std::ofstream file_;
};

class Sweep {
 public:
  explicit Sweep(const Options& options)
      : options_(options), symbols_(standins::Beside(L"wsc.names")), passed_(options.progress), random_(options.seed) {
    counts_.passed = static_cast<unsigned>(passed_.size());
  }

  Counts Run() {
    std::vector<const Scenario*> chosen;
    for (const Scenario& scenario : Scenarios()) {
      if (std::string_view(scenario.name).find(options_.scenario) != std::string_view::npos) chosen.push_back(&scenario);
    }
    const DWORD begin = GetTickCount();
    for (std::size_t i = 0; i < chosen.size(); ++i) {
      const DWORD used = GetTickCount() - begin;
      const DWORD whole = options_.seconds * 1000;
      share_ = used < whole ? (whole - used) / static_cast<DWORD>(chosen.size() - i) : 0;
      RunScenario(*chosen[i]);
    }
    if (options_.scenario.empty() && options_.function.empty()) LookAtLists();
    return counts_;
  }

 private:
  void RunScenario(const Scenario& scenario) {
    const DWORD begin = GetTickCount();
    SetStage(scenario);
    Before(scenario);
    Outcome normal = RunHost(scenario.request, {}, kLimit);
    stage_after_ = TakePicture();
    if (!IsAsDocumented(scenario, normal)) {
      Restore();
      return;
    }
    NoteCalled(normal);
    good_.clear();
    good_.insert(stage_);
    good_.insert(stage_after_);
    Restore();
    LookForLeak(scenario);
    for (int i = 1; options_.all && i < kCensuses; ++i) {
      Before(scenario);
      const DWORD handles = RunHost(scenario.request, {}, kLimit).block.handles;
      normal.block.handles = std::min(normal.block.handles, handles);
      Restore();
    }

    std::vector<Fault> faults = FaultsOf(scenario, normal);
    if (!options_.all) std::shuffle(faults.begin(), faults.end(), random_);
    std::size_t done = 0;
    for (const Fault& fault : faults) {
      if (!options_.all && done > 0 && GetTickCount() - begin > share_) break;
      if (!passed_.Has(scenario, fault)) Try(scenario, normal, fault);
      ++done;
    }
    std::printf("%s: %u of %u faults in %lu s\n", scenario.name, unsigned(done), unsigned(faults.size()),
                (GetTickCount() - begin) / 1000);
    std::fflush(stdout);
  }

  void SetStage(const Scenario& scenario) {
    SetWindows(scenario.windows);
    ClearStandIns();
    for (const std::wstring command : scenario.stage) {
      constexpr std::wstring_view kRun = L"run ";
      if (!command.starts_with(kRun)) {
        Tell(command);
        continue;
      }
      const Outcome outcome = RunHost({command.substr(kRun.size())}, {}, kLimit);
      if (outcome.exit_code != 0) throw exceptions::error(outcome.exit_code, "the stage of '%s' cannot be set", scenario.name);
    }
    RemoveLog();
    RemoveDumps();
    stage_ = TakePicture();
  }

  static void Before(const Scenario& scenario) {
    for (const wchar_t* const command : scenario.each) Tell(command);
  }

  void Restore() {
    const Picture now = TakePicture();
    if (now != stage_) PutBack(stage_, now);
  }

  bool IsAsDocumented(const Scenario& scenario, const Outcome& normal) {
    std::string complaint;
    if (normal.exit_code != scenario.result) complaint = "the result without a fault is " + std::to_string(normal.exit_code);
    if (normal.dumps != scenario.dumps) complaint += " dumps without a fault: " + std::to_string(normal.dumps);
    if (*normal.block.unlisted) complaint += std::string(" called, but in no list: ") + normal.block.unlisted;
    for (LONG i = 0; i < normal.block.functions; ++i) {
      const Counted& counted = normal.block.counted[i];
      if (counted.calls && IsListedAsNeverCalled(counted.name)) complaint += std::string(" called after all: ") + counted.name;
    }
    if (complaint.empty()) {
      ++counts_.passed;
      return true;
    }
    ++counts_.failed;
    std::printf("FAILED %s: %s\n", scenario.name, complaint.c_str());
    for (const std::string& record : normal.records) std::printf("    %s\n", record.c_str());
    return false;
  }

  // What a run without a fault leaks, the second one leaks once more.
  void LookForLeak(const Scenario& scenario) {
    Request request = scenario.request;
    request.twice = true;
    request.after = After::end;
    long grown = 0;
    for (int i = 0; i < kCensuses; ++i) {
      Before(scenario);
      const ControlBlock block = RunHost(request, {}, kLimit).block;
      Restore();
      grown = static_cast<long>(block.handles) - static_cast<long>(block.handles_first);
      if (grown <= 0) return;
    }
    ++counts_.failed;
    std::printf("FAILED %s: a second run in the same process leaves %ld more handles\n", scenario.name, grown);
  }

  void NoteCalled(const Outcome& normal) {
    for (LONG i = 0; i < normal.block.functions; ++i) {
      known_.insert(normal.block.counted[i].name);
      if (normal.block.counted[i].calls) called_.insert(normal.block.counted[i].name);
    }
  }

  // A dash before a name chooses all others.
  bool IsChosen(const char* function) const {
    const std::string& chosen = options_.function;
    return chosen.empty() || (chosen[0] == '-' ? chosen.compare(1, chosen.npos, function) != 0 : chosen == function);
  }

  std::vector<Fault> FaultsOf(const Scenario& scenario, const Outcome& normal) const {
    std::vector<Fault> faults;
    for (LONG i = 0; i < normal.block.functions; ++i) {
      const Counted& counted = normal.block.counted[i];
      const Function* const function = FindFailing(counted.name);
      if (!function || !IsChosen(counted.name)) continue;
      const LONG first = counted.calls_before[static_cast<DWORD>(scenario.first)] + 1;
      const LONG last =
          scenario.last == Phase::after ? counted.calls : counted.calls_before[static_cast<DWORD>(scenario.last) + 1];
      for (LONG call = first; call <= last; ++call) {
        if (options_.call && call != options_.call) continue;
        for (const DWORD code : function->codes) faults.push_back({counted.name, call, code});
      }
    }
    return faults;
  }

  void Try(const Scenario& scenario, const Outcome& normal, const Fault& fault) {
    Before(scenario);
    Outcome outcome = RunHost(scenario.request, fault, kLimit);
    NoteCalled(outcome);
    if (outcome.block.hits == 0) {
      ++counts_.not_reached;
      Restore();
      return;
    }
    // The system's own threads come and go, and hold a handle now and then; what leaks does so each time.
    const auto more = [&](const ControlBlock& block) {
      return block.handles > normal.block.handles || block.threads > normal.block.threads;
    };
    for (int i = 1; i < kCensuses && outcome.block.returned && more(outcome.block); ++i) {
      Restore();
      Before(scenario);
      const Outcome again = RunHost(scenario.request, fault, kLimit);
      if (!again.block.returned) break;
      outcome.block.handles = std::min(outcome.block.handles, again.block.handles);
      outcome.block.threads = std::min(outcome.block.threads, again.block.threads);
    }
    Trial trial{scenario, fault, normal, outcome, {}};
    for (const DWORD frame : outcome.block.frames) {
      if (frame == 0) break;
      for (const std::string& name : symbols_.NamesAt(frame)) {
        if (trial.callers.empty() || trial.callers.back() != name) trial.callers.push_back(name);
      }
    }
    std::vector<std::string> complaints = Complaints(trial);
    try {
      LookAtNextRun(scenario, Documented(trial).extra.repairs, complaints);
    } catch (const exceptions::error& failure) {
      complaints.push_back(std::string("the machine could not be put back: ") + failure.what());
      for (const wchar_t* const service : standins::kSystemServices) standins::RemoveService(service);
      SetStage(scenario);
    }
    if (complaints.empty()) {
      ++counts_.passed;
      passed_.Add(scenario, fault);
      return;
    }
    ++counts_.failed;
    Explain(trial, complaints);
  }

  // The next run depends on what is on the machine alone, so each state of it has to be tried once only.
  void LookAtNextRun(const Scenario& scenario, bool repairs, std::vector<std::string>& complaints) {
    const Picture now = TakePicture();
    if (!good_.contains(now)) {
      Before(scenario);
      const Outcome next = RunHost(scenario.request, {}, kLimit);
      const Picture after = TakePicture();
      bool good = true;
      if (next.exit_code != scenario.result) {
        complaints.push_back("the next run fails with " + std::to_string(next.exit_code));
        good = false;
      }
      for (const std::wstring& difference : Differences(stage_after_, after)) {
        if (repairs) break;
        complaints.push_back("after the next run: " + std::string(difference.begin(), difference.end()));
        good = false;
      }
      if (good) good_.insert(now);
      if (after != stage_) PutBack(stage_, after);
    } else if (now != stage_) {
      PutBack(stage_, now);
    }
  }

  void Explain(const Trial& trial, const std::vector<std::string>& complaints) const {
    const Fault& fault = trial.fault;
    std::printf("FAILED %s: %s, call %ld, code 0x%lx%s%ls\n", trial.scenario.name, fault.function.c_str(), fault.call, fault.code,
                *trial.outcome.block.text ? ", of " : "", trial.outcome.block.text);
    for (const std::string& complaint : complaints) std::printf("    %s\n", complaint.c_str());
    std::printf("    called from");
    const std::size_t shown = options_.verbose ? trial.callers.size() : std::min<std::size_t>(trial.callers.size(), 8);
    for (std::size_t i = 0; i < shown; ++i) std::printf(" < %.70s", trial.callers[i].c_str());
    std::printf("\n");
    const std::vector<std::string>& records = trial.outcome.records;
    for (std::size_t i = options_.verbose || records.size() < 2 ? 0 : records.size() - 2; i < records.size(); ++i) {
      std::printf("    log: %s\n", records[i].c_str());
    }
    std::fflush(stdout);
  }

  // The lists name what the library calls and nothing else, and what can fail is called by a scenario at least.
  void LookAtLists() {
    for (const std::string_view name : NamesListedTwice()) Complain("listed twice", name);
    for (const std::string_view name : ListedNames()) {
      if (!known_.contains(std::string(name))) Complain("listed, but the library does not call it", name);
    }
    if (!options_.all || passed_.size() > 0) return;  // some are called only when another call has failed
    for (const std::string& name : known_) {
      if (FindFailing(name) && !called_.contains(name)) Complain("no scenario calls it", name);
    }
  }

  void Complain(const char* what, std::string_view name) {
    ++counts_.failed;
    std::printf("FAILED %.*s: %s\n", static_cast<int>(name.size()), name.data(), what);
  }

  const Options options_;
  const Symbols symbols_;
  Passed passed_;
  std::mt19937 random_;
  Picture stage_;
  Picture stage_after_;
  std::set<Picture> good_;  // from which the next run succeeds
  std::set<std::string> called_;
  std::set<std::string> known_;  // imported or looked up
  DWORD share_ = 0;              // ms for a scenario
  Counts counts_;
};

int Usage() {
  std::fprintf(stderr,
               "usage: sweep [--all] [--seed=N] [--seconds=N] [--scenario=TEXT] [--function=NAME] [--call=N] [--verbose]\n");
  return 2;
}

int Main(int count, char** words) {
  Options options;
  options.seed = GetTickCount();
  for (int i = 1; i < count; ++i) {
    const std::string word = words[i];
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals), value = equals == std::string::npos ? "" : word.substr(equals + 1);
    if (name == "--all") {
      options.all = true;
    } else if (name == "--seed") {
      options.seed = std::stoul(value);
    } else if (name == "--seconds") {
      options.seconds = std::stoul(value);
    } else if (name == "--scenario") {
      options.scenario = value;
    } else if (name == "--function") {
      options.function = value;
    } else if (name == "--call") {
      options.call = std::stol(value);
    } else if (name == "--progress") {
      options.progress.assign(value.begin(), value.end());
    } else if (name == "--verbose") {
      options.verbose = true;
    } else {
      return Usage();
    }
  }
  if (!options.all) std::printf("seed %u\n", options.seed);
  const Counts counts = Sweep(options).Run();
  ClearStandIns();
  std::printf("%u calls were not reached again\n", counts.not_reached);
  std::printf("%u passed, %u failed\n", counts.passed, counts.failed);
  return counts.failed ? 1 : 0;
}

}  // namespace
}  // namespace crv::sweep

int main(int count, char** words) {
  try {
    return crv::sweep::Main(count, words);
  } catch (const crv::exceptions::error& failure) {
    std::fprintf(stderr, "sweep: %s (0x%lx)\n", failure.what(), static_cast<unsigned long>(failure.code()));
    return 2;
  }
}
