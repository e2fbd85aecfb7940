#include "support/import_patch.h"

#include <gtest/gtest.h>

#include "shared/import_table.h"

namespace crv::test {

ImportPatch::ImportPatch(const char* dll, const char* function, void* replacement) : slot_(standins::FindImport(dll, function)) {
  if (!slot_) {
    ADD_FAILURE() << "the test program does not import " << dll << "!" << function;
    return;
  }
  original_ = *slot_;
  standins::WriteImport(slot_, replacement);
}

ImportPatch::~ImportPatch() {
  if (slot_) standins::WriteImport(slot_, original_);
}

}  // namespace crv::test
