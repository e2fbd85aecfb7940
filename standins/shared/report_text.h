// Reports on disk: what the tour and the acceptance kit write for people and for the readers of JUnit.
#pragma once

#include <string>

namespace crv::standins {

// UTF-8 text as it may stand in XML, in an attribute as well.
[[nodiscard]] std::string Escaped(const std::string& text);

// Makes the file anew with exactly these bytes, which are on the disk when it returns. Throws exceptions::error with the system's code.
void WriteTextFile(const std::wstring& path, const std::string& text);

}  // namespace crv::standins
