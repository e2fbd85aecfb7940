// Three readers of one value of an INI file, all from the file on: the module's, Boost's property tree, the system's.
#pragma once

#include <windows.h>

#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include <fstream>
#include <string>

#include "instup/settings_file.h"

namespace crv::bench {

inline std::wstring ReadWithModule(const std::wstring& path) {
  instup::SettingsTree tree;
  if (!instup::LoadSettingsFile(path, tree)) return L"";
  return tree.Text(L"Common", L"NewDirectoryName", L"New");
}

inline std::wstring ReadWithBoost(const std::wstring& path) {
  std::wifstream file(path.c_str());
  boost::property_tree::wptree tree;
  boost::property_tree::read_ini(file, tree);
  return tree.get<std::wstring>(L"Common.NewDirectoryName", L"New");
}

// The system keeps files that it has read; a write of nothing makes it forget them.
inline std::wstring ReadWithSystem(const std::wstring& path) {
  WritePrivateProfileStringW(nullptr, nullptr, nullptr, path.c_str());
  wchar_t text[64] = {};
  GetPrivateProfileStringW(L"Common", L"NewDirectoryName", L"New", text, 64, path.c_str());
  return text;
}

}  // namespace crv::bench
