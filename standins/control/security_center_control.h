// What the stand-in for Security Center's product class knows and how it is told to misbehave. Everything lies in the registry
// under HKLM, so it reaches every process. Failures to reach the registry throw crv::exceptions::error. Any thread, any process.
//
//   HKLM\SOFTWARE\Corvid Stand-ins\Security Center
//     Products\<interface>   exists while the product is registered
//       Path, Name           texts
//       State                DWORD, absent until the first UpdateStatus
//       SignaturesUpToDate   DWORD, the same; never there for the firewall
//     Script                 one list of answers per call, named "<interface>.<method>"
//     Journal
//       Calls                list, one line per call
//
// Calls are `Create` (the class object's answer when it is asked for the interface), `Register`, `Unregister`, `UpdateStatus`.
// Each call takes the first answer of its list and behaves normally once the list is empty. An answer is
//
//   ok            behave normally
//   0x8000000a    answer this code; a failure changes nothing, a success code is given after performing the call
//   null          Create only: succeed with a null interface pointer
//
// optionally with "forever " before it (never used up) or " xN" behind it (good for N calls).
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace crv::standins {

inline constexpr wchar_t kSecurityCenterKey[] = L"SOFTWARE\\Corvid Stand-ins\\Security Center";
inline constexpr wchar_t kSecurityCenterLock[] = L"Global\\Corvid Stand-ins Security Center";  // held by each call as a whole

inline constexpr wchar_t kAntiVirus[] = L"IWscAVStatus";
inline constexpr wchar_t kAntiSpyware[] = L"IWscASStatus";
inline constexpr wchar_t kFirewall[] = L"IWscFWStatus";
inline constexpr const wchar_t* kProductInterfaces[] = {kAntiVirus, kAntiSpyware, kFirewall};
inline constexpr const wchar_t* kProductCalls[] = {L"Create", L"Register", L"Unregister", L"UpdateStatus"};

struct Product {
  std::wstring path;
  std::wstring name;
  std::optional<DWORD> state;
  std::optional<DWORD> signatures_up_to_date;
};

std::optional<Product> ReadProduct(const std::wstring& interface_name);  // empty: not registered
void WriteProduct(const std::wstring& interface_name, const Product& product);
void RemoveProduct(const std::wstring& interface_name);

// The names that Script accepts: every interface with every call, "IWscAVStatus.Create" first.
std::vector<std::wstring> ScriptNames();

// Replaces the answers of one call; an empty list lets it behave normally. A name or an answer that is none throws
// crv::exceptions::fatal with code 87.
void Script(const std::wstring& name, const std::vector<std::wstring>& answers);
std::vector<std::wstring> ScriptedAnswers(const std::wstring& name);  // those still to come

// For the class: the answer that the call has to give now, used up.
struct Answer {
  std::optional<HRESULT> code;  // absent: behave normally
  bool null_pointer = false;
};
Answer TakeAnswer(const std::wstring& name);

// The journal: the last 2,000 lines, oldest first. A call that repeats the one before it adds to that line's " xN".
std::vector<std::wstring> Calls();
void AppendCall(const std::wstring& line);

void ClearSecurityCenter();  // products, scripts and journal

}  // namespace crv::standins
