// Lines that many steps announce.
#pragma once

#include "tour/scenario.h"

namespace crv::standins::tour {

// The product interfaces.
inline constexpr char kAv[] = "IWscAVStatus";
inline constexpr char kAs[] = "IWscASStatus";
inline constexpr char kFw[] = "IWscFWStatus";

// What the module logs about one successful operation on a product.
namespace logs {

inline Lines Register(const std::string& product) {
  return {"info wsc: Registering struct " + product, "info wsc: Register succeeded: 0x00000000"};
}
inline Lines Unregister(const std::string& product, const std::string& answer = "0x00000000") {
  return {"info wsc: Unregistering struct " + product, "info wsc: Unregister succeeded: " + answer};
}
inline Lines Update(const std::string& product) {  // the firewall's begins without a word
  const Lines end = {"info wsc: UpdateStatus succeeded: 0x00000000"};
  return product == kFw ? end : Joined(Lines{"info wsc: Updating struct " + product}, end);
}

// The first update of a product, or one whose recorded name is another: it is registered anew.
inline Lines UpdateAnew(const std::string& product, const std::string& unregister_answer) {
  Lines lines =
      Joined(Lines{"debug wsc: wrong display name - reregistering"}, Unregister(product, unregister_answer), Register(product));
  Lines update = Update(product);
  const Lines last = {update.back()};
  update.pop_back();
  return Joined(update, lines, last);
}

// The end of a request that failed.
inline Lines Failed(const std::string& text, const std::string& code) {
  return {"error wsc: run: " + text + " (code " + code + ")"};
}

// The crash guard's, when a dump was written.
inline Lines Dumped(const std::string& exception) {
  return {"debug crashguard: Minidump created successfully. Exception code is: " + exception};
}

}  // namespace logs

// What Security Center is asked for one product. An answer other than 0 is given as " = 0x80070002".
namespace asks {

inline Lines Register(const std::string& product, const std::string& answer = "") {
  return {product + ".Create()", product + ".Register(\"{host}\", \"Corvid Antivirus\", 0, 0)" + answer};
}
inline Lines Unregister(const std::string& product, const std::string& answer = "") {
  return {product + ".Create()", product + ".Unregister()" + answer};
}
inline Lines Update(const std::string& product, const std::string& arguments, const std::string& answer = "") {
  return {product + ".Create()", product + ".UpdateStatus(" + arguments + ")" + answer};
}

}  // namespace asks

// A run of the external dumper, and a dump in the log folder. One process in 256 asks for its full memory.
inline std::string DumperRun(const std::string& comment) {
  return "run | \"{suite}\\cvDump32.exe\" --pid * --exception_ptr * --thread_id * --dump_level * --dump_file \"{log}\\unp*.mdmp\""
         " --comment \"" +
         comment + "\"";
}
inline constexpr char kDumpFile[] = "dump | {log}\\unp*.mdmp";

inline Lines DumpedOutside(const std::string& comment) { return {DumperRun(comment), kDumpFile}; }

// A fatal error is dumped where it is thrown.
inline constexpr char kThrown[] = "Cause: VectoredExceptionHandler";
inline constexpr DWORD kThrow = 0xE06D7363;

}  // namespace crv::standins::tour
