// Folder texts put together and put into one form. They look at the text only: nothing has to exist, and no Windows function is
// called. No state; any thread.
#pragma once

#include <string>
#include <string_view>

namespace crv::instup {

// The folder and the component with exactly one separator between them where neither brings one. Blanks and tabs around the
// folder are dropped; a folder in double quotes gives a result in double quotes. The component is taken as it is; an empty one
// adds nothing.
std::wstring JoinPath(const std::wstring& folder, const std::wstring& component);

// The text and the component with a "\" between them where neither brings one; an empty text gives the component. Unlike
// JoinPath it takes the text as it is, does not know "/", and leaves a trailing "\" when the component is empty.
std::wstring AppendPath(const std::wstring& text, const std::wstring& component);

// Whether the folder names one place whatever the current folder and drive are: it begins with a drive and a separator, is a drive
// alone, or begins with two separators. Blanks and quotes around it do not matter, as for JoinPath.
[[nodiscard]] bool IsWholePath(const std::wstring& folder) noexcept;

// Whether a path that is joined to a folder leads out of it with "..", on its way or at its end. What consists of dots and blanks and
// is neither "." nor ".." counts as leading out: systems differ in how they read it.
[[nodiscard]] bool LeadsOut(std::wstring_view path) noexcept;

// The text without trailing separators. Only a volume's root keeps one: "C:" and "\\?\Volume{...}" get a "\", since without it
// they name something else (the drive's current directory, the device). A text of separators alone becomes "\".
std::wstring NormalizeFolderPath(const std::wstring& text);

}  // namespace crv::instup
