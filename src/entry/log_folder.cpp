#include "entry/log_folder.h"

#include "instup/folders.h"

namespace crv::wsc {

std::wstring LogFolder() { return instup::GetDataFolder() + L"\\log"; }
std::wstring LogFile() { return LogFolder() + L"\\wsc.log"; }

}  // namespace crv::wsc
