// cavm4h.dll as far as the module uses it: six C functions over a list of providers that other processes see. A record that comes
// back with a changed byte is refused with 0xBADC0DE.
#include <windows.h>

#include <cstring>

#include "av_manager/control.h"

namespace crv::standins {
namespace {

constexpr DWORD kChangedRecord = 0xBADC0DE;
constexpr std::size_t kRecordSize = 1860;
constexpr std::size_t kStateOffset = 792;
constexpr std::size_t kIndexOffset = 0;  // the library's own: which provider the record is
constexpr unsigned char kFiller = 0xA5;

void Fill(unsigned char* record, DWORD index, DWORD state) {
  std::memset(record, kFiller, kRecordSize);
  std::memcpy(record + kIndexOffset, &index, sizeof(index));
  std::memcpy(record + kStateOffset, &state, sizeof(state));
}

bool IsUnchanged(const unsigned char* record, DWORD index, DWORD state) {
  unsigned char expected[kRecordSize];
  Fill(expected, index, state);
  return std::memcmp(expected, record, kRecordSize) == 0;
}

DWORD Done(const Answer&) { return 0; }

DWORD HandOut(unsigned char** list, DWORD* count) {
  const std::vector<Provider> providers = ReadProviders();
  *list = static_cast<unsigned char*>(HeapAlloc(GetProcessHeap(), 0, kRecordSize * providers.size() + 1));
  if (!*list) return ERROR_NOT_ENOUGH_MEMORY;
  for (DWORD i = 0; i < providers.size(); ++i) Fill(*list + i * kRecordSize, i, providers[i].state);
  *count = static_cast<DWORD>(providers.size());
  return 0;
}

DWORD ChangeProvider(const wchar_t* function, const unsigned char* record, DWORD wanted_state) {
  DWORD index = 0;
  std::memcpy(&index, record + kIndexOffset, sizeof(index));
  std::vector<Provider> providers = ReadProviders();
  if (index >= providers.size() || !IsUnchanged(record, index, providers[index].state)) return kChangedRecord;
  return AvManagerCalls().Answered<StatusCall>(function, providers[index].name, 0, [&](const Answer&) {
    providers[index].state = wanted_state;
    WriteProviders(providers);
    return DWORD{0};
  });
}

}  // namespace
}  // namespace crv::standins

using namespace crv::standins;

extern "C" {

DWORD __cdecl CavmStart(const wchar_t* host, DWORD first, DWORD second) {
  return AvManagerCalls().Answered<StatusCall>(
      L"CavmStart", std::wstring(host ? host : L"null") + L", " + std::to_wstring(first) + L", " + std::to_wstring(second), 0,
      &Done);
}

DWORD __cdecl CavmStop() { return AvManagerCalls().Answered<StatusCall>(L"CavmStop", L"", 0, &Done); }

// What the caller left in its places stands in the journal.
DWORD __cdecl CavmGetProviderInfoList(unsigned char** list, DWORD* count) {
  const std::wstring places = (*list ? L"not null, " : L"null, ") + std::to_wstring(*count);
  return AvManagerCalls().Answered<StatusCall>(L"CavmGetProviderInfoList", places, 0, [&](const Answer& answer) {
    return answer.null_pointer ? 0 : HandOut(list, count);
  });
}

DWORD __cdecl CavmProviderResume(unsigned char* record) { return ChangeProvider(L"CavmProviderResume", record, 1); }
DWORD __cdecl CavmProviderStart(unsigned char* record) { return ChangeProvider(L"CavmProviderStart", record, 1); }
DWORD __cdecl CavmProviderStop(unsigned char* record) { return ChangeProvider(L"CavmProviderStop", record, 0); }

}  // extern "C"
