#include <gmock/gmock.h>

#include "base/exceptions.h"
#include "standins/log_stage.h"

namespace crv::test {
namespace {

using log::LogLevel;
using log::detail::ILogger;
using testing::ElementsAre;
using testing::HasSubstr;

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

}  // namespace
}  // namespace crv::test
