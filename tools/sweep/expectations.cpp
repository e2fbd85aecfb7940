#include "sweep/expectations.h"

#include <algorithm>
#include <cstdio>

#include "sweep/scenarios.h"

namespace crv::sweep {
namespace {

constexpr DWORD kNotLoaded = 0xE0570001;
constexpr DWORD kGeneralFailure = 31;
constexpr DWORD kSlower = 10'000;  // ms beyond twice the time without a fault; other work may share the machine

template <typename... Arguments>
std::string Text(const char* format, Arguments... arguments) {
  char text[512] = {};
  _snprintf(text, sizeof(text) - 1, format, arguments...);
  return text;
}

std::string CodeText(DWORD code) { return Text("(code 0x%08lx)", code); }

// Behind the request; records from before the log was opened are lost then.
bool Crashes(const Trial& trial) { return trial.scenario.request.after == After::crash; }

void LookAtResult(const Trial& trial, DWORD wanted, std::vector<std::string>& complaints) {
  const Outcome& outcome = trial.outcome;
  if (outcome.exit_code != wanted) {
    complaints.push_back(Text("the result is 0x%lx instead of 0x%lx", outcome.exit_code, wanted));
  }
}

// One record of `run` with the code, or, where none is wanted, as many as without the fault.
void LookAtRecords(const Trial& trial, bool wants_record, std::vector<std::string>& complaints) {
  const std::vector<std::string>& records = trial.outcome.run_records;
  if (!wants_record) {
    if (records.size() != trial.normal.run_records.size())
      complaints.push_back(Text("%u records of run", unsigned(records.size())));
    return;
  }
  if (records.size() != 1) {
    complaints.push_back(Text("%u records of run instead of 1", unsigned(records.size())));
    return;
  }
  // Exceptions that are not the library's own have no code.
  if (trial.outcome.exit_code != kGeneralFailure && records[0].find(CodeText(trial.outcome.exit_code)) == std::string::npos) {
    complaints.push_back("the record of run has another code: " + records[0]);
  }
}

void LookAtStep(const Trial& trial, std::vector<std::string>& complaints) {
  const std::vector<const char*> steps = DocumentedSteps(trial);
  if (steps.empty()) {
    complaints.push_back("no text is listed for the step");
  } else if (!trial.outcome.run_records.empty() && std::none_of(steps.begin(), steps.end(), [&](const char* step) {
               return trial.outcome.run_records[0].find(step) != std::string::npos;
             })) {
    complaints.push_back("the record of run names another step: " + trial.outcome.run_records[0]);
  }
}

void LookAtRest(const Trial& trial, std::size_t fewest, std::size_t most, std::vector<std::string>& complaints) {
  const Outcome& outcome = trial.outcome;
  const ControlBlock& block = outcome.block;
  const ControlBlock& normal = trial.normal.block;
  if (block.returned && block.handles > normal.handles) {
    complaints.push_back(Text("%lu handles instead of %lu", block.handles, normal.handles));
  }
  if (block.returned && block.threads > normal.threads) {
    complaints.push_back(Text("%lu threads instead of %lu", block.threads, normal.threads));
  }
  if (block.milliseconds > 2 * normal.milliseconds + kSlower) complaints.push_back(Text("it took %lu ms", block.milliseconds));
  if (outcome.dumps < fewest || outcome.dumps > most) {
    complaints.push_back(Text("%u dumps instead of %u", unsigned(outcome.dumps), unsigned(fewest)));
  }
  if (outcome.empty_dumps) complaints.push_back(Text("%u dumps are empty", unsigned(outcome.empty_dumps)));
  for (const std::wstring& program : outcome.left_programs) complaints.push_back(Text("%ls still ran", program.c_str()));
}

}  // namespace

std::vector<std::string> Complaints(const Trial& trial) {
  const Row& row = Documented(trial);
  if (row.kind == Kind::held) return {};
  if (trial.outcome.timed_out) return {"it did not end"};
  std::vector<std::string> complaints;
  if (row.kind == Kind::any) return {};
  DWORD wanted = 0;
  std::size_t fewest = trial.scenario.dumps - row.extra.fewer_dumps, most = trial.scenario.dumps + row.extra.more_dumps;
  switch (row.kind) {
    case Kind::code:
    case Kind::fixed:
      wanted = row.kind == Kind::code ? trial.fault.code : row.value;
      if (Crashes(trial)) {
        if (trial.outcome.block.result != wanted) complaints.push_back(Text("run answers 0x%lx", trial.outcome.block.result));
        LookAtResult(trial, trial.scenario.result, complaints);
        break;
      }
      fewest = most = 0;  // what the scenario dumps otherwise was not reached
      LookAtResult(trial, wanted, complaints);
      LookAtRecords(trial, true, complaints);
      LookAtStep(trial, complaints);
      break;
    case Kind::nothing:
      LookAtResult(trial, trial.scenario.result, complaints);
      LookAtRecords(trial, false, complaints);
      break;
    case Kind::unrecorded: LookAtResult(trial, trial.scenario.result, complaints); break;
    case Kind::either:
      if (!trial.outcome.block.loaded) {
        LookAtResult(trial, kNotLoaded, complaints);
      } else if (!trial.outcome.block.returned) {
        complaints.push_back(Text("the process ended with 0x%lx", trial.outcome.exit_code));
      } else {
        LookAtResult(trial, Crashes(trial) ? trial.scenario.result : trial.outcome.block.result, complaints);
        if (Crashes(trial)) break;
        LookAtRecords(trial, trial.outcome.block.result != 0, complaints);
        fewest = 0;
      }
      break;
    case Kind::load:
      if (!trial.outcome.block.loaded && trial.outcome.exit_code == kNotLoaded) break;
      LookAtResult(trial, trial.scenario.result, complaints);
      LookAtRecords(trial, false, complaints);
      break;
    case Kind::not_loaded: LookAtResult(trial, kNotLoaded, complaints); break;
    case Kind::any:
    case Kind::held: break;
    case Kind::ended:
      LookAtResult(trial, row.value, complaints);
      ++fewest;
      ++most;
      break;
  }
  const std::vector<std::string>& records = trial.outcome.records;
  if (std::none_of(records.begin(), records.end(),
                   [&](const std::string& record) { return record.find(row.extra.record) != record.npos; }) &&
      *row.extra.record) {
    complaints.push_back(Text("no record says \"%s\"", row.extra.record));
  }
  LookAtRest(trial, fewest, most, complaints);
  if (!complaints.empty()) complaints.push_back(Text("documented: %s", row.reason));
  return complaints;
}

}  // namespace crv::sweep
