// The two ways in which the module fails: `error` for what the system, COM or another component refused, `fatal` for what a
// caller handed in and the module cannot work with. Both carry a 32-bit code, which becomes the result of `run`, and a message
// that names the failed step. They differ only by type. Copies never throw; any thread may build and throw them.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>

#include "platform/printf_check.h"

namespace crv::exceptions {

inline constexpr std::uint32_t kNoCode = 0xFFFFFFFF;    // of an exception built from a message alone
inline constexpr std::uint32_t kInvalidParameter = 87;  // ERROR_INVALID_PARAMETER
inline constexpr std::uint32_t kBadArguments = 160;     // ERROR_BAD_ARGUMENTS

namespace detail {

class base : public std::exception {
 public:
  const char* what() const noexcept override { return message_ ? message_->c_str() : ""; }
  std::uint32_t code() const noexcept { return code_; }

 protected:
  explicit base(std::uint32_t code) noexcept : code_(code) {}  // empty message
  void BuildMessage(const char* format, std::va_list arguments);
  void BuildMessage(const wchar_t* format, std::va_list arguments);  // stored as UTF-8

 private:
  std::shared_ptr<const std::string> message_;  // shared by copies, so copying cannot fail; null: empty
  std::uint32_t code_;
};

}  // namespace detail

// Formats follow the C runtime (see format_message.h); a text that cannot be formatted leaves the message empty.
class error : public detail::base {
 public:
  error();  // code 87, empty message
  explicit error(const char* format, ...) CRV_PRINTF(2, 3);
  error(std::uint32_t code, const char* format, ...) CRV_PRINTF(3, 4);
  error(std::uint32_t code, const wchar_t* format, ...);
};

class fatal : public detail::base {
 public:
  explicit fatal(const char* format, ...) CRV_PRINTF(2, 3);
  fatal(std::uint32_t code, const char* format, ...) CRV_PRINTF(3, 4);
};

}  // namespace crv::exceptions
