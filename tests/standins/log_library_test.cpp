#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <sstream>

#include "base/exceptions.h"
#include "base/log_library.h"
#include "control/log_control.h"
#include "standins/child.h"
#include "support/redirected_hive.h"

namespace crv::test {
namespace {

using namespace standins;
using log::LogLevel;
using log::detail::ILogger;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::uint64_t kNoLimit = 0;

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t at = 0;
  for (std::size_t end; (end = text.find("\r\n", at)) != std::string::npos; at = end + 2) lines.push_back(text.substr(at, end - at));
  if (at < text.size()) lines.push_back(text.substr(at) + "<no line end>");
  return lines;
}

// Everything before the text has a fixed length: date, time, process, thread, level, tag.
constexpr std::size_t kHead = 23 + 1 + 6 + 1 + 6 + 1 + 8 + 1 + 11 + 2;
std::string TextOf(const std::string& line) { return line.size() < kHead ? "<short> " + line : line.substr(kHead); }

std::vector<std::string> Texts(const std::string& text) {
  std::vector<std::string> texts;
  for (const std::string& line : Lines(text)) texts.push_back(TextOf(line));
  return texts;
}

void Narrow(ILogger& logger, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  logger.LogNarrow(LogLevel::info, "wsc", format, arguments);
  va_end(arguments);
}

void Wide(ILogger& logger, const wchar_t* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  logger.LogWide(LogLevel::info, "wsc", format, arguments);
  va_end(arguments);
}

void Exception(ILogger& logger, const std::exception& exception, const char* context, ...) {
  std::va_list arguments;
  va_start(arguments, context);
  logger.LogException("wsc", exception, context, arguments);
  va_end(arguments);
}

void ExceptionAtLevel(ILogger& logger, LogLevel level, const std::exception& exception, const char* context, ...) {
  std::va_list arguments;
  va_start(arguments, context);
  logger.LogExceptionAtLevel(level, "crashguard", exception, context, arguments);
  va_end(arguments);
}

std::shared_ptr<ILogger> Logger() { return log::detail::AcquireLogModule()->Logger(); }

class LogLibrary : public testing::Test {
 protected:
  // What one use of the logger leaves in a file of its own.
  std::string Logged(const std::function<void(ILogger&)>& use) {
    const std::wstring path = folder_ / L"case.log";
    const auto logger = Logger();
    logger->OpenLogFile(path.c_str(), kNoLimit, false);
    use(*logger);
    return ReadFileText(path);
  }

  TemporaryFolder folder_;
};

TEST_F(LogLibrary, FormatsAsTheRuntimeDoesAndLosesNoText) {
  const std::string whole(40'000, 'x');
  const std::wstring wide_whole(40'000, L'x');
  const struct {
    std::function<void(ILogger&)> log;
    std::string text;
  } cases[] = {
      // Wide arguments of narrow formats, with characters that no code page has, and broken ones.
      {[](ILogger& l) { Narrow(l, "'%ls' %d", L"C:\\\u017dlu\u0165\\\U0001F600", 7); }, "'C:\\\u017dlu\u0165\\\U0001F600' 7"},
      {[](ILogger& l) { Narrow(l, "a%lsb%ls", L"<\xD800>", L"\xDC00"); }, "a<\uFFFD>b\uFFFD"},
      {[&](ILogger& l) { Narrow(l, "%ls|%s", wide_whole.c_str(), whole.c_str()); }, whole + "|" + whole},
      // Narrow texts are UTF-8, in the format and behind it.
      {[](ILogger& l) { Narrow(l, "\u010de\u0161tina %s", "\u017elu\u0165"); }, "\u010de\u0161tina \u017elu\u0165"},
      // Which kind of text a conversion takes.
      {[](ILogger& l) { Narrow(l, "%s %hs %S %ws %c%C%lc", "a", "b", L"c", L"d", 'e', L'\u0159', L'g'); }, "a b c d e\u0159g"},
      {[](ILogger& l) { Wide(l, L"%s %ls %hs %S %c%hc%C", L"a", L"b", "c", "d", L'\u0159', 'f', 'g'); }, "a b c d \u0159fg"},
      // Width, precision and flags, given in the format or as arguments; every argument takes its own size.
      {[](ILogger& l) { Narrow(l, "[%5s][%-5ls][%.2ls][%*.*s][%-*d]", "a", L"b", L"cde", 4, 1, "fgh", 3, 9); },
       "[    a][b    ][cd][   f][9  ]"},
      {[](ILogger& l) { Narrow(l, "0x%08x %I64u %lld %ls %+.2f %hd %p %%", 0x8000000Au, 18446744073709551615ull, -5ll, L"|", 1.5,
                               0x12345, reinterpret_cast<void*>(0xABC)); },
       "0x8000000a 18446744073709551615 -5 | +1.50 9029 00000ABC %"},
      {[](ILogger& l) { Narrow(l, "%s %ls", nullptr, nullptr); }, "(null) (null)"},
      // One record stays one line; a percent sign in an argument is not a conversion.
      {[](ILogger& l) { Wide(l, L"%s", L"one\r\ntwo\n%s"); }, "one\\r\\ntwo\\n%s"},
      // A conversion that does not exist keeps the rest of the format.
      {[](ILogger& l) { Narrow(l, "%d %y %s", 1, 2, "x"); }, "1 %y %s"},
      {[](ILogger& l) { l.LogWideVariadic(LogLevel::error, "crashguard", L"%s", L"stream \u0159"); }, "stream \u0159"},
  };
  for (const auto& c : cases) EXPECT_THAT(Texts(Logged(c.log)), ElementsAre(c.text));
}

TEST_F(LogLibrary, HeadOfALineNamesTimeProcessThreadLevelAndTag) {
  const std::string text = Logged([](ILogger& logger) {
    for (std::uint32_t level = 1; level <= 5; ++level) logger.LogWideVariadic(static_cast<LogLevel>(level), "wsc", L"text");
  });
  char ids[32];
  _snprintf(ids, sizeof(ids), " %6lu %6lu ", GetCurrentProcessId(), GetCurrentThreadId());
  std::vector<std::string> tails;
  for (std::string line : Lines(text)) {
    ASSERT_GT(line.size(), 23u);
    std::string time = line.substr(0, 23);
    for (char& c : time) c = c >= '0' && c <= '9' ? '9' : c;
    EXPECT_EQ("9999-99-99 99:99:99.999", time);
    tails.push_back(line.substr(23));
  }
  const std::string head = ids;
  EXPECT_THAT(tails, ElementsAre(head + "info     wsc          text", head + "debug    wsc          text",
                                 head + "warning  wsc          text", head + "error    wsc          text",
                                 head + "critical wsc          text"));
}

TEST_F(LogLibrary, ShowsExceptionsWithCodesAndWhatIsNestedInThem) {
  const auto nest = [](auto outer, const std::function<void()>& inner) {
    try {
      inner();
    } catch (...) {
      try {
        std::throw_with_nested(outer);
      } catch (...) {
        return std::current_exception();
      }
    }
    return std::exception_ptr();
  };
  const auto innermost = [] { throw exceptions::fatal(87, "no word"); };
  const auto middle = [&] { std::rethrow_exception(nest(std::runtime_error("m\u0159"), innermost)); };
  const struct {
    std::exception_ptr exception;
    std::string text;
  } cases[] = {
      {std::make_exception_ptr(exceptions::error(0x80070005, "WSC Register: %s", "x")), "run 3: WSC Register: x (code 0x80070005)"},
      {std::make_exception_ptr(std::runtime_error("plain")), "run 3: plain"},
      {nest(exceptions::error(5, "outer"), middle), "run 3: outer (code 0x00000005) <- m\u0159 <- no word (code 0x00000057)"},
      {nest(exceptions::error("outer"), [] { throw 1; }), "run 3: outer (code 0xffffffff) <- unknown exception"},
  };
  for (const auto& c : cases) {
    const auto log = [&](const std::function<void(const std::exception&)>& use) {
      try {
        std::rethrow_exception(c.exception);
      } catch (const std::exception& exception) {
        use(exception);
      }
    };
    const std::string text = Logged([&](ILogger& logger) {
      log([&](const std::exception& exception) { Exception(logger, exception, "run %d", 3); });
      log([&](const std::exception& exception) { ExceptionAtLevel(logger, LogLevel::warning, exception, "run %d", 3); });
    });
    EXPECT_THAT(Texts(text), ElementsAre(c.text, c.text));
    EXPECT_THAT(Lines(text), ElementsAre(HasSubstr(" error    wsc         "), HasSubstr(" warning  crashguard  ")));
  }
}

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

// Each record of each process is whole and there once, also while the file is rolled over under the writers.
TEST_F(LogLibrary, TwoProcessesShareOneFile) {
  const std::wstring path = folder_ / L"shared.log";
  constexpr int kRecords = 200;
  const std::wstring writer =
      L"\"" + OwnFolder() + L"log_writer.exe\" " + std::to_wstring(kRecords) + L" \"" + path + L"\" 20000";
  Child first(folder_.path(), writer);
  Child second(folder_.path(), writer);
  for (Child* const child : {&first, &second}) {
    const Ended ended = child->Wait();
    EXPECT_EQ(0u, ended.code);
    EXPECT_EQ("", ended.output);
  }
  const std::string old_text = ReadFileText(path + L".old");
  EXPECT_GT(old_text.size(), 19'000u);
  EXPECT_LE(old_text.size(), 20'000u);
  std::map<std::string, int> next;  // per process
  for (const std::string& text : Texts(old_text + ReadFileText(path))) {
    std::istringstream words(text);
    std::string record, of, process;
    int number = -1;
    words >> record >> number >> of >> process;
    EXPECT_EQ(next[process]++, number) << text;
  }
  ASSERT_EQ(2u, next.size());
  for (const auto& [process, count] : next) EXPECT_EQ(kRecords, count) << process;
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
