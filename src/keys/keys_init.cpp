// Reloading the device's key state at start-up: KBPKs, the terminal key with the terminal
// certificate's subject, and the saved rate-limit state.
#include "keys/keys_init.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/caller.hpp"
#include "base/dir_entries.hpp"
#include "base/fd.hpp"
#include "base/hex.hpp"
#include "base/io.hpp"
#include "base/ossl.hpp"
#include "base/paths.hpp"
#include "certs/cert_restore.hpp"
#include "device/sapi.hpp"
#include "keys/handlers.hpp"
#include "keys/kbpk.hpp"
#include "system/state_file.hpp"
#include "system/tools.hpp"
#include "verify/cert_chain.hpp"

namespace {

constexpr const char* nvram_kbpk0 = "KBPK0000";
constexpr const char* nvram_terminal_key = "TerminalKey";
constexpr std::string_view kbpk_state_name_prefix = ".KBPK";
constexpr std::size_t kbpk_state_name_size = 9;
constexpr std::size_t kbpk0_hex_size = 2 * sapi::protected_kbpk_size;
// The subject travels behind a one-byte length and was always taken into 255 bytes with its
// terminator; a longer one is refused, not cut (D11).
constexpr std::size_t subject_max = 254;

// An nvram value is its first line without its last character, the line end.
std::string nvram_value(std::string line) {
    if (!line.empty()) {
        line.pop_back();
    }
    return line;
}

// A KBPK taken from nvram gets no FLAG file, so PCI PIN security stays off for it.
ExitStatus kbpk0_restore() {
    Result<std::optional<std::string>> line = sys_nvram_get(nvram_kbpk0);
    if (!line.ok()) {
        return line.status();
    }
    if (!*line) {
        return ST_OK;
    }
    std::string value = nvram_value(std::move(**line));
    if (value.size() != kbpk0_hex_size || !hex2bin(value)) {
        return ST_FAILURE;
    }
    // Its state is a KBPK without a FLAG file: one that a removal cut short left behind must not
    // lend it its flags, so it goes before the KBPK file that commits the state (D28).
    if (const std::string flag = kbpk_flag_path(0);
        state_file_exists(flag) && ::unlink(flag.c_str()) != 0) {
        return ST_FAILURE;
    }
    // Written whole as a fresh root-owned file or not at all (D19).
    return state_file_replace(
        kbpk_state_path(0),
        std::span(reinterpret_cast<const std::uint8_t*>(value.data()), value.size()));
}

ExitStatus kbpk_reload(const char* name, int id) {
    const std::string path = std::string(paths::state_dir) + "/" + name;
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0 ||
        static_cast<std::uint64_t>(st.st_size) != sapi::protected_kbpk_size) {
        return ST_FAILURE;
    }
    // Only a KBPK the program itself stored goes to the device; anything else at the name ends
    // the restore like an unreadable one (D19).
    const Result<StateBytes> held = state_file_read(path);
    if (!held.ok() || !*held || (*held)->size() != sapi::protected_kbpk_size) {
        return ST_FAILURE;
    }
    sapi::ProtectedKbpk kbpk{};
    std::copy((*held)->begin(), (*held)->end(), kbpk.begin());
    const Result<std::uint16_t> flags = kbpk_flags_read(id);
    if (!flags.ok()) {
        return ST_FAILURE;
    }
    return kbpk_install(id, *flags, kbpk) == ST_OK ? ST_OK : ST_FAILURE;
}

Result<std::vector<std::uint8_t>> terminal_key_from(std::string value) {
    if (terminal_key_is_tr31(value)) {
        std::puts("Converting Terminal Key from TR-31 to OPK.");
        std::vector<std::uint8_t> key(value.begin(), value.end());
        if (tr2opk(key)) {
            return key;
        }
    } else if (hex2bin(value)) {
        return std::vector<std::uint8_t>(value.begin(), value.end());
    }
    std::puts("FATAL: Invalid Terminal Key.");
    return ST_FAILURE;
}

Result<std::string> terminal_subject() {
    const Result<X509Ptr> file = cert_read_reported(paths::terminal_cert);
    if (!file.ok()) {
        return file.status();
    }
    const OpensslStringPtr text(X509_NAME_oneline(X509_get_subject_name(file->get()), nullptr, 0));
    if (!text) {
        std::puts("FATAL: Out of memory.");
        return ST_FAILURE;
    }
    return std::string(text.get());
}

}  // namespace

bool terminal_key_is_tr31(std::string_view value) {
    constexpr std::string_view header = "K0RS00E";
    constexpr std::size_t at = 5;
    return value.size() >= at + header.size() && value.front() == 'B' &&
           value.substr(at, header.size()) == header;
}

std::optional<int> kbpk_state_name_id(std::string_view name) {
    if (name.size() != kbpk_state_name_size || !name.starts_with(kbpk_state_name_prefix)) {
        return std::nullopt;
    }
    std::array<std::uint8_t, 4> digits{};
    std::memcpy(digits.data(), name.data() + kbpk_state_name_prefix.size(), digits.size());
    if (!atobl(digits.data())) {
        return std::nullopt;
    }
    std::uint32_t id = 0;
    std::memcpy(&id, digits.data(), sizeof id);
    // The program names state files for acquirers 0 to 255 only; any other number is not one.
    if (id > 255) {
        return std::nullopt;
    }
    return static_cast<int>(id);
}

ExitStatus keys_init_kbpk() {
    if (!kbpk_exists(0)) {
        if (ExitStatus st = kbpk0_restore(); st != ST_OK) {
            return st;
        }
    }
    const std::optional<std::vector<std::string>> names = dir_entries(paths::state_dir);
    if (!names) {
        std::puts("FATAL: Directory listing failed.");
        return ST_FAILURE;
    }
    // The first state file that cannot be loaded ends the restore; later ones are not sent.
    for (const std::string& name : *names) {
        const std::optional<int> id = kbpk_state_name_id(name);
        if (!id) {
            continue;
        }
        if (ExitStatus st = kbpk_reload(name.c_str(), *id); st != ST_OK) {
            return st;
        }
    }
    return ST_OK;
}

ExitStatus keys_init_key_issuer() {
    // The terminal key is protected under acquirer 0's KBPK; without it there is nothing to load.
    if (!kbpk_exists(0)) {
        return ST_OK;
    }
    Result<std::optional<std::string>> line = sys_nvram_get(nvram_terminal_key);
    if (!line.ok()) {
        return line.status();
    }
    if (!*line) {
        return ST_OK;
    }
    const Result<std::vector<std::uint8_t>> key = terminal_key_from(nvram_value(std::move(**line)));
    if (!key.ok()) {
        return key.status();
    }
    const Result<std::string> subject = terminal_subject();
    if (!subject.ok()) {
        return subject.status();
    }
    std::printf("subj:%s\n", subject->c_str());
    if (subject->size() > subject_max) {
        return ST_FAILURE;
    }
    const std::optional<SapiRequest> request = sapi_key_issuer_init(*subject, *key);
    if (!request) {
        return ST_FAILURE;
    }
    return sapi_exchange(*request, sapi_reply_none).status();
}

bool tr2opk(std::vector<std::uint8_t>& key) {
    // A block the request cannot carry is refused before the device is asked (D10).
    if (key.size() > sapi::key_block_max) {
        return false;
    }
    const SapiReply r = sapi_key_install_exchange(0, key, KeyInstallSender::terminal_key);
    if (!r.ok()) {
        return false;
    }
    const std::optional<std::vector<std::uint8_t>> opk = sapi_parse_terminal_key_reply(*r);
    if (!opk) {
        return false;
    }
    std::string hex(2 * opk->size(), '\0');
    std::memcpy(hex.data(), opk->data(), opk->size());
    bin2hex(reinterpret_cast<std::uint8_t*>(hex.data()), hex.size());
    // Later starts take the hexadecimal path; whether nvram took it is not the start's concern.
    (void)sys_nvram_set(nvram_terminal_key, hex.c_str());
    (void)sys_nvram_commit();
    key = *opk;
    return true;
}

ExitStatus rate_limit_init() {
    struct stat st {};
    if (::lstat(paths::rate_limit_state, &st) != 0) {
        std::puts("FATAL: Failed to obtain file information.");
        return ST_FAILURE;
    }
    // Opened without blocking: whatever stands at the name, nothing can hold the start-up here.
    UniqueFd fd(::open(paths::rate_limit_state, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        std::puts("FATAL: Failed to open the rate limit state file.");
        return ST_FAILURE;
    }
    struct stat held {};
    const bool regular = ::fstat(fd.get(), &held) == 0 && S_ISREG(held.st_mode);
    const std::optional<std::vector<std::uint8_t>> state =
        regular ? read_whole(fd.get(), st.st_size) : std::nullopt;
    if (!state) {
        std::puts("Failed to read the rate limit state file.");
        return ST_FAILURE;
    }
    const std::optional<SapiRequest> request = sapi_rate_limit_init(*state);
    if (!request) {
        return ST_FAILURE;
    }
    return sapi_exchange(*request, sapi_reply_none).status();
}

ExitStatus cmd_keys_init(ChainStore& chains) {
    if (ExitStatus st = caller_check(CallerRule::root_only); st != ST_OK) {
        return st;
    }
    // Certificates first: the restore may bring back "terminal.crt" and decide the trust anchor
    // that the KBPK requests below carry in their flags.
    if (ExitStatus st = keys_init_cert(chains); st != ST_OK) {
        return st;
    }
    if (ExitStatus st = keys_init_kbpk(); st != ST_OK) {
        return st;
    }
    if (::access(paths::terminal_cert, F_OK) == 0) {
        if (ExitStatus st = keys_init_key_issuer(); st != ST_OK) {
            return st;
        }
    }
    if (state_file_exists(paths::rate_limit_state)) {
        return rate_limit_init();
    }
    return ST_OK;
}
