// The Security API device's wire format: request records, KBPK flags and the shape of replies.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "base/status.hpp"

namespace sapi {

inline constexpr std::size_t header_size = 8;
inline constexpr std::uint8_t tag = 0xD1;

inline constexpr std::size_t digest_size = 32;
inline constexpr std::size_t kbpk_flags_size = 2;
inline constexpr std::size_t kbpk_file_size = 256;
inline constexpr std::size_t protected_kbpk_size = 32;
inline constexpr std::size_t kbpk_reply_size = 3 * digest_size;

// Key install requests and their replies share one buffer of this size; proc records fit it too.
inline constexpr std::size_t block_size = 4096;
inline constexpr std::size_t key_block_max = block_size - header_size;

inline constexpr std::size_t kbpk_file_request_size =
    header_size + kbpk_flags_size + kbpk_file_size;
inline constexpr std::size_t kbpk_protected_request_size =
    header_size + kbpk_flags_size + protected_kbpk_size;

static_assert(header_size == 8);
static_assert(kbpk_file_request_size == 266);
static_assert(kbpk_protected_request_size == 42);
static_assert(key_block_max == 4088);

inline constexpr std::uint16_t flag_pci_pin = 0x8000;
inline constexpr std::uint16_t flag_keysigning_ca = 0x4000;

// Every command the program sends to the device.
enum class Command : std::uint8_t {
    kbpk_remove = 0xB3,
    kbpk_install = 0xB4,
    key_install = 0xB7,
    key_issuer_init = 0xBE,
    rate_limit_init = 0xBF,
    kbpk_update_pci_pin = 0xC2,
};

using KeyDigest = std::array<std::uint8_t, digest_size>;
using ProtectedKbpk = std::array<std::uint8_t, protected_kbpk_size>;

}  // namespace sapi

// One request as the program means it; sapi_encode turns it into the bytes the device reads.
struct SapiRequest {
    sapi::Command command = sapi::Command::kbpk_remove;
    std::uint8_t acquirer = 0;
    std::vector<std::uint8_t> payload;
};

// Little-endian fields, the only byte order the device speaks.
void put_le16(std::span<std::uint8_t, 2> out, std::uint16_t value);
void put_le32(std::span<std::uint8_t, 4> out, std::uint32_t value);

// Header then payload, exactly 8 + payload bytes. Builders below keep payloads within 32 bits.
[[nodiscard]] std::vector<std::uint8_t> sapi_encode(const SapiRequest& request);

// The flags as sent: the stored word plus bit 14 while the production signer comes from
// "KeySigning" (rki_ca 0). Bit 14 is never stored, so it follows the trust anchor of this run.
[[nodiscard]] std::uint16_t sapi_kbpk_flags(std::uint16_t stored, int rki_ca);

[[nodiscard]] SapiRequest sapi_kbpk_remove(std::uint8_t acquirer);
[[nodiscard]] SapiRequest sapi_kbpk_install_file(
    std::uint8_t acquirer, std::uint16_t flags, int rki_ca,
    std::span<const std::uint8_t, sapi::kbpk_file_size> file);
[[nodiscard]] SapiRequest sapi_kbpk_install_protected(
    std::uint8_t acquirer, std::uint16_t flags, int rki_ca,
    std::span<const std::uint8_t, sapi::protected_kbpk_size> kbpk);
[[nodiscard]] SapiRequest sapi_kbpk_update_pci_pin(
    std::uint8_t acquirer, std::uint16_t flags, int rki_ca,
    std::span<const std::uint8_t, sapi::kbpk_file_size> file);
// nullopt for a key block over 4088 bytes: it would not fit the shared request buffer.
[[nodiscard]] std::optional<SapiRequest> sapi_key_install(std::uint8_t acquirer,
                                                          std::span<const std::uint8_t> key_block);
// nullopt for a subject over 255 characters, whose length would not fit its one-byte field.
[[nodiscard]] std::optional<SapiRequest> sapi_key_issuer_init(std::string_view subject,
                                                              std::span<const std::uint8_t> key);
// nullopt for a state too long for the 32-bit length field.
[[nodiscard]] std::optional<SapiRequest> sapi_rate_limit_init(std::span<const std::uint8_t> state);

// What the program reads after a request: how much it asks for, and the counts it accepts.
struct SapiReplyRule {
    std::size_t ask = 0;  // 0: nothing is read
    std::size_t min = 0;
    std::size_t max = 0;
};

inline constexpr SapiReplyRule sapi_reply_none{};
inline constexpr SapiReplyRule sapi_reply_kbpk{sapi::kbpk_reply_size, sapi::kbpk_reply_size,
                                               sapi::kbpk_reply_size};
// A key install reply shorter than the part its sender takes apart is as good as none.
[[nodiscard]] SapiReplyRule sapi_reply_key(std::size_t needed);

// Whether the count one read returned meets the rule.
[[nodiscard]] bool sapi_reply_accepted(ssize_t count, const SapiReplyRule& rule);

// How a failed write of a request is reported.
enum class SapiWriteRefusal {
    ordinary,
    pci_pin,  // a working key's install: the device refuses it with 252 when PCI PIN security is
              // off
};
struct SapiWriteFailure {
    bool with_code = true;  // "...failed with code 0x%02X.\n" or the plain remove message
    ExitStatus status = ST_FAILURE;
};
[[nodiscard]] SapiWriteFailure sapi_write_failure(sapi::Command command, int err,
                                                  SapiWriteRefusal refusal);

// The reply to a KBPK file install: exactly 96 bytes.
struct KbpkReply {
    sapi::KeyDigest key_digest{};
    sapi::KeyDigest second_digest{};
    sapi::ProtectedKbpk protected_kbpk{};
};
[[nodiscard]] std::optional<KbpkReply> sapi_parse_kbpk_reply(std::span<const std::uint8_t> reply);

// The reply to a working key install: two digests, then the protected key (at least 64 bytes).
struct KeyReply {
    sapi::KeyDigest key_digest{};
    sapi::KeyDigest second_digest{};
    std::vector<std::uint8_t> protected_key;
};
inline constexpr std::size_t key_reply_min = 2 * sapi::digest_size;
[[nodiscard]] std::optional<KeyReply> sapi_parse_key_reply(std::span<const std::uint8_t> reply);

// The reply to the terminal key's install: 32 unused bytes, then the protected terminal key.
inline constexpr std::size_t terminal_key_reply_min = sapi::digest_size;
[[nodiscard]] std::optional<std::vector<std::uint8_t>> sapi_parse_terminal_key_reply(
    std::span<const std::uint8_t> reply);
