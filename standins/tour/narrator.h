// Tells the reader what the tour does: everything, or a line per chapter and what differs.
#pragma once

#include <cstddef>

#include "tour/judge.h"
#include "tour/play.h"
#include "tour/scenario.h"

namespace crv::standins::tour {

struct Counts {
  std::size_t passed = 0;
  std::size_t failed = 0;
};

class Narrator {
 public:
  Narrator(bool quiet, bool in_colour, std::size_t all_steps) : quiet_(quiet), in_colour_(in_colour), all_steps_(all_steps) {}

  void Begin(const Chapter& chapter, std::size_t number);
  void BeginStep(const Step& step);
  void EndStep(const Step& step, const Outcome& outcome, const std::vector<Difference>& differences);
  void End(const Chapter& chapter, const Counts& counts);
  void EndTour(const Counts& counts);

 private:
  enum class Paint { plain, title, faint, good, bad };
  void Line(const std::string& text, Paint paint = Paint::plain);
  void Section(const char* name, const Lines& lines);
  void Tell(const std::vector<Difference>& differences);

  const bool quiet_;
  const bool in_colour_;
  const std::size_t all_steps_;
  std::size_t step_ = 0;
};

}  // namespace crv::standins::tour
