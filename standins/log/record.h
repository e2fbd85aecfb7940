// One record as one line of the log file. Any thread.
#pragma once

#include <exception>
#include <string>

#include "base/log_library.h"

namespace crv::standins::log {

// "2024-05-01 12:34:56.789    312    340 error    wsc          text", UTF-8, with the line's end: local time, process, thread,
// level, tag. Line breaks inside the text appear as "\r" and "\n".
std::string Line(crv::log::LogLevel level, const char* tag, const std::wstring& text);

// "context: text (code 0x%08x) <- text of the nested exception (code 0x%08x) <- ...". An exception that carries no code shows
// none; an empty context is left out.
std::wstring ExceptionText(const std::wstring& context, const std::exception& exception);

}  // namespace crv::standins::log
