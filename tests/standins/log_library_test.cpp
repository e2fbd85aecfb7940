#include <gmock/gmock.h>

#include <map>
#include <set>
#include <sstream>

#include "control/log_control.h"
#include "standins/log_stage.h"
#include "support/redirected_hive.h"

namespace crv::test {
namespace {

using namespace standins;
using log::LogLevel;
using log::detail::ILogger;
using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(LogLibrary, RollsTheFileOverWhenARecordWouldExceedItsLimit) {
  const std::wstring path = folder_ / L"roll.log";
  const auto logger = Logger();
  const std::size_t record = kHead + 1 + 2;  // one character and the line's end
  logger->OpenLogFile(path.c_str(), 3 * record, true);
  for (const wchar_t* text : {L"1", L"2", L"3"}) logger->LogWideVariadic(LogLevel::info, "wsc", text);
  EXPECT_THAT(Texts(ReadFileText(path)), ElementsAre("1", "2", "3"));  // exactly full
  EXPECT_EQ("", ReadFileText(path + L".old"));
  for (const wchar_t* text : {L"4", L"5", L"6", L"7"}) logger->LogWideVariadic(LogLevel::info, "wsc", text);
  EXPECT_THAT(Texts(ReadFileText(path)), ElementsAre("7"));
  EXPECT_THAT(Texts(ReadFileText(path + L".old")), ElementsAre("4", "5", "6"));  // in the place of the first one

  const std::string large(4 * record, 'x');  // larger than the limit by itself
  Narrow(*logger, "%s", large.c_str());
  EXPECT_THAT(Texts(ReadFileText(path)), ElementsAre(large));
  logger->OpenLogFile(path.c_str(), kNoLimit, true);
  EXPECT_THAT(Texts(ReadFileText(path)), ElementsAre(large));
  logger->OpenLogFile(path.c_str(), kNoLimit, false);
  EXPECT_EQ("", ReadFileText(path));
}

// The file is rolled over many times under the writers. Each time it must have been full, no record may be torn or missing, and
// nobody may go on writing to the old one.
TEST_F(LogLibrary, TwoProcessesShareOneFile) {
  constexpr int kRecords = 1000;
  constexpr std::size_t kLimit = 5000;  // bytes
  const std::wstring path = folder_ / L"shared.log";
  const std::wstring writer = L"\"" + OwnFolder() + L"log_writer.exe\" " + std::to_wstring(kRecords) + L" \"" + path + L"\" " +
                              std::to_wstring(kLimit);
  Child first(folder_.path(), writer);
  Child second(folder_.path(), writer);
  std::set<std::size_t> sizes;  // of the old file, looked at without opening it: an open file cannot be replaced
  while (first.IsRunning() || second.IsRunning()) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (GetFileAttributesExW((path + L".old").c_str(), GetFileExInfoStandard, &data)) sizes.insert(data.nFileSizeLow);
    Sleep(1);
  }
  EXPECT_THAT(sizes, testing::Not(testing::IsEmpty()));
  EXPECT_THAT(sizes, testing::Each(testing::AllOf(testing::Le(kLimit), testing::Gt(kLimit - 100))));
  for (Child* const child : {&first, &second}) {
    const Ended ended = child->Wait();
    EXPECT_EQ(0u, ended.code);
    EXPECT_EQ("", ended.output);
  }
  std::map<std::string, int> last;  // per process
  for (const std::string& text : Texts(ReadFileText(path + L".old") + ReadFileText(path))) {
    std::istringstream words(text);
    std::string record, of, process;
    int number = -1;
    words >> record >> number >> of >> process;
    if (last.count(process)) {
      EXPECT_EQ(last[process] + 1, number) << text;
    }
    last[process] = number;
  }
  ASSERT_FALSE(last.empty());
  for (const auto& [process, number] : last) EXPECT_EQ(kRecords - 1, number) << process;
}

TEST_F(LogLibrary, KeepsRecordsUntilAFileIsOpenAndNeverLosesThem) {
  const std::wstring writer = L"\"" + OwnFolder() + L"log_writer.exe\" ";
  const struct {
    std::wstring words;
    std::size_t in_file;
    std::size_t in_output;
    const char* report;
  } cases[] = {
      {L"4 early.log", 4, 0, ""},
      {L"4", 0, 4, ""},
      {L"2400 early.log", 2200, 0, ""},  // of 1,200 early records the latest 1,000 are kept
      {L"4 missing\\early.log", 0, 5, "\\missing\\early.log (error 3)\r\n"},
  };
  for (const auto& c : cases) {
    Child child(folder_.path(), writer + c.words);
    const Ended ended = child.Wait();
    EXPECT_EQ(0u, ended.code);
    EXPECT_EQ(c.in_output, Lines(ended.output).size()) << ended.output;
    EXPECT_THAT(ended.output, HasSubstr(c.report));
    EXPECT_EQ(c.in_file, Lines(ReadFileText(folder_ / L"early.log")).size());
    DeleteFileW((folder_ / L"early.log").c_str());
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW((folder_ / L"missing").c_str()));
  }
}

TEST_F(LogLibrary, MisbehavesAsScripted) {
  const RedirectedHive hive;
  const std::wstring path = folder_ / L"script.log";
  // Which operations fail: a capital letter for each that threw.
  const auto failures = [&] {
    std::string failed;
    const auto attempt = [&](char letter, const std::function<void()>& operation) {
      try {
        operation();
      } catch (const std::runtime_error& error) {
        EXPECT_STREQ(kLogScriptedFailure, error.what());
        failed += letter;
      }
    };
    std::shared_ptr<log::detail::ILogModule> module;
    std::shared_ptr<ILogger> logger;
    attempt('A', [&] { module = log::detail::AcquireLogModule(); });
    if (!module) return failed + "-";
    attempt('L', [&] { logger = module->Logger(); });
    if (!logger) return failed + "-";
    attempt('O', [&] { logger->OpenLogFile(path.c_str(), kNoLimit, true); });
    attempt('M', [&] { Narrow(*logger, "x"); });
    attempt('M', [&] { Wide(*logger, L"x"); });
    attempt('M', [&] { logger->LogWideVariadic(LogLevel::info, "wsc", L"x"); });
    attempt('E', [&] { Exception(*logger, std::runtime_error("x"), ""); });
    attempt('E', [&] { ExceptionAtLevel(*logger, LogLevel::error, std::runtime_error("x"), ""); });
    return failed;
  };
  const struct {
    LogScript script;
    const char* failures;
  } cases[] = {{{}, ""},
               {{.no_module = true}, "-"},
               {{.no_logger = true}, "-"},
               {{.throw_from = L"acquire"}, "A-"},
               {{.throw_from = L"logger"}, "L-"},
               {{.throw_from = L"open"}, "O"},
               {{.throw_from = L"message"}, "MMM"},
               {{.throw_from = L"exception"}, "EE"},
               {{.throw_from = L"message", .throw_count = 2}, "MM"},
               {{.throw_from = L"all", .throw_count = 1}, "A-"},
               {{.throw_from = L"open", .throw_count = 0}, ""}};
  for (const auto& c : cases) {
    ScriptLog(c.script);
    EXPECT_EQ(c.failures, failures());
  }
  ClearLogScript();
  EXPECT_EQ("", failures());
}

}  // namespace
}  // namespace crv::test
