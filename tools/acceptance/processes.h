// The processes of the kit: one with its output in a file, and what such processes leave running. A job would hold them together, but
// the module makes jobs of its own, and before Windows 8 a process can be in one alone.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "root/scoped_handle.h"

namespace crv::acceptance {

class Process {
 public:
  // Starts `image` in its own folder; what it prints goes to `output`, which is made anew. Ctrl-C does not reach it. Throws
  // crv::exceptions::error when it cannot be started.
  Process(const std::wstring& image, const std::wstring& arguments, const std::wstring& output);
  ~Process() { End(); }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  HANDLE handle() const { return process_.get(); }
  std::optional<DWORD> Result() const;  // its exit code; empty while it runs

  void End();  // it and everything that it started

 private:
  root::ScopedKernelHandle process_;
  DWORD id_ = 0;
};

// Ends every process, but this one, whose image lies below one of the folders, unless its file has the name `spared`, and everything that
// it started.
void EndProcessesBelow(const std::vector<std::wstring>& folders, const std::wstring& spared);

}  // namespace crv::acceptance
