// The folders of the common OS library, settled from the registry, from where the executable lies, and from plain defaults.
// Folders once settled stay. What cannot be found ends in a default that may not exist: nothing here fails but for memory
// (std::bad_alloc). One thread at a time; the library's critical section sees to that (common_os.h). The optional-function
// table has to be initialised, or the folders that are made get the default security.
#pragma once

#include <array>
#include <string>

#include "instup/product_key.h"

namespace crv::instup {

// One sub-folder of the data folder, which a registry value may put elsewhere.
struct FolderSetting {
  const wchar_t* value_name;
  const wchar_t* default_sub_folder;
  std::wstring folder = {};  // as settled
};

struct LibraryFolders {
  std::wstring product_key = kLibraryProductKey;  // below HKEY_LOCAL_MACHINE
  std::wstring program;
  std::wstring data;
  std::wstring temp;
  std::array<FolderSetting, 8> settings = {{
      {L"JournalFolder", L"journal"},
      {L"KeyFolder", L"backup"},
      {L"LogFolder", L"log"},
      {L"ReportFolder", L"report"},
      {L"IntegrityFolder", L"integ"},
      {L"ChestFolder", L"chest"},
      {L"MovedFolder", L"moved"},
      {L"FwDataFolder", L"fw"},
  }};
};

// Settles the temp folder while it is empty, and the program and data folders while the data folder is empty. The temp folder is
// made when it is missing; the other two are neither made nor, in their last fallback, checked.
void SettleLibraryFolders(LibraryFolders& folders);

// Looks all the data sub-folders up anew and makes the missing ones, open to everyone.
void SettleDataSubFolders(LibraryFolders& folders);

}  // namespace crv::instup
