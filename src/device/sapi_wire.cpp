// The Security API device's wire format: request records, KBPK flags and the shape of replies.
#include "device/sapi_wire.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace {

constexpr int errno_pci_pin_disabled = 252;

SapiRequest kbpk_request(sapi::Command command, std::uint8_t acquirer, std::uint16_t flags,
                         int rki_ca, std::span<const std::uint8_t> kbpk) {
    SapiRequest r{command, acquirer, {}};
    r.payload.resize(sapi::kbpk_flags_size + kbpk.size());
    put_le16(std::span<std::uint8_t, 2>(r.payload.data(), 2), sapi_kbpk_flags(flags, rki_ca));
    std::copy(kbpk.begin(), kbpk.end(), r.payload.begin() + sapi::kbpk_flags_size);
    return r;
}

sapi::KeyDigest digest_at(std::span<const std::uint8_t> reply, std::size_t offset) {
    sapi::KeyDigest d{};
    std::copy_n(reply.begin() + static_cast<std::ptrdiff_t>(offset), d.size(), d.begin());
    return d;
}

}  // namespace

void put_le16(std::span<std::uint8_t, 2> out, std::uint16_t value) {
    out[0] = static_cast<std::uint8_t>(value & 0xFFU);
    out[1] = static_cast<std::uint8_t>(value >> 8);
}

void put_le32(std::span<std::uint8_t, 4> out, std::uint32_t value) {
    for (std::size_t i = 0; i < out.size(); ++i) {
        out[i] = static_cast<std::uint8_t>((value >> (8 * i)) & 0xFFU);
    }
}


std::vector<std::uint8_t> sapi_encode(const SapiRequest& request) {
    std::vector<std::uint8_t> out(sapi::header_size + request.payload.size());
    out[0] = static_cast<std::uint8_t>(request.command);
    out[1] = sapi::tag;
    out[2] = request.acquirer;
    out[3] = 0;
    put_le32(std::span<std::uint8_t, 4>(out.data() + 4, 4),
             static_cast<std::uint32_t>(request.payload.size()));
    std::copy(request.payload.begin(), request.payload.end(), out.begin() + sapi::header_size);
    return out;
}

std::uint16_t sapi_kbpk_flags(std::uint16_t stored, int rki_ca) {
    return rki_ca == 0 ? static_cast<std::uint16_t>(stored | sapi::flag_keysigning_ca) : stored;
}

SapiRequest sapi_kbpk_remove(std::uint8_t acquirer) {
    return SapiRequest{sapi::Command::kbpk_remove, acquirer, {}};
}

SapiRequest sapi_kbpk_install_file(std::uint8_t acquirer, std::uint16_t flags, int rki_ca,
                                   std::span<const std::uint8_t, sapi::kbpk_file_size> file) {
    return kbpk_request(sapi::Command::kbpk_install, acquirer, flags, rki_ca, file);
}

SapiRequest sapi_kbpk_install_protected(
    std::uint8_t acquirer, std::uint16_t flags, int rki_ca,
    std::span<const std::uint8_t, sapi::protected_kbpk_size> kbpk) {
    return kbpk_request(sapi::Command::kbpk_install, acquirer, flags, rki_ca, kbpk);
}

SapiRequest sapi_kbpk_update_pci_pin(std::uint8_t acquirer, std::uint16_t flags, int rki_ca,
                                     std::span<const std::uint8_t, sapi::kbpk_file_size> file) {
    return kbpk_request(sapi::Command::kbpk_update_pci_pin, acquirer, flags, rki_ca, file);
}

std::optional<SapiRequest> sapi_key_install(std::uint8_t acquirer,
                                            std::span<const std::uint8_t> key_block) {
    if (key_block.size() > sapi::key_block_max) {
        return std::nullopt;
    }
    return SapiRequest{sapi::Command::key_install, acquirer, {key_block.begin(), key_block.end()}};
}

std::optional<SapiRequest> sapi_key_issuer_init(std::string_view subject,
                                                std::span<const std::uint8_t> key) {
    if (subject.size() > std::numeric_limits<std::uint8_t>::max() ||
        key.size() > std::numeric_limits<std::uint32_t>::max() - 1 - subject.size()) {
        return std::nullopt;
    }
    SapiRequest r{sapi::Command::key_issuer_init, 0, {}};
    r.payload.reserve(1 + subject.size() + key.size());
    r.payload.push_back(static_cast<std::uint8_t>(subject.size()));
    r.payload.insert(r.payload.end(), subject.begin(), subject.end());
    r.payload.insert(r.payload.end(), key.begin(), key.end());
    return r;
}

std::optional<SapiRequest> sapi_rate_limit_init(std::span<const std::uint8_t> state) {
    if (state.size() > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    return SapiRequest{sapi::Command::rate_limit_init, 0, {state.begin(), state.end()}};
}

SapiReplyRule sapi_reply_key(std::size_t needed) {
    return SapiReplyRule{sapi::block_size, std::max<std::size_t>(needed, 1), sapi::block_size};
}

bool sapi_reply_accepted(ssize_t count, const SapiReplyRule& rule) {
    if (count < 0) {
        return false;
    }
    const auto n = static_cast<std::size_t>(count);
    return n >= rule.min && n <= rule.max;
}

SapiWriteFailure sapi_write_failure(sapi::Command command, int err, SapiWriteRefusal refusal) {
    if (command == sapi::Command::kbpk_remove) {
        return {false, ST_FAILURE};
    }
    if (refusal == SapiWriteRefusal::pci_pin && err == errno_pci_pin_disabled) {
        return {true, ST_PCI_PIN_DISABLED};
    }
    return {true, ST_FAILURE};
}

std::optional<KbpkReply> sapi_parse_kbpk_reply(std::span<const std::uint8_t> reply) {
    if (reply.size() != sapi::kbpk_reply_size) {
        return std::nullopt;
    }
    KbpkReply r;
    r.key_digest = digest_at(reply, 0);
    r.second_digest = digest_at(reply, sapi::digest_size);
    std::copy_n(reply.begin() + 2 * sapi::digest_size, r.protected_kbpk.size(),
                r.protected_kbpk.begin());
    return r;
}

std::optional<KeyReply> sapi_parse_key_reply(std::span<const std::uint8_t> reply) {
    if (reply.size() < key_reply_min || reply.size() > sapi::block_size) {
        return std::nullopt;
    }
    KeyReply r;
    r.key_digest = digest_at(reply, 0);
    r.second_digest = digest_at(reply, sapi::digest_size);
    r.protected_key.assign(reply.begin() + key_reply_min, reply.end());
    return r;
}

std::optional<std::vector<std::uint8_t>> sapi_parse_terminal_key_reply(
    std::span<const std::uint8_t> reply) {
    if (reply.size() < terminal_key_reply_min || reply.size() > sapi::block_size) {
        return std::nullopt;
    }
    return std::vector<std::uint8_t>(reply.begin() + terminal_key_reply_min, reply.end());
}
