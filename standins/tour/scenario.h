// What the tour shows: chapters of steps as data. A step is one process of the suite and everything that it must leave. What a
// step does not announce must not come, so every list is complete and in its order.
//
// In the lists "*" stands for any text, and a few names for what differs between machines and runs: {host}, the full path of
// wsc_proxy.exe; {suite}, its folder; {log}, the log's; {parent}, the process id of what started the process; {version},
// the file version of wsc.dll.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "shared/lines.h"

namespace crv::standins::tour {

// What surrounds the announced lines of the log.
enum class Frame {
  host,     // the crash guard is installed, "wsc started" with the command line; at the end the guard is uninstalled
  crashed,  // the same of a host that does not come to its end
  none,
};

// A minidump that is called unp*.mdmp.
struct Dump {
  DWORD exception;
  std::string comment = {};
  std::string stopped = {};  // "function at file:line", a regular expression that the debuggers must find; empty: nobody looks
  std::string build = "*";   // of Windows
};

struct Step {
  std::string says = {};      // to the reader
  Lines before = {};          // commands, as they are given to centre.exe, with {suite}
  std::string request = {};   // what stands behind wsc_proxy.exe
  std::string through = {};   // what starts the process instead of the tour: starter64.exe, with its options
  std::string crash = {};     // or, when this is not empty, the case of crasher.exe
  Lines meanwhile = {};       // commands while the process waits; it must not end before the last one
  DWORD result = 0;           // its whole exit code
  Frame frame = Frame::host;  // of the log
  Lines log = {};             // "level tag: text"
  Lines calls = {};           // what the stand-ins were asked, area by area; an answer other than 0 stands behind " = "
  Lines leaves =
      {};  // the rows of the stand-ins' tables that are new or changed, as "cell | cell", "-" for no value; "name | gone"
  std::vector<Dump> dumps = {};
};

// What a chapter is about: any Windows, or one kind alone.
enum class Machine { any, only_32_bit, only_64_bit };

struct Chapter {
  std::string name;  // for the command line
  std::string title;
  std::string tells;
  std::string windows;  // which Windows the host believes to run on
  std::vector<Step> steps;
  Machine machine = Machine::any;
};

// A chapter begins on a clean machine: `centre clear`, then `centre windows VERSION`.
const std::vector<Chapter>& Chapters();

bool BelongsHere(const Chapter& chapter);  // whether the machine on which this runs can play it

// The chapters, by the file that they are in.
std::vector<Chapter> ProductChapters();
std::vector<Chapter> RequestChapters();
std::vector<Chapter> ActionChapters();
std::vector<Chapter> UpdateChapters();
std::vector<Chapter> SystemChapters();
std::vector<Chapter> LegacyChapters();
std::vector<Chapter> DriverChapters();
std::vector<Chapter> CrashChapters();
std::vector<Chapter> Wow64Chapters();

}  // namespace crv::standins::tour
