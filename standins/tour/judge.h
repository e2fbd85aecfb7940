// Compares what a step left with what it announces.
#pragma once

#include "tour/play.h"
#include "tour/scenario.h"

namespace crv::standins::tour {

// One kind of thing that is not as announced.
struct Difference {
  std::string what;  // "log", "calls", ...
  Lines text;        // as Compared gives it
};

std::vector<Difference> Judge(const Step& step, const Outcome& outcome);  // empty: all as announced

// The text with the names of scenario.h filled in.
std::string WithNames(std::string text, DWORD parent);

// The announced lines of the log with the frame around them, and how many lines the frame has in front and behind.
struct FramedLog {
  Lines lines;
  std::size_t in_front;
  std::size_t behind;
};
FramedLog Framed(const Step& step);

}  // namespace crv::standins::tour
