// A folder for dumps with a log that is captured, and a crash handler there whose system dump writer only takes notes.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>
#include <rpc.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "crashguard/crash_handler.h"
#include "support/captured_log.h"
#include "support/import_fake.h"

namespace crv::crashguard {

class DumpStage : public testing::Test {
 protected:
  DumpStage() { std::filesystem::create_directories(folder_); }
  ~DumpStage() override { std::filesystem::remove_all(folder_); }

  std::vector<std::wstring> Files() const {
    std::vector<std::wstring> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder_)) files.push_back(entry.path().filename().wstring());
    return files;
  }

  const std::wstring folder_ =
      std::filesystem::temp_directory_path().wstring() + L"dumps " + std::to_wstring(GetCurrentProcessId());
  test::CapturedLog log_;
};

// One attempt to write a dump in-process.
struct Attempt {
  unsigned type;
  std::wstring comment;
  DWORD thread;  // 0: without exception information
};
inline std::vector<Attempt> attempts;
inline std::size_t failing_attempts = 0;
inline constexpr std::size_t kFault = 1000;  // failing_attempts: the attempt crashes

inline BOOL WINAPI WriteNothing(HANDLE process, DWORD process_id, HANDLE file, MINIDUMP_TYPE type,
                                PMINIDUMP_EXCEPTION_INFORMATION exception, PMINIDUMP_USER_STREAM_INFORMATION streams,
                                PMINIDUMP_CALLBACK_INFORMATION callback) {
  EXPECT_EQ(GetCurrentProcess(), process);
  EXPECT_EQ(GetCurrentProcessId(), process_id);
  EXPECT_EQ(1u, streams->UserStreamCount);
  const MINIDUMP_USER_STREAM& stream = streams->UserStreamArray[0];
  EXPECT_EQ(11u, stream.Type);
  EXPECT_EQ(nullptr, callback);
  const std::wstring comment(static_cast<const wchar_t*>(stream.Buffer), stream.BufferSize / sizeof(wchar_t));
  EXPECT_FALSE(exception && exception->ClientPointers);
  attempts.push_back({static_cast<unsigned>(type), comment, exception ? exception->ThreadId : 0});
  DWORD written = 0;
  WriteFile(file, "part", 4, &written, nullptr);
  if (failing_attempts == kFault) RaiseException(static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION), 0, 0, nullptr);
  SetLastError(ERROR_DISK_FULL);
  return attempts.size() > failing_attempts;
}

class Writers : public DumpStage {
 protected:
  Writers() {
    attempts.clear();
    failing_attempts = 0;
    const test::ImportFake<decltype(UuidCreate)> uuid("rpcrt4.dll", "UuidCreate", [](auto*, UUID* made) {
      *made = UUID{static_cast<DWORD>(-512), 1, 2, {}};
      return RPC_STATUS{RPC_S_OK};
    });
    handler_ = MakeHandler();
  }

  std::unique_ptr<CrashHandler> MakeHandler() const {
    const test::ImportFake<decltype(GetProcAddress)> fake(
        "kernel32.dll", "GetProcAddress", [](auto* real, HMODULE module, LPCSTR name) {
          if (IS_INTRESOURCE(name) || std::string(name) != "MiniDumpWriteDump") return real(module, name);
          return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&WriteNothing));
        });
    auto handler = std::make_unique<CrashHandler>();
    handler->SetDumpFolder(folder_);
    return handler;
  }

  EXCEPTION_POINTERS* Crash() {
    record_.ExceptionCode = static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION);
    context_.Eip = ++crashes_;
    return &pointers_;
  }

  inline static DWORD crashes_ = 0;
  EXCEPTION_RECORD record_ = {};
  CONTEXT context_ = {};
  EXCEPTION_POINTERS pointers_ = {&record_, &context_};
  std::unique_ptr<CrashHandler> handler_;
};

}  // namespace crv::crashguard
