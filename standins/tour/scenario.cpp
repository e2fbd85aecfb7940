#include "tour/scenario.h"

#include <iterator>

#include "shared/machine.h"

namespace crv::standins::tour {

const std::vector<Chapter>& Chapters() {
  static const std::vector<Chapter> chapters = [] {
    std::vector<Chapter> all;
    for (auto* const group : {&ProductChapters, &RequestChapters, &ActionChapters, &UpdateChapters, &SystemChapters,
                              &LegacyChapters, &DriverChapters, &CrashChapters, &Wow64Chapters}) {
      std::vector<Chapter> some = group();
      std::move(some.begin(), some.end(), std::back_inserter(all));
    }
    return all;
  }();
  return chapters;
}

bool BelongsHere(const Chapter& chapter) {
  return chapter.machine == Machine::any || (chapter.machine == Machine::only_64_bit) == Is64BitWindows();
}

}  // namespace crv::standins::tour
