// What is added to the suite's log from one moment on. The log may be full in between, renamed, and begun anew.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>

#include "root/scoped_handle.h"

namespace crv::standins {

class LogTail {
 public:
  LogTail();  // from now on

  std::string Read() const;  // everything that was added, as it stands there; empty without a log

 private:
  // A file at one moment: which one it is, whatever it is called later, and how far it was written.
  struct Mark {
    std::uint64_t identity;
    std::uint64_t size;  // bytes
  };
  static std::optional<Mark> MarkOf(const root::ScopedFile& file);

  const std::optional<Mark> before_;
};

// The crash guard's record of a system whose function that handles Ctrl-C has no name, on such a system: whether `text` is it. No
// scenario announces it.
bool IsOfSystemsAge(const std::string& text);

}  // namespace crv::standins
