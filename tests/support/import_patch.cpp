#include "support/import_patch.h"

#include <gtest/gtest.h>

#include <cstring>

namespace crv::test {
namespace {

void** FindSlot(const char* dll, const char* function) {
  auto* const base = reinterpret_cast<BYTE*>(GetModuleHandleW(nullptr));
  const auto* const dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
  const auto* const nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  auto* descriptor = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
  for (; descriptor->Name; ++descriptor) {
    if (_stricmp(reinterpret_cast<char*>(base + descriptor->Name), dll) != 0) continue;
    auto* name = reinterpret_cast<IMAGE_THUNK_DATA*>(base + descriptor->OriginalFirstThunk);
    auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + descriptor->FirstThunk);
    for (; name->u1.AddressOfData; ++name, ++slot) {
      if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
      const auto* const by_name = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
      if (std::strcmp(reinterpret_cast<const char*>(by_name->Name), function) == 0) {
        return reinterpret_cast<void**>(&slot->u1.Function);
      }
    }
  }
  return nullptr;
}

void Write(void** slot, void* value) {
  DWORD old = 0;
  VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &old);
  *slot = value;
  VirtualProtect(slot, sizeof(*slot), old, &old);
}

}  // namespace

ImportPatch::ImportPatch(const char* dll, const char* function, void* replacement) : slot_(FindSlot(dll, function)) {
  if (!slot_) {
    ADD_FAILURE() << "the test program does not import " << dll << "!" << function;
    return;
  }
  original_ = *slot_;
  Write(slot_, replacement);
}

ImportPatch::~ImportPatch() {
  if (slot_) Write(slot_, original_);
}

}  // namespace crv::test
