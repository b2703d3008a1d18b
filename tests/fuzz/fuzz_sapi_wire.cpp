// Device replies as the security device might return them, and requests built around caller bytes.
#include <algorithm>
#include <span>

#include "device/sapi_wire.hpp"
#include "fuzz_check.hpp"

namespace {

using Bytes = std::span<const std::uint8_t>;

bool same_bytes(Bytes a, Bytes b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

// The payload length as the device reads it: four bytes, least significant first, written out
// here by place value rather than through the codec under test.
std::size_t length_field(const std::vector<std::uint8_t>& bytes) {
    return bytes[4] + bytes[5] * 0x100UL + bytes[6] * 0x10000UL + bytes[7] * 0x1000000UL;
}

// The header the device reads: command, tag, acquirer, reserved, then the payload length.
void check_encoding(const SapiRequest& request) {
    const std::vector<std::uint8_t> bytes = sapi_encode(request);
    FUZZ_CHECK(bytes.size() == sapi::header_size + request.payload.size());
    FUZZ_CHECK(bytes[0] == static_cast<std::uint8_t>(request.command));
    FUZZ_CHECK(bytes[1] == sapi::tag && bytes[2] == request.acquirer);
    FUZZ_CHECK(bytes[3] == 0 && length_field(bytes) == request.payload.size());
    FUZZ_CHECK(same_bytes(request.payload, Bytes(bytes).subspan(sapi::header_size)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Bytes reply(data, size);

    const auto kbpk = sapi_parse_kbpk_reply(reply);
    FUZZ_CHECK(kbpk.has_value() == (size == sapi::kbpk_reply_size));
    if (kbpk) {
        FUZZ_CHECK(same_bytes(kbpk->key_digest, reply.first(32)));
        FUZZ_CHECK(same_bytes(kbpk->second_digest, reply.subspan(32, 32)));
        FUZZ_CHECK(same_bytes(kbpk->protected_kbpk, reply.subspan(64, 32)));
    }
    // A read's count: -1 for a failed read.
    const auto count = static_cast<ssize_t>(size) - 1;
    FUZZ_CHECK(sapi_reply_accepted(count, sapi_reply_kbpk) == (count == 96));

    const bool fits = size <= sapi::block_size;
    const auto key = sapi_parse_key_reply(reply);
    FUZZ_CHECK(key.has_value() == (size >= key_reply_min && fits));
    if (key) {
        FUZZ_CHECK(same_bytes(key->key_digest, reply.first(32)));
        FUZZ_CHECK(same_bytes(key->protected_key, reply.subspan(key_reply_min)));
    }
    const auto terminal = sapi_parse_terminal_key_reply(reply);
    FUZZ_CHECK(terminal.has_value() == (size >= terminal_key_reply_min && fits));
    if (terminal) {
        FUZZ_CHECK(same_bytes(*terminal, reply.subspan(terminal_key_reply_min)));
    }
    // A key reply holds at least the part its sender takes apart, never nothing, and fits the
    // buffer it was read into.
    const std::size_t needed = size / 2;
    FUZZ_CHECK(sapi_reply_accepted(count, sapi_reply_key(needed)) ==
               (count >= 1 && static_cast<std::size_t>(count) >= needed &&
                static_cast<std::size_t>(count) <= sapi::block_size));

    // Caller bytes travel in requests: the key block, the subject, the rate-limit state.
    const std::uint8_t acquirer = size ? data[0] : 0;
    const auto install = sapi_key_install(acquirer, reply);
    FUZZ_CHECK(install.has_value() == (size <= sapi::key_block_max));
    if (install) {
        check_encoding(*install);
    }
    const std::string_view subject = fuzz_text(data, std::min<std::size_t>(acquirer, size));
    if (const auto request = sapi_key_issuer_init(subject, reply.subspan(subject.size()))) {
        FUZZ_CHECK(request->payload.at(0) == subject.size());
        check_encoding(*request);
    }
    if (const auto request = sapi_rate_limit_init(reply)) {
        check_encoding(*request);
    }
    if (size >= sapi::kbpk_file_size) {
        // The stored flags word as the request must carry it: bit 14 added unless the RKI anchor
        // is the run's.
        const auto flags = static_cast<std::uint16_t>(data[0] | (data[1] << 8));
        const int rki_ca = data[1] & 1;
        const SapiRequest request = sapi_kbpk_install_file(
            acquirer, flags, rki_ca,
            std::span<const std::uint8_t, sapi::kbpk_file_size>(data, sapi::kbpk_file_size));
        FUZZ_CHECK(request.payload.size() == sapi::kbpk_flags_size + sapi::kbpk_file_size);
        const unsigned sent = request.payload[0] | (request.payload[1] << 8);
        FUZZ_CHECK(sent == (flags | (rki_ca == 0 ? 0x4000U : 0U)));
        FUZZ_CHECK(same_bytes(Bytes(request.payload).subspan(sapi::kbpk_flags_size),
                              Bytes(data, sapi::kbpk_file_size)));
        check_encoding(request);
    }
    return 0;
}
