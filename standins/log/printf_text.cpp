#include "log/printf_text.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <optional>
#include <string_view>

#include "base/format_message.h"

namespace crv::standins::log {
namespace {

// The arguments that are left, one step at a time.
class Arguments {
 public:
  explicit Arguments(std::va_list list) { va_copy(list_, list); }
  ~Arguments() { va_end(list_); }
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;

  template <typename T>
  T Take() {
    return va_arg(list_, T);
  }

 private:
  std::va_list list_;
};

enum class Size { standard, half, narrow_half, wide, quad };  // none, h, hh, l or w, the 64-bit ones

// One "%..." taken apart.
struct Conversion {
  std::wstring flags;
  std::optional<int> width;
  std::optional<int> precision;
  Size size = Size::standard;
  wchar_t type = 0;
};

bool Accept(const wchar_t*& at, std::wstring_view text) {
  if (std::wcsncmp(at, text.data(), text.size()) != 0) return false;
  at += text.size();
  return true;
}

int TakeNumber(const wchar_t*& at, Arguments& arguments) {
  if (Accept(at, L"*")) return arguments.Take<int>();
  int number = 0;
  for (; *at >= L'0' && *at <= L'9'; ++at) {
    if (number < INT_MAX / 100) number = number * 10 + (*at - L'0');
  }
  return number;
}

Size TakeSize(const wchar_t*& at) {
  static constexpr struct {
    std::wstring_view text;
    Size size;
  } kSizes[] = {{L"I64", Size::quad},       {L"ll", Size::quad},    {L"j", Size::quad},     {L"I32", Size::standard},
                {L"I", Size::standard},     {L"z", Size::standard}, {L"t", Size::standard}, {L"L", Size::standard},
                {L"hh", Size::narrow_half}, {L"h", Size::half},     {L"l", Size::wide},     {L"w", Size::wide}};
  for (const auto& known : kSizes) {
    if (Accept(at, known.text)) return known.size;
  }
  return Size::standard;
}

// Starts behind the percent sign and ends behind the type.
Conversion TakeConversion(const wchar_t*& at, Arguments& arguments) {
  Conversion conversion;
  while (*at && std::wcschr(L"-+ #0", *at)) conversion.flags += *at++;
  if (*at == L'*' || (*at >= L'0' && *at <= L'9')) {
    int width = TakeNumber(at, arguments);
    if (width < 0 && width != INT_MIN) {
      conversion.flags += L'-';
      width = -width;
    }
    conversion.width = width;
  }
  if (Accept(at, L".")) {
    const int precision = TakeNumber(at, arguments);
    if (precision >= 0) conversion.precision = precision;
  }
  conversion.size = TakeSize(at);
  if (*at) conversion.type = *at++;
  return conversion;
}

// Formats one argument with the C runtime, which knows all flags.
std::wstring Print(const wchar_t* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const std::wstring text = FormatWide(format, arguments);
  va_end(arguments);
  return text;
}

std::wstring ConversionText(const Conversion& conversion, const wchar_t* size) {
  std::wstring text = L"%" + conversion.flags;
  if (conversion.width) text += std::to_wstring(*conversion.width);
  if (conversion.precision) text += L"." + std::to_wstring(*conversion.precision);
  return text + size + conversion.type;
}

std::wstring IntegerText(const Conversion& conversion, Arguments& arguments) {
  if (conversion.size == Size::quad) return Print(ConversionText(conversion, L"I64").c_str(), arguments.Take<std::int64_t>());
  const bool is_signed = conversion.type == L'd' || conversion.type == L'i';
  int value = arguments.Take<int>();
  if (conversion.size == Size::half) value = is_signed ? static_cast<short>(value) : static_cast<unsigned short>(value);
  if (conversion.size == Size::narrow_half) {
    value = is_signed ? static_cast<signed char>(value) : static_cast<unsigned char>(value);
  }
  return Print(ConversionText(conversion, L"").c_str(), value);
}

std::wstring Padded(const Conversion& conversion, std::wstring text) {
  const std::size_t width = static_cast<std::size_t>(conversion.width.value_or(0));
  if (text.size() >= width) return text;
  const bool left = conversion.flags.find(L'-') != std::wstring::npos;
  text.insert(left ? text.size() : 0, width - text.size(), L' ');
  return text;
}

// The precision counts characters of the argument: for a narrow string the bytes of its UTF-8.
std::wstring StringText(const Conversion& conversion, bool is_wide, Arguments& arguments) {
  const void* const string = arguments.Take<const void*>();
  if (!string) return Padded(conversion, L"(null)");
  const std::size_t limit = conversion.precision ? static_cast<std::size_t>(*conversion.precision) : SIZE_MAX;
  if (is_wide) {
    const auto* const text = static_cast<const wchar_t*>(string);
    return Padded(conversion, std::wstring(text, conversion.precision ? wcsnlen(text, limit) : std::wcslen(text)));
  }
  const auto* const text = static_cast<const char*>(string);
  return Padded(conversion, FromUtf8(std::string(text, conversion.precision ? strnlen(text, limit) : std::strlen(text))));
}

std::wstring CharacterText(const Conversion& conversion, bool is_wide, Arguments& arguments) {
  const int value = arguments.Take<int>();
  return Padded(conversion,
                is_wide ? std::wstring(1, static_cast<wchar_t>(value)) : FromUtf8(std::string(1, static_cast<char>(value))));
}

std::wstring Format(const wchar_t* format, bool format_is_wide, Arguments& arguments) {
  std::wstring text;
  while (const wchar_t* const percent = std::wcschr(format, L'%')) {
    text.append(format, percent);
    format = percent + 1;
    const Conversion conversion = TakeConversion(format, arguments);
    // A capital letter means the other kind of text than the format's; a size given goes before both.
    const bool is_capital = conversion.type == L'S' || conversion.type == L'C';
    bool is_wide = format_is_wide != is_capital;
    if (conversion.size == Size::wide) is_wide = true;
    if (conversion.size == Size::half) is_wide = false;
    switch (conversion.type) {
      case L'd':
      case L'i':
      case L'o':
      case L'u':
      case L'x':
      case L'X': text += IntegerText(conversion, arguments); break;
      case L'e':
      case L'E':
      case L'f':
      case L'g':
      case L'G':
      case L'a':
      case L'A': text += Print(ConversionText(conversion, L"").c_str(), arguments.Take<double>()); break;
      case L'p': text += Print(ConversionText(conversion, L"").c_str(), arguments.Take<void*>()); break;
      case L's':
      case L'S': text += StringText(conversion, is_wide, arguments); break;
      case L'c':
      case L'C': text += CharacterText(conversion, is_wide, arguments); break;
      case L'n': arguments.Take<void*>(); break;
      case L'%': text += L'%'; break;
      default: return text + percent;
    }
  }
  return text + format;
}

}  // namespace

std::wstring FormatText(const char* format, std::va_list list) {
  if (!format) return {};
  Arguments arguments(list);
  return Format(FromUtf8(format).c_str(), false, arguments);
}

std::wstring FormatText(const wchar_t* format, std::va_list list) {
  if (!format) return {};
  Arguments arguments(list);
  return Format(format, true, arguments);
}

}  // namespace crv::standins::log
