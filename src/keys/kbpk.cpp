// The KBPK store: one key-block protection key per acquirer, in the device and in state files.
#include "keys/kbpk.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "base/caller.hpp"
#include "base/fd.hpp"
#include "base/io.hpp"
#include "base/ossl.hpp"
#include "base/paths.hpp"
#include "base/trust_anchor.hpp"
#include "device/sapi.hpp"
#include "keys/registry.hpp"
#include "keys/tr31.hpp"
#include "system/state_file.hpp"
#include "verify/signers.hpp"

namespace {

using KbpkFile = std::array<std::uint8_t, sapi::kbpk_file_size>;

// The trust-anchor flag of a KBPK request: 1 while the RKI anchor is the run's.
int rki_ca_flag() {
    return trust_anchor.get() == Anchor::rki ? 1 : 0;
}

std::string numbered(const char* prefix, int id) {
    std::array<char, 8> digits{};
    std::snprintf(digits.data(), digits.size(), "%04d", id);
    return std::string(prefix) + digits.data();
}

// Reads the caller's KBPK file (D3) into the buffer that goes to the device, so what is sent is
// what was read once.
Result<KbpkFile> kbpk_file_read(const char* path) {
    // Judged once already; a file swapped since then is refused in the same words.
    const Result<CallerFile> file = caller_open_to_verify(path, kbpk_size_rule);
    if (!file.ok()) {
        return file.status();
    }
    KbpkFile bytes{};
    if (read_full(file->fd.get(), bytes.data(), bytes.size()) != bytes.size()) {
        std::printf("Failed to read the KBPK file: %s\n", path);
        return ST_FAILURE;
    }
    return bytes;
}

// D6: the bytes about to reach the device must carry a signature whose role gives the same
// flags as the signer the command judged; anything else is a bad signature.
ExitStatus kbpk_bytes_signed(Signers& signers, const char* path, const KbpkFile& bytes,
                             std::uint16_t flags) {
    const Result<Signature> sig = sig_read(std::string(path) + ".sig");
    if (!sig.ok()) {
        return sig.status();
    }
    Sha256 sha;
    sha.update(bytes.data(), bytes.size());
    const std::optional<Digest> digest = sha.final();
    if (!digest) {
        openssl_failure();
        return ST_FAILURE;
    }
    const Result<Signer> signer = signers.find(*digest, *sig);
    if (!signer.ok()) {
        return signer.status();
    }
    if (kbpk_signer_flags(signer->cn) != flags) {
        std::puts("Signature check failed.");
        return ST_BAD_SIGNATURE;
    }
    return ST_OK;
}

// What carries a KBPK file to the device: the request and what its reply must hold.
struct KbpkFileSend {
    SapiRequest (*request)(std::uint8_t acquirer, std::uint16_t flags, int rki_ca,
                           std::span<const std::uint8_t, sapi::kbpk_file_size> file);
    const SapiReplyRule& reply;
};

// The file read once, its signer checked again on those very bytes, and they are what is sent.
SapiReply kbpk_file_exchange(Signers& signers, int id, std::uint16_t flags, const char* path,
                             const KbpkFileSend& send) {
    const Result<KbpkFile> bytes = kbpk_file_read(path);
    if (!bytes.ok()) {
        return bytes.status();
    }
    if (ExitStatus st = kbpk_bytes_signed(signers, path, *bytes, flags); st != ST_OK) {
        return st;
    }
    const auto acquirer = static_cast<std::uint8_t>(id);
    return sapi_exchange(send.request(acquirer, flags, rki_ca_flag(), *bytes), send.reply);
}

ExitStatus flag_file_write(int id, std::uint16_t flags) {
    const std::string text = kbpk_flag_text(flags);
    return state_file_replace(
        kbpk_flag_path(id),
        std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

}  // namespace

std::string kbpk_state_path(int id) {
    return numbered(paths::kbpk_state_prefix, id);
}

std::string kbpk_flag_path(int id) {
    return numbered(paths::kbpk_flag_prefix, id);
}

std::string kbpk_flag_text(std::uint16_t flags) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "%04X", static_cast<unsigned>(flags));
    return text.data();
}

std::uint16_t kbpk_flag_value(std::span<const char, 4> text) {
    std::array<char, 5> terminated{};
    std::copy(text.begin(), text.end(), terminated.begin());
    return static_cast<std::uint16_t>(std::strtoul(terminated.data(), nullptr, 16) & 0xFFFFU);
}

std::optional<std::uint16_t> kbpk_signer_flags(std::string_view role) {
    if (role == ids::app_user_name) {
        return std::nullopt;
    }
    return role == "HSM-PCI-PIN" ? sapi::flag_pci_pin : std::uint16_t{0};
}

bool kbpk_exists(int id) {
    return state_file_exists(kbpk_state_path(id));
}

Result<std::uint16_t> kbpk_flags_read(int id) {
    if (!state_file_exists(kbpk_flag_path(id))) {
        return std::uint16_t{0};
    }
    const Result<StateBytes> bytes = state_file_read(kbpk_flag_path(id));
    if (!bytes.ok() || !*bytes || (*bytes)->size() < 4) {
        return ST_FAILURE;
    }
    std::array<char, 4> text{};
    std::copy_n((*bytes)->begin(), text.size(), text.begin());
    return kbpk_flag_value(text);
}

ExitStatus kbpk_install_file(Signers& signers, int id, std::uint16_t flags, const char* path) {
    // A registry that cannot be read stops the install before the device holds the key (D25).
    const Result<Registry> registry = sha256_registry_load();
    if (!registry.ok()) {
        return registry.status();
    }
    const SapiReply r =
        kbpk_file_exchange(signers, id, flags, path, {sapi_kbpk_install_file, sapi_reply_kbpk});
    if (!r.ok()) {
        return r.status();
    }
    std::optional<KbpkReply> reply = sapi_parse_kbpk_reply(*r);
    if (!reply) {
        return ST_FAILURE;
    }
    // The registry comes before any file of ours, so a refused key leaves no trace in the store.
    if (ExitStatus st = sha256_hash_check(*registry, reply->key_digest, reply->second_digest);
        st != ST_OK) {
        return st;
    }
    // The KBPK file's presence is what says the acquirer has a KBPK, so it is written last: a run
    // cut short between the two never leaves a KBPK that a start-up would load without its flags
    // (D28). A FLAG file alone is read by nothing.
    if (ExitStatus st = flag_file_write(id, flags); st != ST_OK) {
        return st;
    }
    return state_file_replace(kbpk_state_path(id), reply->protected_kbpk);
}

ExitStatus kbpk_update_pci_pin_file(Signers& signers, int id, std::uint16_t flags,
                                    const char* path) {
    const SapiReply r = kbpk_file_exchange(signers, id, flags, path,
                                           {sapi_kbpk_update_pci_pin, sapi_reply_none});
    if (!r.ok()) {
        return r.status();
    }
    return flag_file_write(id, flags);
}

ExitStatus kbpk_install(int id, std::uint16_t flags,
                        std::span<const std::uint8_t, sapi::protected_kbpk_size> kbpk) {
    const auto acquirer = static_cast<std::uint8_t>(id);
    return sapi_exchange(sapi_kbpk_install_protected(acquirer, flags, rki_ca_flag(), kbpk),
                         sapi_reply_none)
        .status();
}

ExitStatus kbpk_remove(int id) {
    SapiReply r = sapi_exchange(sapi_kbpk_remove(static_cast<std::uint8_t>(id)), sapi_reply_none);
    if (!r.ok()) {
        return r.status();
    }
    // The KBPK file goes first, for the same reason it is written last (D28).
    if (::unlink(kbpk_state_path(id).c_str()) != 0) {
        std::printf("Failed to delete KBPK%04d.\n", id);
        return ST_FAILURE;
    }
    const std::string flag = kbpk_flag_path(id);
    if (state_file_exists(flag) && ::unlink(flag.c_str()) != 0) {
        std::printf("Failed to delete FLAG%04d.\n", id);
        return ST_FAILURE;
    }
    return ST_OK;
}
