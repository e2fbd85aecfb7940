#include "avmgr/product_state.h"

#include "base/exceptions.h"

namespace crv::wsc {
namespace {

template <typename Value>
struct Word {
  const wchar_t* word;
  Value value;
};

constexpr Word<ProductState> kProductStates[] = {
    {L"on", ProductState::on},
    {L"off", ProductState::off},
    {L"snoozed", ProductState::snoozed},
};

constexpr Word<SignatureStatus> kSignatureStatuses[] = {
    {L"out_of_date", SignatureStatus::out_of_date},
    {L"up_to_date", SignatureStatus::up_to_date},
};

template <typename Value, std::size_t count>
const Value* Find(const Word<Value> (&table)[count], const std::wstring& word) {
  for (const Word<Value>& row : table) {
    if (word == row.word) return &row.value;
  }
  return nullptr;
}

}  // namespace

ProductState to_prod_state(const std::wstring& word) {
  if (const ProductState* const state = Find(kProductStates, word)) return *state;
  throw exceptions::fatal(exceptions::kBadArguments, "to_prod_state %ls", word.c_str());
}

SignatureStatus to_signature_status(const std::wstring& word) {
  if (const SignatureStatus* const status = Find(kSignatureStatuses, word)) return *status;
  throw exceptions::fatal(exceptions::kBadArguments, "to_signature_status %ls", word.c_str());
}

}  // namespace crv::wsc
