#include "tour/narrator.h"

#include <string>

#include "base/format_message.h"
#include "shared/console.h"
#include "shared/machine.h"

namespace crv::standins::tour {
namespace {

constexpr std::size_t kNameWidth = 10;  // of what stands in front of a list

std::string Command(const Step& step) {
  return (step.through.empty() ? "" : step.through + " ") +
         (step.crash.empty() ? "wsc_proxy.exe " + step.request : "crasher.exe " + step.crash);
}

// The lines of the log that the frame does not hold.
Lines WithoutFrame(const Step& step, const Lines& log) {
  const FramedLog frame = Framed(step);
  if (log.size() < frame.in_front + frame.behind) return log;
  return {log.begin() + frame.in_front, log.end() - frame.behind};
}

}  // namespace

void Narrator::Line(const std::string& text, Paint paint) {
  static constexpr const char* kSequences[] = {"", "\x1b[1m", "\x1b[2m", "\x1b[32m", "\x1b[1;31m"};
  const std::string sequence = in_colour_ ? kSequences[static_cast<int>(paint)] : "";
  PrintUtf8(sequence + text + (sequence.empty() ? "" : "\x1b[0m") + "\r\n");
}

void Narrator::Section(const char* name, const Lines& lines) {
  std::string head = name;
  for (const std::string& line : lines) {
    head.resize(kNameWidth, ' ');
    Line("    " + head + line, Paint::faint);
    head.clear();
  }
}

void Narrator::Tell(const std::vector<Difference>& differences) {
  for (const Difference& difference : differences) {
    Line("    *** DIFFERS: " + difference.what + " (- announced, + came)", Paint::bad);
    for (const std::string& line : difference.text) Line("    " + line, line[0] == ' ' ? Paint::plain : Paint::bad);
  }
}

void Narrator::Begin(const Chapter& chapter, std::size_t number) {
  if (quiet_) return;
  Line("");
  Line("");
  Line("=== " + std::to_string(number) + ". " + chapter.title, Paint::title);
  Line("    " + chapter.tells);
  Line("    (tour run " + chapter.name + "; " + chapter.windows + (Is64BitWindows() ? ", 64-bit)" : ", 32-bit)"), Paint::faint);
}

void Narrator::BeginStep(const Step& step) {
  ++step_;
  if (quiet_) return;
  Line("");
  Line("  step " + std::to_string(step_) + " of " + std::to_string(all_steps_) + (step.says.empty() ? "" : ": " + step.says));
  for (const std::string& line : step.before) Line("  > centre " + line);
  Line("  " + Command(step), Paint::title);
  for (const std::string& line : step.meanwhile) Line("  > meanwhile: centre " + line);
}

void Narrator::EndStep(const Step& step, const Outcome& outcome, const std::vector<Difference>& differences) {
  if (quiet_) {
    if (differences.empty()) return;
    Line("step " + std::to_string(step_) + ": " + Command(step), Paint::bad);
    return Tell(differences);
  }
  Section("log", WithoutFrame(step, outcome.log));
  Section("calls", outcome.calls);
  Section("leaves", outcome.leaves);
  Section("dumps", outcome.dumps);
  Section("result", {outcome.result});
  if (differences.empty()) {
    Line("    as announced", Paint::good);
  } else {
    Tell(differences);
  }
}

void Narrator::End(const Chapter& chapter, const Counts& counts) {
  if (!quiet_) return;
  std::string name = chapter.name;
  name.resize(20, ' ');
  Line(name + std::to_string(counts.passed) + " passed" + (counts.failed ? ", " + std::to_string(counts.failed) + " failed" : ""),
       counts.failed ? Paint::bad : Paint::plain);
}

void Narrator::EndTour(const Counts& counts) {
  const std::size_t steps = counts.passed + counts.failed;
  if (quiet_) return PrintLine(FromUtf8(std::to_string(counts.passed) + " passed, " + std::to_string(counts.failed) + " failed"));
  PrintLine();
  PrintLine();
  std::string text = "The tour of " + std::string(Is64BitWindows() ? "64-bit" : "32-bit") + " Windows took " +
                     std::to_string(steps) + " steps; ";
  text += counts.failed ? std::to_string(counts.failed) + " of them differ from what was announced (look for ***)."
                        : "all came out as announced.";
  PrintLine(FromUtf8(text));
}

}  // namespace crv::standins::tour
