// A program of the suite that lies beside this one, from its start to its end.
#pragma once

#include <windows.h>

#include <optional>
#include <string>

#include "root/scoped_handle.h"

namespace crv::standins {

// Whether it shares the standard output and error output of this program, or writes nowhere.
enum class Output { shared, nowhere };

class Program {
 public:
  // Starts `file` (a name) with the text behind its quoted path, unchanged. A crash will end it without a message that somebody
  // has to answer. Throws crv::exceptions::error when it cannot be started.
  Program(const wchar_t* file, const std::wstring& arguments, Output output);

  // The same with its standard output and error output in a file, which is made anew.
  Program(const wchar_t* file, const std::wstring& arguments, const std::wstring& output_file);

  ~Program();  // kills it when it still runs
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  static std::wstring CommandLine(const wchar_t* file, const std::wstring& arguments);

  DWORD id() const { return id_; }

  bool runs() const { return WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT; }

  // Its whole 32-bit result; empty when it did not end within `limit` ms and was killed.
  std::optional<DWORD> Result(DWORD limit);

 private:
  void Start(const wchar_t* file, const std::wstring& arguments, HANDLE input, HANDLE output);
  void Kill();

  root::ScopedKernelHandle process_;
  DWORD id_ = 0;
};

}  // namespace crv::standins
