// Its one export writes the path of this library, as it sees it itself, into a buffer of `size` characters.
#include <cwchar>

#include "root/module_path.h"

extern "C" __declspec(dllexport) void PathOfProbe(wchar_t* path, std::size_t size) {
  std::wcsncpy(path, crv::root::GetThisModulePath().c_str(), size);
}
