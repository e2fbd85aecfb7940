#include "acceptance/kit.h"

#include <windows.h>
#include <shlobj.h>

#include <fstream>
#include <sstream>

#include "acceptance/processes.h"
#include "base/exceptions.h"
#include "base/format_message.h"
#include "root/scoped_handle.h"
#include "shared/places.h"

namespace crv::acceptance {
namespace {

constexpr wchar_t kContents[] = L"contents.txt";
constexpr wchar_t kSuite[] = L"suite\\";
constexpr wchar_t kTests[] = L"tests\\";
constexpr wchar_t kTestProgram[] = L"_tests.exe";
constexpr DWORD kLongestInstall = 120'000;  // ms

// Relative to the folder of the kit.
std::vector<std::wstring> Contents() {
  std::vector<std::wstring> files;
  std::ifstream list(standins::Beside(kContents).c_str(), std::ios::binary);
  for (std::string line; std::getline(list, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!line.empty()) files.push_back(FromUtf8(line));
  }
  return files;
}

std::wstring NameOf(const std::wstring& path) { return path.substr(path.rfind(L'\\') + 1); }

// Relative to the folder of the kit.
std::vector<std::wstring> Below(const wchar_t* folder) {
  std::vector<std::wstring> files = Contents();
  std::erase_if(files, [&](const std::wstring& file) { return !file.starts_with(folder); });
  return files;
}

void CreateFolder(const std::wstring& folder) {
  const int created = SHCreateDirectoryExW(nullptr, folder.c_str(), nullptr);
  if (created != ERROR_SUCCESS && created != ERROR_ALREADY_EXISTS)
    throw exceptions::error(created, L"cannot create %s", folder.c_str());
}

void Copy(const std::vector<std::wstring>& files, const std::wstring& folder) {
  CreateFolder(folder);
  for (const std::wstring& file : files) {
    const std::wstring from = standins::Beside(file.c_str()), to = folder + L"\\" + NameOf(file);
    if (!CopyFileW(from.c_str(), to.c_str(), FALSE))
      throw exceptions::error(GetLastError(), L"cannot copy %s to %s", from.c_str(), folder.c_str());
    SetFileAttributesW(to.c_str(), FILE_ATTRIBUTE_NORMAL);  // the kit may lie on a disc that is read only
  }
}

}  // namespace

std::wstring KitFolder() {
  const std::wstring folder = standins::Beside(L"");
  return folder.substr(0, folder.size() - 1);
}

std::vector<std::wstring> Incomplete() {
  std::vector<std::wstring> wrong;
  const std::vector<std::wstring> files = Contents();
  if (files.empty()) wrong.push_back(standins::Beside(kContents) + L" is missing");
  for (const std::wstring& file : files) {
    const std::wstring path = standins::Beside(file.c_str());
    const root::ScopedFile opened(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    if (opened) continue;
    const DWORD error = GetLastError();
    const bool missing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    const bool held = error == ERROR_SHARING_VIOLATION;
    wrong.push_back(path + (missing ? L" is missing"
                            : held  ? L" is locked: another program has it open"
                                    : L" cannot be read: error " + std::to_wstring(error)));
  }
  return wrong;
}

std::vector<std::wstring> TestPrograms() {
  std::vector<std::wstring> programs;
  for (const std::wstring& file : Below(kTests)) {
    if (file.ends_with(kTestProgram)) programs.push_back(SuiteFolder() + L"\\" + file);
  }
  for (const wchar_t* const program : {L"\\matrix.exe", L"\\tour.exe"}) programs.push_back(SuiteFolder() + program);
  return programs;
}

std::wstring SuiteFolder() {
  wchar_t programs[MAX_PATH] = {};
  const HRESULT result = SHGetFolderPathW(nullptr, CSIDL_PROGRAM_FILES, nullptr, SHGFP_TYPE_CURRENT, programs);
  if (FAILED(result)) throw exceptions::error(result, "cannot find the folder for programs");
  return std::wstring(programs) + L"\\CORVID Software\\Corvid";
}

std::string Stage(HANDLE interrupt) {
  const std::wstring folder = SuiteFolder();
  const std::wstring temp = folder + L"\\temp";
  Copy(Below(kSuite), folder);
  Copy(Below(kTests), folder + L"\\tests");
  CreateFolder(temp);
  for (const wchar_t* const name : {L"TEMP", L"TMP"}) SetEnvironmentVariableW(name, temp.c_str());
  const std::wstring output = folder + L"\\install.txt";
  Process install(folder + L"\\centre.exe", L"install", output);
  const HANDLE events[] = {install.handle(), interrupt};
  const DWORD event = WaitForMultipleObjects(2, events, FALSE, kLongestInstall);
  if (event == WAIT_OBJECT_0 + 1) return {};
  if (event != WAIT_OBJECT_0) {
    throw exceptions::error(ERROR_TIMEOUT, "the stand-ins could not be installed in time");
  }
  if (install.Result() == DWORD{0}) return {};
  std::ifstream file(output.c_str(), std::ios::binary);
  std::string text, refused;
  while (std::getline(file, text)) {
    if (text.starts_with("centre: ")) refused += text.substr(8, text.find('\r') - 8) + "; ";
  }
  if (refused.empty()) throw exceptions::error(*install.Result(), "the stand-ins could not be installed");
  return refused.substr(0, refused.size() - 2);
}

}  // namespace crv::acceptance
