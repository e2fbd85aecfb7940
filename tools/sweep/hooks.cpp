#include "sweep/hooks.h"

#include <winternl.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "sweep/functions.h"
#include "sweep/interfaces.h"

namespace crv::sweep {
namespace {

// What the code of a hook finds on the stack; the registers of the caller lie below it.
struct Entry {
  DWORD target;  // in: the hook's number; out: where to go
  DWORD return_address;
  DWORD arguments[8];
};

struct Hook {
  const Function* function;  // null: only counted
  void* target;              // where calls go on
  Counted* counted;
  bool from_library_only;
  bool begins_request;
};

constexpr DWORD kMostHooks = kMostFunctions;
constexpr std::size_t kHookSize = 16;  // bytes of code

ControlBlock* block = nullptr;
Hook hooks[kMostHooks];
LONG hook_count = 0;
unsigned char* code = nullptr;  // of all hooks, and behind them that of the failing call
DWORD library_begin = 0;
DWORD library_end = 0;

bool IsInLibrary(DWORD address) { return address >= library_begin && address < library_end; }

// Whether the address lies behind a call instruction.
bool FollowsCall(DWORD address) {
  const auto* const at = reinterpret_cast<const unsigned char*>(address);
  return at[-5] == 0xE8 || (at[-2] == 0xFF && (at[-1] & 0x38) == 0x10) || (at[-3] == 0xFF && (at[-2] & 0x38) == 0x10) ||
         (at[-6] == 0xFF && (at[-5] & 0x38) == 0x10);
}

// Everything on the stack that looks like a return address into the library.
void NoteFrames(const Entry& entry) {
  constexpr DWORD kWords = 1500;
  MEMORY_BASIC_INFORMATION stack = {};
  VirtualQuery(&entry, &stack, sizeof(stack));
  const auto* const end = reinterpret_cast<const DWORD*>(static_cast<const char*>(stack.BaseAddress) + stack.RegionSize);
  DWORD frames = 0;
  const DWORD* at = &entry.return_address;
  for (DWORD i = 0; i < kWords && at < end && frames < kMostFrames; ++i, ++at) {
    if (*at >= library_begin + 0x1000 && IsInLibrary(*at) && FollowsCall(*at)) block->frames[frames++] = *at - library_begin;
  }
}

void NoteText(const Function& function, const Entry& entry) {
  if (function.text_argument == kNoText) return;
  const DWORD text = entry.arguments[function.text_argument & ~kNarrow];
  if (!text) return;
  if (function.text_argument & kNarrow) {
    const auto* const narrow = reinterpret_cast<const char*>(text);
    for (std::size_t i = 0; narrow[i] && i < std::size(block->text) - 1; ++i)
      block->text[i] = static_cast<unsigned char>(narrow[i]);
  } else {
    wcsncpy(block->text, reinterpret_cast<const wchar_t*>(text), std::size(block->text) - 1);
  }
}

DWORD __cdecl ThrowFromLogLibrary() { throw std::runtime_error("log library: made to fail"); }

// Writes the code that fails as the function does and gives its address.
DWORD FailingCode(const Function& function) {
  if (function.channel == Channel::throws) return reinterpret_cast<DWORD>(&ThrowFromLogLibrary);
  unsigned char* const place = code + kMostHooks * kHookSize;
  const DWORD value = function.channel == Channel::result ? block->code : function.failed;
  const WORD bytes = static_cast<WORD>(function.argument_bytes);
  place[0] = 0xB8;  // mov eax, value
  std::memcpy(place + 1, &value, sizeof(value));
  place[5] = 0xC2;  // ret bytes
  std::memcpy(place + 6, &bytes, sizeof(bytes));
  return reinterpret_cast<DWORD>(place);
}

bool IsTheOne(const Hook& hook, LONG call) {
  return block->call == call && hook.function && std::strcmp(block->function, hook.counted->name) == 0;
}

extern "C" void __cdecl SweepDecide(Entry* entry) {
  const Hook& hook = hooks[entry->target];
  entry->target = reinterpret_cast<DWORD>(hook.target);
  if (hook.from_library_only && !IsInLibrary(entry->return_address)) return;
  if (hook.function && hook.function->needed_argument != kNoText && !entry->arguments[hook.function->needed_argument]) return;
  const DWORD last_error = GetLastError();
  if (hook.begins_request && block->phase == Phase::guard) EnterPhase(Phase::request);
  const LONG call = InterlockedIncrement(&hook.counted->calls);
  if (!IsTheOne(hook, call)) {
    SetLastError(last_error);
    return;
  }
  NoteFrames(*entry);
  NoteText(*hook.function, *entry);
  entry->target = FailingCode(*hook.function);
  block->hit_in = block->phase;
  InterlockedIncrement(&block->hits);
  SetLastError(hook.function->channel == Channel::last_error ? block->code : last_error);
}

// Jumped to with the hook's number pushed above the return address; leaves for the address that takes the number's place.
extern "C" void SweepEnter();
asm(R"(
  .globl _SweepEnter
_SweepEnter:
  pushfl
  pushal
  cld
  leal 36(%esp), %eax
  pushl %eax
  call _SweepDecide
  addl $4, %esp
  popal
  popfl
  ret
)");

Counted* Count(const char* name) {
  for (LONG i = 0; i < block->functions; ++i) {
    if (std::strcmp(block->counted[i].name, name) == 0) return &block->counted[i];
  }
  Counted* const made = &block->counted[InterlockedIncrement(&block->functions) - 1];
  strncpy(made->name, name, sizeof(made->name) - 1);
  return made;
}

void NoteUnlisted(const char* name) {
  const std::size_t length = std::strlen(block->unlisted);
  _snprintf(block->unlisted + length, kMostUnlisted - length - 1, "%s ", name);
}

// The function's name as the lists have it.
const char* PlainName(const char* library, const char* import, DWORD ordinal) {
  constexpr DWORD kCreateDirectory = 165;
  if (!import) return _stricmp(library, "shell32.dll") == 0 && ordinal == kCreateDirectory ? "SHCreateDirectory" : "?";
  return std::strstr(import, "AcquireLogModule") ? "AcquireLogModule" : import;
}

void Exchange(IMAGE_THUNK_DATA* slot, void* function) {
  DWORD protection = 0;
  VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection);
  slot->u1.Function = reinterpret_cast<DWORD>(function);
  VirtualProtect(slot, sizeof(*slot), protection, &protection);
}

FARPROC WINAPI LookUp(HMODULE module, const char* name) {
  const FARPROC address = GetProcAddress(module, name);
  const DWORD last_error = GetLastError();
  if (!address) {
    if (!FindFailing(name) && !ReasonNotToFail(name)) NoteUnlisted(name);
    Count(name);
    SetLastError(last_error);
    return nullptr;
  }
  const auto ordinal = static_cast<DWORD>(reinterpret_cast<DWORD_PTR>(name));
  const char* const plain = IS_INTRESOURCE(name) ? PlainName("shell32.dll", nullptr, ordinal) : name;
  void* const hooked = Hooked(plain, reinterpret_cast<void*>(address), false);
  SetLastError(last_error);
  return reinterpret_cast<FARPROC>(hooked);
}

// The user is no administrator, as far as the library can see.
BOOL WINAPI NoMember(HANDLE token, PSID group, BOOL* member) {
  const BOOL answered = CheckTokenMembership(token, group, member);
  if (answered) *member = FALSE;
  return answered;
}

void HookImports(BYTE* base) {
  const auto* const dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
  const auto* const nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  library_begin = reinterpret_cast<DWORD>(base);
  library_end = library_begin + nt->OptionalHeader.SizeOfImage;
  const IMAGE_DATA_DIRECTORY& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  auto* descriptor = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
  for (; descriptor->Name; ++descriptor) {
    auto* name = reinterpret_cast<IMAGE_THUNK_DATA*>(base + descriptor->OriginalFirstThunk);
    auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + descriptor->FirstThunk);
    for (; name->u1.AddressOfData; ++name, ++slot) {
      const bool by_number = IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal);
      const auto* const import =
          by_number ? nullptr
                    : reinterpret_cast<const char*>(reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData)->Name);
      const char* const plain =
          PlainName(reinterpret_cast<const char*>(base + descriptor->Name), import, IMAGE_ORDINAL(name->u1.Ordinal));
      void* original = reinterpret_cast<void*>(slot->u1.Function);
      if (std::strcmp(plain, "GetProcAddress") == 0) original = reinterpret_cast<void*>(&LookUp);
      if (block->pretend_ordinary && std::strcmp(plain, "CheckTokenMembership") == 0) {
        original = reinterpret_cast<void*>(&NoMember);
      }
      Exchange(slot, Hooked(plain, original, false));
    }
  }
}

struct LoadedLibrary {
  ULONG flags;
  const UNICODE_STRING* path;
  const UNICODE_STRING* name;
  void* base;
  ULONG size;
};

// The loader's call between the binding of a library's imports and its first instruction.
void CALLBACK LibraryLoaded(ULONG reason, const LoadedLibrary* library, void*) {
  constexpr ULONG kLoaded = 1;
  constexpr wchar_t kName[] = L"wsc.dll";
  if (reason != kLoaded || library->name->Length != sizeof(kName) - sizeof(wchar_t)) return;
  if (_wcsnicmp(library->name->Buffer, kName, std::size(kName) - 1) != 0) return;
  HookImports(static_cast<BYTE*>(library->base));
}

}  // namespace

void* Hooked(const char* name, void* original, bool from_library_only) {
  const Function* const function = FindFailing(name);
  if (!function) {
    if (!ReasonNotToFail(name)) NoteUnlisted(name);
    if (!IsListedAsNeverCalled(name)) {
      Count(name);
      return original;
    }
  }
  const LONG number = InterlockedIncrement(&hook_count) - 1;
  void* const wrapper = WrapperFor(name, original);
  hooks[number] = {function, wrapper ? wrapper : original, Count(name), from_library_only,
                   std::strcmp(name, "CoInitializeEx") == 0};
  unsigned char* const place = code + number * kHookSize;
  place[0] = 0x68;  // push number
  std::memcpy(place + 1, &number, sizeof(number));
  place[5] = 0xE9;  // jmp SweepEnter
  const DWORD distance = reinterpret_cast<DWORD>(&SweepEnter) - reinterpret_cast<DWORD>(place + 10);
  std::memcpy(place + 6, &distance, sizeof(distance));
  return place;
}

void InstallHooks(ControlBlock& control) {
  block = &control;
  code = static_cast<unsigned char*>(
      VirtualAlloc(nullptr, (kMostHooks + 1) * kHookSize, MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
  using Register = NTSTATUS NTAPI(ULONG, void(CALLBACK*)(ULONG, const LoadedLibrary*, void*), void*, void**);
  auto* const notify = reinterpret_cast<Register*>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "LdrRegisterDllNotification")));
  void* cookie = nullptr;
  if (!notify || notify(0, &LibraryLoaded, nullptr, &cookie) != 0) {
    std::fprintf(stderr, "sweep_host: the loader does not tell of libraries\n");
    ExitProcess(ERROR_NOT_SUPPORTED);
  }
}

void EnterPhase(Phase phase) {
  for (LONG i = 0; i < block->functions; ++i) {
    Counted& counted = block->counted[i];
    counted.calls_before[static_cast<DWORD>(phase)] = counted.calls;
  }
  block->phase = phase;
}

}  // namespace crv::sweep
