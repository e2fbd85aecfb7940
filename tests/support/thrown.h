// What a call throws, as text that a test compares: "error 0000007e cannot load x", "fatal ...", nested ones behind " <- ",
// "other" for anything else, "nothing" when it returns.
#pragma once

#include <cstdio>
#include <exception>
#include <string>
#include <typeinfo>

#include "base/exceptions.h"

namespace crv::test {

inline std::string DescribeThrown(const std::exception& exception) {
  std::string text = "other";
  if (const auto* const coded = dynamic_cast<const exceptions::detail::base*>(&exception)) {
    char code[16];
    std::snprintf(code, sizeof(code), " %08x ", static_cast<unsigned>(coded->code()));
    text = (dynamic_cast<const exceptions::fatal*>(coded) ? "fatal" : "error") + std::string(code) + coded->what();
  }
  try {
    std::rethrow_if_nested(exception);
  } catch (const std::exception& nested) {
    text += " <- " + DescribeThrown(nested);
  }
  return text;
}

template <typename Call>
std::string Thrown(Call call) {
  try {
    call();
  } catch (const std::exception& exception) {
    return DescribeThrown(exception);
  }
  return "nothing";
}

}  // namespace crv::test
