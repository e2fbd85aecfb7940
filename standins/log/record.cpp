#include "log/record.h"

#include <windows.h>

#include <cstdio>

#include "base/exceptions.h"
#include "base/format_message.h"

namespace crv::standins::log {
namespace {

constexpr int kMostNested = 16;  // deeper ones are not shown

const wchar_t* LevelName(crv::log::LogLevel level) {
  static constexpr const wchar_t* kNames[] = {L"info", L"debug", L"warning", L"error", L"critical"};
  const auto index = static_cast<std::uint32_t>(level) - 1;
  return index < std::size(kNames) ? kNames[index] : L"?";
}

std::wstring OneText(const std::exception& exception) {
  std::wstring text = FromUtf8(exception.what());
  if (const auto* const ours = dynamic_cast<const exceptions::detail::base*>(&exception)) {
    wchar_t code[32];
    _snwprintf(code, std::size(code), L" (code 0x%08x)", static_cast<unsigned>(ours->code()));
    text += code;
  }
  return text;
}

void AppendNested(std::wstring& text, const std::exception& exception, int depth) {
  const auto* const holder = dynamic_cast<const std::nested_exception*>(&exception);
  if (!holder || !holder->nested_ptr() || depth == kMostNested) return;
  text += L" <- ";
  try {
    holder->rethrow_nested();
  } catch (const std::exception& nested) {
    text += OneText(nested);
    AppendNested(text, nested, depth + 1);
  } catch (...) {
    text += L"unknown exception";
  }
}

}  // namespace

std::string Line(crv::log::LogLevel level, const char* tag, const std::wstring& text) {
  SYSTEMTIME now;
  GetLocalTime(&now);
  wchar_t head[128] = {};
  _snwprintf(head, std::size(head) - 1, L"%04u-%02u-%02u %02u:%02u:%02u.%03u %6lu %6lu %-8ls %-11.11hs  ", now.wYear, now.wMonth,
             now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, GetCurrentProcessId(), GetCurrentThreadId(),
             LevelName(level), tag ? tag : "");
  std::wstring line = head;
  for (const wchar_t character : text) {
    if (character == L'\r') {
      line += L"\\r";
    } else if (character == L'\n') {
      line += L"\\n";
    } else {
      line += character;
    }
  }
  return ToUtf8(line + L"\r\n");
}

std::wstring ExceptionText(const std::wstring& context, const std::exception& exception) {
  std::wstring text = context.empty() ? OneText(exception) : context + L": " + OneText(exception);
  AppendNested(text, exception, 0);
  return text;
}

}  // namespace crv::standins::log
