// A command line taken apart: the program token, switches ("/name" or "/name:value", names compared without regard to case) and
// positional words; and put together again, for messages and for starting other programs. Calls no Windows function. An object
// is used by one thread at a time.
//
// The switches lie as they came, in one text: a request has a handful of them, each is asked for once, and a command line may be as long
// as Windows lets it.
#pragma once

#include <cstddef>
#include <locale>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/nocase.h"

namespace crv {

class CommandLine {
 public:
  using Switches = std::map<std::wstring, std::wstring, nocase::Less>;

  // Empty. Names are compared under the global locale of this moment.
  CommandLine() = default;

  // Replaces the whole content. The first token always becomes the program token, whatever it looks like. Blanks, tabs, carriage
  // returns and line feeds separate tokens unless they stand in double quotes; two double quotes in a row are a literal one.
  // Never fails: an odd quote runs to the end of the text.
  void parse(const wchar_t* text);

  // Whether the switch is present, with or without a value.
  bool has(const wchar_t* name) const;

  // The switch's value; an empty string when it has none or is missing.
  std::wstring value(const wchar_t* name) const;

  // Adds the switch or replaces its value; a present switch keeps the spelling of its name.
  void set(const std::wstring& name, const std::wstring& value);

  void set_program(const std::wstring& program) { program_ = program; }
  const std::wstring& program() const { return program_; }
  Switches switches() const;
  const std::vector<std::wstring>& words() const { return words_; }

  // The switches in ascending order of their names, then the words, as command-line text without the program token. Parsed again
  // behind a program token it gives the same switches and words, except for tokens with tabs or line ends in them and for words
  // of nothing but double quotes.
  std::wstring arguments() const;

  // The program token in double quotes, a blank and `arguments`; a part that is empty is left out.
  std::wstring text() const;

 private:
  struct Switch {
    std::size_t name, value;  // where they begin in the text; each ends where the next thing begins
    std::size_t end;
  };

  void AddArgument(std::size_t begin);
  const Switch* Find(std::wstring_view name) const;  // null: missing
  std::wstring_view NameOf(const Switch& entry) const { return Between(entry.name, entry.value); }
  std::wstring_view ValueOf(const Switch& entry) const { return Between(entry.value, entry.end); }
  std::wstring_view Between(std::size_t begin, std::size_t end) const {
    return std::wstring_view(text_).substr(begin, end - begin);
  }

  std::locale locale_;  // the global one of the construction
  std::wstring program_;
  std::wstring text_;             // names and values
  std::vector<Switch> switches_;  // a later one of the same name replaces the value of those before
  std::vector<std::wstring> words_;
};

}  // namespace crv
