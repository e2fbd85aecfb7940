// One area of the stand-ins as centre.exe shows it: its commands, the calls that it can script, and its part of the commands that
// concern every area. What an area has nothing to say about stays null. Functions report failures by throwing
// crv::exceptions::error, and words that they do not understand by throwing UsageError.
#pragma once

#include <string>
#include <vector>

#include "shared/words.h"
#include "shared/scripted_calls.h"

namespace crv::standins {

using Words = std::vector<std::wstring>;
using Table = std::vector<Words>;  // rows of cells; the first one is the heading

struct UsageError {
  std::wstring text;
};

struct Command {
  const wchar_t* name;
  const wchar_t* arguments;  // as the usage shows them
  const wchar_t* purpose;
  std::size_t fewest_words;
  std::size_t most_words;
  void (*run)(const Words& words);
};

inline constexpr std::size_t kAnyNumber = static_cast<std::size_t>(-1);

struct Area {
  std::vector<Command> commands = {};
  const ScriptedCalls* calls = nullptr;  // what `script` reaches and `journal` shows
  void (*install)() = nullptr;
  void (*uninstall)() = nullptr;
  Table (*table)() = nullptr;   // what `show` shows; without a heading there is nothing to show
  std::size_t key_cells = 1;    // so many cells name what a row of the table is about, the others say how it is
  bool show_after_run = false;  // also when the run changed nothing of it
  void (*clear)() = nullptr;
};

// All of them, in the order in which they are installed, shown and cleared.
const std::vector<const Area*>& Areas();

}  // namespace crv::standins
