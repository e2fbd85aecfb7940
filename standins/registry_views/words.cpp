// The two views that 64-bit Windows keeps of the registry.
#include "registry_views/control.h"
#include "shared/area.h"
#include "shared/console.h"

namespace crv::standins {
namespace {

Table Rows() {
  if (!ViewsAreWatched()) return {};
  Table rows = {{L"View", L"Name", L"Data"}};
  for (const ViewValue& value : ReadViews()) rows.push_back({value.view, value.name, value.data});
  for (const std::wstring& folder : FoldersOfViews()) rows.push_back({kViewsFolder, folder});
  return rows;
}

void Watch(const Words&) { WatchViews(); }

void Plant(const Words& words) {
  if (words[0] != L"32" && words[0] != L"64") throw UsageError{L"there is no view '" + words[0] + L"', but 32 and 64"};
  if (words[3] != L"text" && words[3] != L"number") throw UsageError{L"a value is a text or a number, no '" + words[3] + L"'"};
  PlantInView(words[0], words[1], words[2], words[3] == L"number", words[4]);
}

}  // namespace

const Area& RegistryViewsArea() {
  static const Area area = {
      .commands = {{L"watch-views", L"", L"shows the suite's keys as a 64-bit program sees them, until \"clear\"", 0, 0, &Watch},
                   {L"plant", L"32 | 64 KEY NAME text | number DATA",
                    L"puts a value below SOFTWARE into one of the registry's views, until \"clear\"", 5, 5, &Plant}},
      .uninstall = &ClearViews,
      .table = &Rows,
      .key_cells = 2,
      .clear = &ClearViews,
  };
  return area;
}

}  // namespace crv::standins
