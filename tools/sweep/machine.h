// What a run of the suite can leave behind on the machine: registry keys, files, the state of services, programs that still run.
// Taken as one picture, compared, and put back. Nothing else may work with the suite meanwhile. Failures throw
// crv::exceptions::error.
#pragma once

#include <windows.h>

#include <map>
#include <string>
#include <vector>

namespace crv::sweep {

// Each thing by its name: "registry <key>|<value>", "file <path>", "service <name>"; what it holds as bytes that say enough to put
// it back. Journals of the stand-ins, the log and the dumps are no part of it.
using Picture = std::map<std::wstring, std::string>;

Picture TakePicture();

// Puts back what differs from the picture.
void PutBack(const Picture& wanted, const Picture& found);

// "removed ...", "added ...", "changed ..." for what differs, a line each.
std::vector<std::wstring> Differences(const Picture& wanted, const Picture& found);

// Which Windows sweep_host.exe sees from its next start on: "winxp", "win7", "win10".
void SetWindows(const std::wstring& version);

// One command of the stand-ins, as centre.exe takes it: "service wscsvc stop", "script IWscAVStatus.Create crash".
void Tell(const std::wstring& command);

// Every stand-in back to where it was after its installation.
void ClearStandIns();

// Programs of the suite that still run, by name; `kill` ends them.
std::vector<std::wstring> LeftPrograms(bool kill);

// The log, and what the log library wrote to the standard error output instead.
std::wstring LogPath();
void RemoveLog();
std::string ReadText(const std::wstring& path);

// Where hosts are started; nothing may be left there.
std::wstring TempFolder();

struct Dump {
  std::wstring path;
  std::uint64_t size;  // bytes
};
std::vector<Dump> Dumps();
void RemoveDumps();

}  // namespace crv::sweep
