// The system's writer of minidumps, dbghelp.dll, held from construction to destruction. The suite's own copy in its program
// folder is preferred, since that of older systems is too old. The writer is for one thread at a time.
#pragma once

#include <windows.h>
#include <dbghelp.h>

#include "root/scoped_handle.h"

namespace crv::crashguard {

class DumpLibrary {
 public:
  // Throws crv::exceptions::error with code 127 and "Failed to bind with dbghelp!MiniDumpWriteDump".
  DumpLibrary();

  decltype(&MiniDumpWriteDump) write() const { return write_; }

 private:
  root::ScopedModule module_;
  decltype(&MiniDumpWriteDump) write_ = nullptr;
};

}  // namespace crv::crashguard
