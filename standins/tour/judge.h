// Compares what a step left with what it announces.
#pragma once

#include "tour/play.h"
#include "tour/scenario.h"

namespace crv::standins::tour {

// One kind of thing that is not as announced.
struct Difference {
  std::string what;  // "log", "calls", ...
  Lines text;        // both lists in one: "- " before what did not come, "+ " before what was not announced, else "  "
};

std::vector<Difference> Judge(const Step& step, const Outcome& outcome);  // empty: all as announced

// The announced lines of the log with the frame around them, and how many lines the frame has in front and behind.
struct FramedLog {
  Lines lines;
  std::size_t in_front;
  std::size_t behind;
};
FramedLog Framed(const Step& step);

bool Matches(const std::string& announced, const std::string& line);  // with "*" and the names of scenario.h

}  // namespace crv::standins::tour
