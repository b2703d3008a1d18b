// Reloading the device's key state at start-up: KBPKs, the terminal key with the terminal
// certificate's subject, and the saved rate-limit state.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "base/status.hpp"

// Restores ".KBPK0000" from nvram when missing, then sends every KBPK state file back to the
// device with the flags of its FLAG file. 0 or 9.
[[nodiscard]] ExitStatus keys_init_kbpk();

// Sends the protected terminal key with the terminal certificate's subject. 0, 2, 3 or 9.
[[nodiscard]] ExitStatus keys_init_key_issuer();

// Has the device turn a TR-31 terminal key into its protected form, which replaces key whole
// (D11) and, in hexadecimal, the nvram value. Whether it did.
[[nodiscard]] bool tr2opk(std::vector<std::uint8_t>& key);

// Sends the saved rate-limit state back to the device; the file stays. 0 or 9.
[[nodiscard]] ExitStatus rate_limit_init();

// Whether an nvram "TerminalKey" value is still a TR-31 key block: version "B" and the header
// fields "K0RS00E" from offset 5.
[[nodiscard]] bool terminal_key_is_tr31(std::string_view value);

// The acquirer of a KBPK state file name (".KBPK" and four digits), or nothing for any other name.
[[nodiscard]] std::optional<int> kbpk_state_name_id(std::string_view name);
