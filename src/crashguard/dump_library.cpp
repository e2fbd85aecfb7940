#include "crashguard/dump_library.h"

#include <string>

#include "base/exceptions.h"
#include "instup/common_os.h"
#include "root/proc_address.h"

namespace crv::crashguard {
namespace {

constexpr std::uint32_t kProcNotFound = 127;  // ERROR_PROC_NOT_FOUND
constexpr wchar_t kLibrary[] = L"dbghelp.dll";

// The common OS library, held for a scope.
class CommonOs {
 public:
  CommonOs() : held_(instup::CmnOsInitialize(0) == ERROR_SUCCESS) {}
  ~CommonOs() {
    if (held_) instup::CmnOsUninitialize();
  }
  CommonOs(const CommonOs&) = delete;
  CommonOs& operator=(const CommonOs&) = delete;

 private:
  bool held_;
};

std::wstring SuiteProgramFolder() {
  const CommonOs common_os;
  return instup::CmnOsProgramFolder();
}

}  // namespace

DumpLibrary::DumpLibrary() {
  std::wstring path = SuiteProgramFolder();
  if (!path.empty()) {
    if (path.back() != L'\\') path += L'\\';
    path += kLibrary;
    module_.reset(LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
  }
  if (!module_) module_.reset(LoadLibraryW(kLibrary));
  write_ = root::FindFunction<decltype(MiniDumpWriteDump)>(module_.get(), "MiniDumpWriteDump");
  if (!write_) throw exceptions::error(kProcNotFound, "Failed to bind with dbghelp!MiniDumpWriteDump");
}

}  // namespace crv::crashguard
