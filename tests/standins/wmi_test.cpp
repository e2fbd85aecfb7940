#include <comdef.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <wbemcli.h>

#include "control/registry.h"
#include "control/wmi_control.h"
#include "root/scoped_handle.h"
#include "support/redirected_hive.h"

namespace crv::test {
namespace {

using namespace standins;
using testing::ElementsAre;

_COM_SMARTPTR_TYPEDEF(IWbemLocator, __uuidof(IWbemLocator));
_COM_SMARTPTR_TYPEDEF(IWbemServices, __uuidof(IWbemServices));
_COM_SMARTPTR_TYPEDEF(IWbemClassObject, __uuidof(IWbemClassObject));

constexpr wchar_t kGuid[] = L"{01234567-89ab-cdef-0123-456789abcdef}";
constexpr HRESULT Code(WBEMSTATUS status) { return static_cast<HRESULT>(status); }

// The library of the locator class, called without COM: the registry that it uses is the redirected one.
class Wmi : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(library_);
    ASSERT_EQ(S_OK, Function<HRESULT(__stdcall*)(REFCLSID, REFIID, void**)>("DllGetClassObject")(
                        CLSID_WbemLocator, IID_IClassFactory, reinterpret_cast<void**>(&factory_)));
  }
  void TearDown() override {
    if (factory_) factory_->Release();
    EXPECT_EQ(0, Function<long(__stdcall*)()>("LiveObjects")());
    EXPECT_EQ(S_OK, Function<HRESULT(__stdcall*)()>("DllCanUnloadNow")());
  }

  template <typename T>
  T Function(const char* name) {
    return reinterpret_cast<T>(reinterpret_cast<void*>(GetProcAddress(library_.get(), name)));
  }

  HRESULT Create(IWbemLocatorPtr& locator) {
    return factory_->CreateInstance(nullptr, IID_IWbemLocator, reinterpret_cast<void**>(&locator));
  }
  HRESULT Connect(const wchar_t* name_space, IWbemServicesPtr& services, const wchar_t* user = nullptr) {
    IWbemLocatorPtr locator;
    const HRESULT result = Create(locator);
    if (FAILED(result) || !locator) return result;
    return locator->ConnectServer(_bstr_t(name_space), user ? _bstr_t(user).GetBSTR() : nullptr, nullptr, nullptr, 0, nullptr,
                                  nullptr, &services);
  }
  IWbemServicesPtr Connected(const wchar_t* name_space = L"root\\SecurityCenter2") {
    IWbemServicesPtr services;
    EXPECT_EQ(S_OK, Connect(name_space, services));
    return services;
  }
  static HRESULT Get(IWbemServices* services, const wchar_t* path, IWbemClassObjectPtr& object) {
    return services->GetObject(_bstr_t(path), 0, nullptr, &object, nullptr);
  }
  static IWbemClassObjectPtr Spawned(IWbemServices* services, const wchar_t* class_name) {
    IWbemClassObjectPtr definition;
    EXPECT_EQ(S_OK, Get(services, class_name, definition));
    IWbemClassObjectPtr instance;
    EXPECT_EQ(S_OK, definition->SpawnInstance(0, &instance));
    return instance;
  }
  static HRESULT Put(IWbemClassObject* instance, const wchar_t* name, _variant_t value, CIMTYPE type = 0) {
    return instance->Put(name, 0, &value, type);
  }
  static HRESULT Delete(IWbemServices* services, const std::wstring& path) {
    return services->DeleteInstance(_bstr_t(path.c_str()), 0, nullptr, nullptr);
  }

  RedirectedHive hive_;
  root::ScopedModule library_{LoadLibraryW(L"security_center_wmi.dll")};
  IClassFactory* factory_ = nullptr;
};

TEST_F(Wmi, KeepsOneInstancePerClassAndKeyFromPutToDelete) {
  const IWbemServicesPtr services = Connected();
  IWbemClassObjectPtr instance = Spawned(services, L"firewallPRODUCT");
  EXPECT_EQ(Code(WBEM_E_ILLEGAL_NULL), services->PutInstance(instance, 0, nullptr, nullptr)) << "the key is missing";
  EXPECT_EQ(S_OK, Put(instance, L"instanceGuid", kGuid));
  EXPECT_EQ(S_OK, Put(instance, L"DISPLAYNAME", L"First"));
  EXPECT_EQ(S_OK, Put(instance, L"enabled", true));
  EXPECT_TRUE(WmiInstances().empty()) << "an instance is the program's own until it is put";
  EXPECT_EQ(S_OK, services->PutInstance(instance, 0, nullptr, nullptr));
  const WmiProperties first = {{L"instanceGuid", kGuid}, {L"displayName", L"First"}, {L"enabled", true}};
  EXPECT_THAT(WmiInstances(), ElementsAre(WmiInstance{kNewNamespace, L"FirewallProduct", kGuid, first}));

  // Another process, another spelling: the instance as a whole is replaced.
  instance = Spawned(Connected(L"\\\\.\\ROOT/securitycenter2"), L"FirewallProduct");
  EXPECT_EQ(S_OK, Put(instance, L"instanceGuid", kGuid));
  EXPECT_EQ(S_OK, Put(instance, L"enabled", false));
  EXPECT_EQ(Code(WBEM_E_ALREADY_EXISTS), services->PutInstance(instance, WBEM_FLAG_CREATE_ONLY, nullptr, nullptr));
  EXPECT_EQ(S_OK, services->PutInstance(instance, 0, nullptr, nullptr));
  const WmiProperties second = {{L"instanceGuid", kGuid}, {L"enabled", false}};
  EXPECT_THAT(WmiInstances(), ElementsAre(WmiInstance{kNewNamespace, L"FirewallProduct", kGuid, second}));

  const std::wstring path = L"FirewallProduct.instanceGuid=\"" + std::wstring(kGuid) + L"\"";
  IWbemClassObjectPtr read;
  ASSERT_EQ(S_OK, Get(services, path.c_str(), read));
  _variant_t value;
  CIMTYPE type = 0;
  EXPECT_EQ(S_OK, read->Get(L"enabled", 0, &value, &type, nullptr));
  EXPECT_EQ(_variant_t(false), value);
  EXPECT_EQ(CIM_BOOLEAN, type);
  EXPECT_EQ(S_OK, read->Get(L"displayName", 0, &value, nullptr, nullptr));
  EXPECT_EQ(VT_NULL, V_VT(&value));

  EXPECT_EQ(Code(WBEM_E_NOT_FOUND), Delete(Connected(L"root\\SecurityCenter"), path)) << "the other namespace has its own";
  EXPECT_EQ(S_OK, Delete(services, path));
  EXPECT_TRUE(WmiInstances().empty());
  EXPECT_EQ(Code(WBEM_E_NOT_FOUND), Delete(services, path));
  EXPECT_EQ(Code(WBEM_E_NOT_FOUND), services->PutInstance(instance, WBEM_FLAG_UPDATE_ONLY, nullptr, nullptr));
}

TEST_F(Wmi, ChecksPropertiesAgainstTheSchema) {
  const IWbemServicesPtr services = Connected();
  const struct {
    const wchar_t* class_name;
    const wchar_t* property;
    _variant_t value;
    CIMTYPE type;
    HRESULT result;
  } cases[] = {
      {L"AntiVirusProduct", L"onAccessScanningEnabled", true, 0, S_OK},
      {L"AntiVirusProduct", L"onAccessScanningEnabled", true, CIM_BOOLEAN, S_OK},
      {L"AntiVirusProduct", L"productUptoDate", false, 0, S_OK},
      {L"AntiVirusProduct", L"versionNumber", L"1.2.3.4", CIM_STRING, S_OK},
      {L"AntiVirusProduct", L"versionNumber", L"", 0, S_OK},
      {L"AntiVirusProduct", L"productEnabled", true, 0, Code(WBEM_E_NOT_FOUND)},
      {L"AntiSpywareProduct", L"productEnabled", true, 0, S_OK},
      {L"AntiSpywareProduct", L"onAccessScanningEnabled", true, 0, Code(WBEM_E_NOT_FOUND)},
      {L"FirewallProduct", L"enabled", true, 0, S_OK},
      {L"FirewallProduct", L"productUptoDate", true, 0, Code(WBEM_E_NOT_FOUND)},
      {L"FirewallProduct", L"enabled", L"true", 0, Code(WBEM_E_TYPE_MISMATCH)},
      {L"FirewallProduct", L"enabled", 1L, 0, Code(WBEM_E_TYPE_MISMATCH)},
      {L"FirewallProduct", L"enabled", true, CIM_STRING, Code(WBEM_E_TYPE_MISMATCH)},
      {L"FirewallProduct", L"companyName", true, 0, Code(WBEM_E_TYPE_MISMATCH)},
      {L"FirewallProduct", L"companyName", _variant_t(), 0, Code(WBEM_E_TYPE_MISMATCH)},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.result, Put(Spawned(services, c.class_name), c.property, c.value, c.type)) << c.class_name << "." << c.property;
  }
  const IWbemClassObjectPtr instance = Spawned(services, L"FirewallProduct");
  VARIANT value = {};
  V_VT(&value) = VT_BOOL;
  V_BOOL(&value) = 1;
  EXPECT_EQ(Code(WBEM_E_INVALID_PARAMETER), instance->Put(L"enabled", 0, &value, 0)) << "true is -1";
  wchar_t no_bstr[] = L"\4\0longer";
  V_VT(&value) = VT_BSTR;
  V_BSTR(&value) = no_bstr + 2;
  EXPECT_EQ(Code(WBEM_E_INVALID_PARAMETER), instance->Put(L"companyName", 0, &value, 0)) << "not a string of SysAllocString";
  IWbemClassObjectPtr definition;
  EXPECT_EQ(S_OK, Get(services, L"FirewallProduct", definition));
  EXPECT_EQ(Code(WBEM_E_INVALID_OPERATION), Put(definition, L"enabled", true));
  EXPECT_EQ(Code(WBEM_E_INVALID_OBJECT), services->PutInstance(definition, 0, nullptr, nullptr));
}

TEST_F(Wmi, KnowsItsNamespacesAndClasses) {
  IWbemServicesPtr services;
  for (const wchar_t* const name : {L"root\\cimv2", L"root\\SecurityCenter3", L"SecurityCenter2", L""}) {
    EXPECT_EQ(Code(WBEM_E_INVALID_NAMESPACE), Connect(name, services)) << name;
  }
  EXPECT_EQ(Code(WBEM_E_LOCAL_CREDENTIALS), Connect(kNewNamespace, services, L"somebody"));
  const struct {
    const wchar_t* name_space;
    const wchar_t* path;
    HRESULT result;
  } cases[] = {{kNewNamespace, L"AntiSpywareProduct", S_OK},
               {kOldNamespace, L"AntiVirusProduct", S_OK},
               {kOldNamespace, L"FirewallProduct", S_OK},
               {kOldNamespace, L"AntiSpywareProduct", Code(WBEM_E_NOT_FOUND)},
               {kNewNamespace, L"AntiVirusProduct.instanceGuid=\"x\"", Code(WBEM_E_NOT_FOUND)},
               {kNewNamespace, L"AntiVirusProduct.", Code(WBEM_E_INVALID_OBJECT_PATH)}};
  for (const auto& c : cases) {
    IWbemClassObjectPtr object;
    EXPECT_EQ(c.result, Get(Connected(c.name_space), c.path, object)) << c.path;
  }
  EXPECT_EQ(E_NOTIMPL, Connected()->CreateInstanceEnum(_bstr_t(L"AntiVirusProduct"), 0, nullptr, nullptr));
}

TEST_F(Wmi, DeletesOnlyWhatAWholePathNames) {
  const WmiInstance instance = {kNewNamespace, L"AntiVirusProduct", L"a\"b", {{L"instanceGuid", L"a\"b"}}};
  const struct {
    const wchar_t* path;
    HRESULT result;
  } cases[] = {{L"AntiVirusProduct", Code(WBEM_E_INVALID_OBJECT_PATH)},
               {L"AntiVirusProduct.instanceGuid=a", Code(WBEM_E_INVALID_OBJECT_PATH)},
               {L"AntiVirusProduct.instanceGuid=\"a\"b\"", Code(WBEM_E_INVALID_OBJECT_PATH)},
               {L"AntiVirusProduct.instanceGuid=\"a", Code(WBEM_E_INVALID_OBJECT_PATH)},
               {L"AntiVirusProduct.displayName=\"a\\\"b\"", Code(WBEM_E_INVALID_OBJECT_PATH)},
               {L"AntiVirus Product.instanceGuid=\"a\\\"b\"", Code(WBEM_E_INVALID_OBJECT_PATH)},
               {L"OtherProduct.instanceGuid=\"a\\\"b\"", Code(WBEM_E_INVALID_CLASS)},
               {L"FirewallProduct.instanceGuid=\"a\\\"b\"", Code(WBEM_E_NOT_FOUND)},
               {L"AntiVirusProduct.instanceGuid=\"a\\\"b\"", S_OK}};
  WriteWmiInstance(instance);
  const IWbemServicesPtr services = Connected();
  for (const auto& c : cases) {
    EXPECT_EQ(c.result, Delete(services, c.path)) << c.path;
    EXPECT_EQ(FAILED(c.result), WmiInstances().size() == 1) << c.path;
  }
}

TEST_F(Wmi, FailsAtEveryStepAsScripted) {
  WriteWmiInstance({kNewNamespace, L"FirewallProduct", kGuid, {{L"instanceGuid", kGuid}}});
  const auto script = [](const wchar_t* call) { WmiCalls().Script(call, {L"0x80041001"}); };
  constexpr HRESULT kFailed = Code(WBEM_E_FAILED);
  IWbemServicesPtr services;
  for (const wchar_t* const call : {L"Create", L"ConnectServer"}) {
    script(call);
    EXPECT_EQ(kFailed, Connect(kNewNamespace, services)) << call;
    EXPECT_FALSE(services);
  }
  services = Connected();
  IWbemClassObjectPtr definition;
  script(L"GetObject");
  EXPECT_EQ(kFailed, Get(services, L"FirewallProduct", definition));
  EXPECT_FALSE(definition);
  EXPECT_EQ(S_OK, Get(services, L"FirewallProduct", definition));
  IWbemClassObjectPtr instance;
  script(L"SpawnInstance");
  EXPECT_EQ(kFailed, definition->SpawnInstance(0, &instance));
  EXPECT_FALSE(instance);
  EXPECT_EQ(S_OK, definition->SpawnInstance(0, &instance));
  script(L"Put");
  script(L"Put.enabled");
  EXPECT_EQ(kFailed, Put(instance, L"enabled", true)) << "its own answer";
  EXPECT_EQ(kFailed, Put(instance, L"enabled", true)) << "that of any property";
  EXPECT_EQ(S_OK, Put(instance, L"instanceGuid", kGuid));
  script(L"PutInstance");
  EXPECT_EQ(kFailed, services->PutInstance(instance, 0, nullptr, nullptr));
  script(L"DeleteInstance");
  EXPECT_EQ(kFailed, Delete(services, L"FirewallProduct.instanceGuid=\"" + std::wstring(kGuid) + L"\""));
  EXPECT_EQ(1u, WmiInstances().size()) << "a failure changes nothing";
  for (const wchar_t* const call : {L"Create", L"ConnectServer"}) {
    WmiCalls().Script(call, {L"null"});
    services = nullptr;
    EXPECT_EQ(S_OK, Connect(kNewNamespace, services)) << call;
    EXPECT_FALSE(services);
  }
}

TEST_F(Wmi, WritesTheJournal) {
  const IWbemClassObjectPtr instance = Spawned(Connected(), L"FirewallProduct");
  Put(instance, L"displayName", L"Name");
  Put(instance, L"Enabled", false);
  Delete(Connected(), L"FirewallProduct.instanceGuid=\"x\"");
  EXPECT_THAT(WmiCalls().Journal(),
              ElementsAre(L"Create() = 0x00000000", L"ConnectServer(\"root\\SecurityCenter2\") = 0x00000000",
                          L"GetObject(\"FirewallProduct\") = 0x00000000", L"SpawnInstance(FirewallProduct) = 0x00000000",
                          L"Put.displayName(\"Name\") = 0x00000000", L"Put.enabled(false) = 0x00000000", L"Create() = 0x00000000",
                          L"ConnectServer(\"root\\SecurityCenter2\") = 0x00000000",
                          L"DeleteInstance(\"FirewallProduct.instanceGuid=\"x\"\") = 0x80041002"));
}

TEST_F(Wmi, TakesThePlaceOfTheSystemsServerAndGivesItBack) {
  const std::wstring key = L"SOFTWARE\\Classes\\CLSID\\{4590F811-1D3A-11D0-891F-00AA004B2E24}\\InprocServer32";
  registry::WriteText(key, L"", L"system.dll");
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(library_.get(), path, MAX_PATH);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(S_OK, Function<HRESULT(__stdcall*)()>("DllRegisterServer")());
    EXPECT_EQ(path, registry::ReadText(key, L""));
  }
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(S_OK, Function<HRESULT(__stdcall*)()>("DllUnregisterServer")());
    EXPECT_EQ(L"system.dll", registry::ReadText(key, L""));
  }
}

}  // namespace
}  // namespace crv::test
