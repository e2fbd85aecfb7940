// An installation of the suite whose installer is a probe: registered in a redirected hive, with its folders on a stage of the
// test.
#pragma once

#include <fstream>
#include <vector>

#include "base/format_message.h"
#include "instup/stage.h"

namespace crv::test {

class ProbedInstaller : public instup::test::Stage {
 public:
  ProbedInstaller() {
    instup::test::SetText(instup::test::kCorvidKey, L"ProgramFolder", AddFolder(L"program"));
    instup::test::SetText(instup::test::kCorvidKey, L"DataFolder", Path(L"data"));
    instup::test::SetText(instup::test::kCorvidKey, L"SetupFolder", setup_);
    AddInstaller(setup_);
    AddInstaller(setup_ + L"\\New_1");
    WriteSettings(L"New_1");
    SetEnvironmentVariableW(L"CRV_TEST_INSTALLER", Path(L"").c_str());
  }
  ~ProbedInstaller() { SetEnvironmentVariableW(L"CRV_TEST_INSTALLER", nullptr); }

  void AddInstaller(const std::wstring& folder) const {
    wchar_t own[MAX_PATH];
    GetModuleFileNameW(nullptr, own, MAX_PATH);
    std::filesystem::create_directories(folder);
    const std::wstring probe = std::filesystem::path(own).replace_filename(L"installer_probe.exe");
    EXPECT_TRUE(CopyFileW(probe.c_str(), (folder + L"\\instup.exe").c_str(), FALSE));
  }

  // setup.ini; empty: there is none.
  void WriteSettings(const std::wstring& new_directory) const {
    if (new_directory.empty()) return void(DeleteFileW(settings_.c_str()));
    std::ofstream(settings_.c_str(), std::ios::binary) << "[Common]\nNewDirectoryName=" << ToUtf8(new_directory) << '\n';
  }

  // What the run of that number (from 1) does; see installer_probe.cpp. "INI" stands for the path of setup.ini.
  void Script(int run, std::string steps) const {
    for (std::size_t at; (at = steps.find("INI")) != std::string::npos;) steps.replace(at, 3, ToUtf8(settings_));
    std::ofstream(Path(std::to_wstring(run) + L".txt").c_str(), std::ios::binary) << steps;
  }

  // Command lines of all runs; the setup folder in them stands as "SETUP".
  std::vector<std::string> Runs() const {
    std::vector<std::string> runs;
    std::ifstream file(Path(L"runs.txt").c_str(), std::ios::binary);
    for (std::string line; std::getline(file, line); runs.push_back(line)) {
      const std::string setup = ToUtf8(setup_);
      if (const std::size_t at = line.find(setup); at != std::string::npos) line.replace(at, setup.size(), "SETUP");
    }
    return runs;
  }

  const std::wstring setup_ = Path(L"the setup");
  const std::wstring settings_ = setup_ + L"\\setup.ini";
};

}  // namespace crv::test
