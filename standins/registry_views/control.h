// The two views that 64-bit Windows keeps of HKLM\SOFTWARE, seen and filled by the system's own 64-bit reg.exe, so that it shows which
// of them the product reads and writes. On 32-bit Windows there is one view, and nothing here but ViewsAreWatched works. Failures throw
// crv::exceptions::error. One process at a time.
//
//   HKLM\SOFTWARE\Corvid Stand-ins\Registry Views
//     Watched             DWORD 1: the views are shown
//     Planted             list of what has to be deleted again: keys, or values of keys that were there, as reg.exe takes them
//   C:\corvid-views       folders that a planted value may name; what is made there is shown, too
#pragma once

#include <string>
#include <vector>

namespace crv::standins {

inline constexpr wchar_t kViewsFolder[] = L"C:\\corvid-views";

// What matters of a view: the suite's keys and the policy for Windows Defender.
struct ViewValue {
  std::wstring view;  // L"32" or L"64"
  std::wstring name;  // the path below SOFTWARE, ending in the value's name
  std::wstring data;
};

void WatchViews();
bool ViewsAreWatched();
std::vector<ViewValue> ReadViews();
std::vector<std::wstring> FoldersOfViews();  // the names of those in kViewsFolder

// Puts a value below SOFTWARE into one view. A number is written as a DWORD.
void PlantInView(const std::wstring& view, const std::wstring& key, const std::wstring& value, bool number,
                 const std::wstring& data);

void ClearViews();  // takes everything planted away again, with the keys that were made for it, and watches no longer

}  // namespace crv::standins
