#include "sweep/interfaces.h"

#include <windows.h>
#include <wbemcli.h>

#include <cstring>

#include "sweep/hooks.h"

namespace crv::sweep {
namespace {

constexpr DWORD kMostSlots = 32;  // of a table of methods that are copied; the longest has 27
constexpr DWORD kMostTables = 24;
constexpr DWORD kTypeInformation = 2;  // words before the first slot

struct Method {
  DWORD slot;
  const char* name;
};

constexpr Method kAntiVirus[] = {
    {3, "IWscAVStatus.Register"}, {4, "IWscAVStatus.Unregister"}, {5, "IWscAVStatus.UpdateStatus"}, {0, nullptr}};
constexpr Method kAntiSpyware[] = {
    {3, "IWscASStatus.Register"}, {4, "IWscASStatus.Unregister"}, {5, "IWscASStatus.UpdateStatus"}, {0, nullptr}};
constexpr Method kFirewallProduct[] = {
    {3, "IWscFWStatus.Register"}, {4, "IWscFWStatus.Unregister"}, {5, "IWscFWStatus.UpdateStatus"}, {0, nullptr}};
constexpr Method kLocator[] = {{3, "IWbemLocator.ConnectServer"}, {0, nullptr}};
constexpr Method kServices[] = {
    {6, "IWbemServices.GetObject"}, {14, "IWbemServices.PutInstance"}, {16, "IWbemServices.DeleteInstance"}, {0, nullptr}};
constexpr Method kObject[] = {{5, "IWbemClassObject.Put"}, {15, "IWbemClassObject.SpawnInstance"}, {0, nullptr}};
constexpr Method kFirewall[] = {{20, "Firewall.Start"}, {0, nullptr}};

constexpr struct {
  IID iid;
  const Method* methods;
} kInterfaces[] = {
    {{0x3901A765, 0xAB91, 0x4BA9, {0xA5, 0x53, 0x5B, 0x85, 0x38, 0xDE, 0xB8, 0x40}}, kAntiVirus},
    {{0x024E9756, 0xBA6C, 0x4AD1, {0x83, 0x21, 0x87, 0xBA, 0xE7, 0x8F, 0xD0, 0xE3}}, kAntiSpyware},
    {{0x9B8F6C6E, 0x8A4A, 0x4891, {0xAF, 0x63, 0x1A, 0x2F, 0x50, 0x92, 0x40, 0x40}}, kFirewallProduct},
    {{0xDC12A687, 0x737F, 0x11CF, {0x88, 0x4D, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}}, kLocator},
};

// The tables of methods that objects got in place of their own, and the objects' own.
struct Table {
  void** own;
  const Method* methods;  // two interfaces may share a table of their own
  void* slots[kTypeInformation + kMostSlots];
};
Table tables[kMostTables];
DWORD table_count = 0;

// Gives the object a copy of its table of methods in which the named ones are hooked. Objects of one class share the copy.
void Wrap(void* object, const Method* methods) {
  if (!object) return;
  void**& table = *static_cast<void***>(object);
  for (DWORD i = 0; i < table_count; ++i) {
    if (table == tables[i].slots + kTypeInformation) return;
    if (table != tables[i].own || methods != tables[i].methods) continue;
    table = tables[i].slots + kTypeInformation;
    return;
  }
  Table& made = tables[table_count++];
  made.own = table;
  made.methods = methods;
  std::memcpy(made.slots, table - kTypeInformation, sizeof(made.slots));
  void** const slots = made.slots + kTypeInformation;
  for (const Method* method = methods; method->name; ++method)
    slots[method->slot] = Hooked(method->name, slots[method->slot], true);
  table = slots;
}

using Create = HRESULT WINAPI(const CLSID*, IUnknown*, DWORD, const IID*, void**);
Create* create = nullptr;
HRESULT WINAPI WrappedCreate(const CLSID* id, IUnknown* outer, DWORD context, const IID* iid, void** object) {
  const HRESULT result = create(id, outer, context, iid, object);
  if (FAILED(result)) return result;
  for (const auto& known : kInterfaces) {
    if (IsEqualIID(*iid, known.iid)) Wrap(*object, known.methods);
  }
  return result;
}

using Connect = HRESULT __stdcall(IWbemLocator*, BSTR, BSTR, BSTR, BSTR, LONG, BSTR, IWbemContext*, IWbemServices**);
Connect* connect = nullptr;
HRESULT __stdcall WrappedConnect(IWbemLocator* locator, BSTR name, BSTR user, BSTR password, BSTR locale, LONG flags,
                                 BSTR authority, IWbemContext* context, IWbemServices** services) {
  const HRESULT result = connect(locator, name, user, password, locale, flags, authority, context, services);
  if (SUCCEEDED(result)) Wrap(*services, kServices);
  return result;
}

using GetClass = HRESULT __stdcall(IWbemServices*, BSTR, LONG, IWbemContext*, IWbemClassObject**, IWbemCallResult**);
GetClass* get_class = nullptr;
HRESULT __stdcall WrappedGetClass(IWbemServices* services, BSTR path, LONG flags, IWbemContext* context,
                                  IWbemClassObject** object, IWbemCallResult** call) {
  const HRESULT result = get_class(services, path, flags, context, object, call);
  if (SUCCEEDED(result)) Wrap(*object, kObject);
  return result;
}

using Spawn = HRESULT __stdcall(IWbemClassObject*, LONG, IWbemClassObject**);
Spawn* spawn = nullptr;
HRESULT __stdcall WrappedSpawn(IWbemClassObject* object, LONG flags, IWbemClassObject** instance) {
  const HRESULT result = spawn(object, flags, instance);
  if (SUCCEEDED(result)) Wrap(*instance, kObject);
  return result;
}

using GetFirewall = DWORD __cdecl(DWORD, void**);
GetFirewall* get_firewall = nullptr;
DWORD __cdecl WrappedGetFirewall(DWORD argument, void** firewall) {
  const DWORD status = get_firewall(argument, firewall);
  if (status == 0) Wrap(*firewall, kFirewall);
  return status;
}

template <typename F>
void* Keep(F*& place, void* original, F* wrapper) {
  place = reinterpret_cast<F*>(original);
  return reinterpret_cast<void*>(wrapper);
}

}  // namespace

void* WrapperFor(const char* function, void* original) {
  const auto is = [&](const char* name) { return std::strcmp(function, name) == 0; };
  if (is("CoCreateInstance")) return Keep(create, original, &WrappedCreate);
  if (is("IWbemLocator.ConnectServer")) return Keep(connect, original, &WrappedConnect);
  if (is("IWbemServices.GetObject")) return Keep(get_class, original, &WrappedGetClass);
  if (is("IWbemClassObject.SpawnInstance")) return Keep(spawn, original, &WrappedSpawn);
  if (is("crvGetFirewall")) return Keep(get_firewall, original, &WrappedGetFirewall);
  return nullptr;
}

}  // namespace crv::sweep
