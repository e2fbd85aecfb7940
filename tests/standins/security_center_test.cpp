#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/exceptions.h"
#include "control/registry.h"
#include "control/security_center_control.h"
#include "root/scoped_handle.h"
#include "support/redirected_hive.h"
#include "wsc/iwsc_product.h"

namespace crv::standins {

bool operator==(const Product& a, const Product& b) {
  return a.path == b.path && a.name == b.name && a.state == b.state && a.signatures_up_to_date == b.signatures_up_to_date;
}

}  // namespace crv::standins

namespace crv::test {
namespace {

using namespace standins;
using testing::ElementsAre;

constexpr HRESULT kNotRegistered = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
constexpr HRESULT kPending = E_PENDING;

// The library of the class, called without COM: the registry that it uses is the redirected one.
class SecurityCenter : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(library_);
    ASSERT_EQ(S_OK, Function<HRESULT(__stdcall*)(REFCLSID, REFIID, void**)>("DllGetClassObject")(
                        CLSID_WscIsv, IID_IClassFactory, reinterpret_cast<void**>(&factory_)));
  }
  void TearDown() override {
    if (factory_) factory_->Release();
    EXPECT_EQ(0, LiveObjects());
    EXPECT_EQ(S_OK, Function<HRESULT(__stdcall*)()>("DllCanUnloadNow")());
  }

  template <typename T>
  T Function(const char* name) {
    return reinterpret_cast<T>(reinterpret_cast<void*>(GetProcAddress(library_.get(), name)));
  }
  long LiveObjects() { return Function<long(__stdcall*)()>("LiveObjects")(); }

  template <typename Interface>
  Interface* Create(REFIID iid) {
    Interface* result = nullptr;
    EXPECT_EQ(S_OK, factory_->CreateInstance(nullptr, iid, reinterpret_cast<void**>(&result)));
    return result;
  }

  RedirectedHive hive_;
  root::ScopedModule library_{LoadLibraryW(L"security_center.dll")};
  IClassFactory* factory_ = nullptr;
  _bstr_t path_ = L"C:\\Program Files\\wsc_proxy.exe";
  _bstr_t name_ = L"Corvid Antivirus";
};

// The same steps for every kind, called through the slots that the product uses.
template <typename Interface, typename Update>
void LivesFromRegisterToUnregister(Interface* product, const wchar_t* kind, std::optional<DWORD> signatures, BSTR path, BSTR name,
                                   Update update) {
  using State = crv::wsc::ProductState;
  EXPECT_EQ(kNotRegistered, update(State::snoozed));
  EXPECT_EQ(kNotRegistered, product->Unregister());
  EXPECT_EQ(std::nullopt, ReadProduct(kind));
  EXPECT_EQ(S_OK, product->Register(path, name, FALSE, FALSE));
  EXPECT_EQ((Product{path, name, std::nullopt, std::nullopt}), ReadProduct(kind));
  EXPECT_EQ(S_OK, update(State::snoozed));
  EXPECT_EQ((Product{path, name, 2, signatures}), ReadProduct(kind));
  // Registering again forgets the state.
  const _bstr_t other = L"Another name";
  EXPECT_EQ(S_OK, product->Register(path, other, FALSE, FALSE));
  EXPECT_EQ((Product{path, L"Another name", std::nullopt, std::nullopt}), ReadProduct(kind));
  EXPECT_EQ(S_OK, product->Unregister());
  EXPECT_EQ(std::nullopt, ReadProduct(kind));
  EXPECT_EQ(0u, product->Release());
}

TEST_F(SecurityCenter, KeepsEachProductFromRegisterToUnregister) {
  auto* const av = Create<IWscAVStatus>(IID_IWscAVStatus);
  LivesFromRegisterToUnregister(av, L"IWscAVStatus", 1, path_, name_, [&](auto state) { return av->UpdateStatus(state, TRUE); });
  auto* const as = Create<IWscASStatus>(IID_IWscASStatus);
  LivesFromRegisterToUnregister(as, L"IWscASStatus", 0, path_, name_, [&](auto state) { return as->UpdateStatus(state, FALSE); });
  auto* const fw = Create<IWscFWStatus>(IID_IWscFWStatus);
  LivesFromRegisterToUnregister(fw, L"IWscFWStatus", std::nullopt, path_, name_, [&](auto state) { return fw->UpdateStatus(state); });
}

TEST_F(SecurityCenter, RefusesArgumentsThatMakeNoSense) {
  auto* const av = Create<IWscAVStatus>(IID_IWscAVStatus);
  // Not a string of SysAllocString: the length in front of it is another text's.
  struct {
    DWORD size = 2;
    wchar_t text[8] = L"longer";
  } no_bstr;
  const _bstr_t empty = L"";
  EXPECT_EQ(E_INVALIDARG, av->Register(nullptr, name_, FALSE, FALSE));
  EXPECT_EQ(E_INVALIDARG, av->Register(empty, name_, FALSE, FALSE));
  EXPECT_EQ(E_INVALIDARG, av->Register(path_, nullptr, FALSE, FALSE));
  EXPECT_EQ(E_INVALIDARG, av->Register(path_, empty, FALSE, FALSE));
  EXPECT_EQ(E_INVALIDARG, av->Register(path_, no_bstr.text, FALSE, FALSE));
  EXPECT_EQ(E_INVALIDARG, av->Register(path_, name_, TRUE, FALSE));
  EXPECT_EQ(E_INVALIDARG, av->Register(path_, name_, FALSE, TRUE));
  EXPECT_EQ(std::nullopt, ReadProduct(kAntiVirus));
  EXPECT_EQ(S_OK, av->Register(path_, name_, FALSE, FALSE));
  EXPECT_EQ(E_INVALIDARG, av->UpdateStatus(static_cast<wsc::ProductState>(4), TRUE));
  EXPECT_EQ(E_INVALIDARG, av->UpdateStatus(wsc::ProductState::on, 2));
  EXPECT_EQ(std::nullopt, ReadProduct(kAntiVirus)->state);
  av->Release();
}

TEST_F(SecurityCenter, AnswersAsScriptedAndWritesTheJournal) {
  auto* const av = Create<IWscAVStatus>(IID_IWscAVStatus);
  Script(L"IWscAVStatus.Register", {L"0x8000000a x2", L"0x80070005", L"0x00000001", L"ok"});
  for (const HRESULT expected : {kPending, kPending, E_ACCESSDENIED}) {
    EXPECT_EQ(expected, av->Register(path_, name_, FALSE, FALSE));
    EXPECT_EQ(std::nullopt, ReadProduct(kAntiVirus));  // a failure changes nothing
  }
  EXPECT_THAT(ScriptedAnswers(L"IWscAVStatus.Register"), ElementsAre(L"0x00000001", L"ok"));
  EXPECT_EQ(S_FALSE, av->Register(path_, name_, FALSE, FALSE));
  EXPECT_TRUE(ReadProduct(kAntiVirus));  // a scripted success is a success
  EXPECT_EQ(S_OK, av->Register(path_, name_, FALSE, FALSE));
  EXPECT_EQ(S_OK, av->Register(path_, name_, FALSE, FALSE));  // the list is used up

  Script(L"IWscAVStatus.UpdateStatus", {L"forever 0x8000000a", L"ok"});
  for (int i = 0; i < 1'001; ++i) ASSERT_EQ(kPending, av->UpdateStatus(wsc::ProductState::on, TRUE));
  EXPECT_EQ(std::nullopt, ReadProduct(kAntiVirus)->state);
  Script(L"IWscAVStatus.UpdateStatus", {});
  EXPECT_EQ(S_OK, av->UpdateStatus(wsc::ProductState::on, TRUE));
  av->Release();

  const std::wstring register_call =
      L"IWscAVStatus.Register(\"C:\\Program Files\\wsc_proxy.exe\", \"Corvid Antivirus\", 0, 0) = ";
  EXPECT_THAT(Calls(), ElementsAre(L"IWscAVStatus.Create() = 0x00000000", register_call + L"0x8000000a x2",
                                   register_call + L"0x80070005", register_call + L"0x00000001", register_call + L"0x00000000 x2",
                                   L"IWscAVStatus.UpdateStatus(0, 1) = 0x8000000a x1001",
                                   L"IWscAVStatus.UpdateStatus(0, 1) = 0x00000000"));
  ClearSecurityCenter();
  EXPECT_EQ(std::nullopt, ReadProduct(kAntiVirus));
  EXPECT_TRUE(Calls().empty());
}

TEST_F(SecurityCenter, JournalKeepsTheLast2000Lines) {
  std::vector<std::wstring> full;
  for (int i = 0; i < 2'000; ++i) full.push_back(L"call " + std::to_wstring(i));
  registry::WriteList(std::wstring(kSecurityCenterKey) + L"\\Journal", L"Calls", full);
  for (int i = 2'000; i < 2'003; ++i) AppendCall(L"call " + std::to_wstring(i));
  const std::vector<std::wstring> calls = Calls();
  ASSERT_EQ(2'000u, calls.size());
  EXPECT_EQ(L"call 3", calls.front());
  EXPECT_EQ(L"call 2002", calls.back());
}

TEST_F(SecurityCenter, ClassObjectFailsAsScriptedAndCountsWhatIsAlive) {
  const auto create = [&](REFIID iid, IUnknown** object) {
    *object = factory_;  // must be overwritten
    return factory_->CreateInstance(nullptr, iid, reinterpret_cast<void**>(object));
  };
  IUnknown* object = nullptr;
  Script(L"IWscFWStatus.Create", {L"0x80040154", L"null", L"0x00000001"});
  EXPECT_EQ(REGDB_E_CLASSNOTREG, create(IID_IWscFWStatus, &object));
  EXPECT_EQ(nullptr, object);
  EXPECT_EQ(S_OK, create(IID_IWscFWStatus, &object));
  EXPECT_EQ(nullptr, object);
  EXPECT_EQ(E_NOINTERFACE, create(IID_IDispatch, &object));
  EXPECT_EQ(0, LiveObjects());
  EXPECT_EQ(S_FALSE, create(IID_IWscFWStatus, &object));
  ASSERT_NE(nullptr, object);
  EXPECT_EQ(1, LiveObjects());

  IUnknown* same = nullptr;
  EXPECT_EQ(S_OK, object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&same)));
  EXPECT_EQ(object, same);
  EXPECT_EQ(E_NOINTERFACE, object->QueryInterface(IID_IWscAVStatus, reinterpret_cast<void**>(&same)));
  EXPECT_EQ(nullptr, same);
  EXPECT_EQ(1u, object->Release());
  EXPECT_EQ(S_FALSE, Function<HRESULT(__stdcall*)()>("DllCanUnloadNow")());
  EXPECT_EQ(0u, object->Release());
  EXPECT_EQ(CLASS_E_NOAGGREGATION, factory_->CreateInstance(factory_, IID_IWscAVStatus, reinterpret_cast<void**>(&object)));
}

TEST_F(SecurityCenter, ScriptsOnlyWhatExists) {
  EXPECT_THAT(ScriptNames(), testing::SizeIs(12));
  const struct {
    const wchar_t* name;
    const wchar_t* answer;
  } cases[] = {{L"IWscAVStatus.Enable", L"ok"},        {L"iwscavstatus.Create", L"ok"},      {L"IWscAVStatus.Create", L"maybe"},
               {L"IWscAVStatus.Create", L"0x"},        {L"IWscAVStatus.Create", L"0x8000g"}, {L"IWscAVStatus.Create", L"ok x0"},
               {L"IWscAVStatus.Unregister", L"null"}, {L"IWscAVStatus.Create", L"forever"}};
  for (const auto& c : cases) {
    try {
      Script(c.name, {L"ok", c.answer});
      ADD_FAILURE() << c.name << c.answer;
    } catch (const exceptions::fatal& error) {
      EXPECT_EQ(87u, error.code());
    }
  }
  for (const std::wstring& name : ScriptNames()) EXPECT_TRUE(ScriptedAnswers(name).empty());
}

TEST_F(SecurityCenter, RegistersItselfAsTheServerOfTheClass) {
  const std::wstring key = L"SOFTWARE\\Classes\\CLSID\\{F2102C37-90C3-450C-B3F6-92BE1693BDF2}";
  EXPECT_EQ(S_OK, Function<HRESULT(__stdcall*)()>("DllRegisterServer")());
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(library_.get(), path, MAX_PATH);
  EXPECT_EQ(path, registry::ReadText(key + L"\\InprocServer32", L""));
  EXPECT_EQ(L"Both", registry::ReadText(key + L"\\InprocServer32", L"ThreadingModel"));
  EXPECT_EQ(S_OK, Function<HRESULT(__stdcall*)()>("DllUnregisterServer")());
  EXPECT_FALSE(registry::KeyExists(key));
}

}  // namespace
}  // namespace crv::test
