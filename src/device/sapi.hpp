// The one exchange with the Security API device, and the one proc read and proc write.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/result.hpp"
#include "base/status.hpp"
#include "device/sapi_wire.hpp"

// The reply bytes of an exchange (none when the rule asked for none), or why there are none.
using SapiReply = Result<std::vector<std::uint8_t>>;

// One open of "/dev/sapi0", one write of the whole request, at most one read on the same
// descriptor, close. Prints the device messages on failure; 0, 9, or 14 for a working key whose
// install the device refuses with 252 (refusal pci_pin).
[[nodiscard]] SapiReply sapi_exchange(const SapiRequest& request, const SapiReplyRule& rule,
                                      SapiWriteRefusal refusal = SapiWriteRefusal::ordinary);

// Who sends a key install decides how much of the reply must be there and what 252 means.
enum class KeyInstallSender {
    key_file,      // a working key: digests and protected key, 252 is status 14
    terminal_key,  // the terminal key at start-up: 32 unused bytes and the protected key
};

// Sends one TR-31 key block and returns the device's raw reply. Callers refuse blocks over 4088
// bytes first with their own words (D10); such a block here ends with 9 and no message.
[[nodiscard]] SapiReply sapi_key_install_exchange(std::uint8_t acquirer,
                                                  std::span<const std::uint8_t> key_block,
                                                  KeyInstallSender sender);

// A record read from "/proc/sapi": bytes beyond length stay zero.
struct ProcRecord {
    std::array<std::uint8_t, sapi::block_size> bytes{};
    std::size_t length = 0;
};

enum class ProcReads { one, two };

// The record, or 9 without a message when the file cannot be opened, a read fails or nothing was
// read.
[[nodiscard]] Result<ProcRecord> sapi_proc_read(ProcReads reads = ProcReads::two);

// One write of the whole record; 9 without a message on any failure or a short write.
[[nodiscard]] ExitStatus sapi_proc_write(std::span<const std::uint8_t> record);
