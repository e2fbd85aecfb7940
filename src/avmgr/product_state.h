// The states in which the suite reports its products, and the words for them on the command line. The numbers are those of the
// Windows SDK's enumerations for Security Center. Calls no Windows function. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace crv::wsc {

enum class ProductState : std::uint32_t { on = 0, off = 1, snoozed = 2 };
enum class SignatureStatus : std::uint32_t { out_of_date = 0, up_to_date = 1 };

// The value of exactly this word ("on", "off", "snoozed"; "out_of_date", "up_to_date"). Any other word, the empty one included,
// throws `crv::exceptions::fatal` with code 160 and a message that names the word.
[[nodiscard]] ProductState to_prod_state(const std::wstring& word);
[[nodiscard]] SignatureStatus to_signature_status(const std::wstring& word);

}  // namespace crv::wsc
