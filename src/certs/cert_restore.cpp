// Restoring missing certificates from nvram, and the trust-anchor flag that follows from them.
#include "certs/cert_restore.hpp"

#include <unistd.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "base/paths.hpp"
#include "base/trust_anchor.hpp"
#include "base/status.hpp"
#include "certs/cert_install.hpp"
#include "base/hex.hpp"
#include "system/private_tmp.hpp"
#include "system/state_file.hpp"
#include "system/tools.hpp"
#include "verify/cert_chain.hpp"
#include "verify/x509_name.hpp"

namespace {

// The nvram store's values are hexadecimal text of at most this many characters (D11 keeps it).
constexpr std::size_t max_hex_text = 4096;
constexpr mode_t restored_file_mode = 0644;

// The temporary's name is the installed certificate's name: the installation takes it from there.
struct Restorable {
    const char* nvram_key;
    const char* installed;
    const char* name;
};

constexpr Restorable prod_sign{"ProdSignCert", paths::prod_sign_cert, paths::prod_sign_cert_name};
constexpr Restorable terminal{"TerminalCert", paths::terminal_cert, paths::terminal_cert_name};

// /tmp belongs to everyone, so the temporary lives in the run's own directory, where nothing a
// local user planted can redirect the write or stand in its way (D19).
ExitStatus write_temporary(const std::string& path, const std::string& bytes) {
    if (path.empty()) {
        return ST_FAILURE;
    }
    return state_file_replace(
        path, std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()),
        restored_file_mode);
}

// A value that is absent or malformed leaves the certificate missing; that is not an error.
ExitStatus restore(ChainStore& chains, const Restorable& cert) {
    Result<std::optional<std::string>> line = sys_nvram_get(cert.nvram_key);
    if (!line.ok()) {
        return line.status();
    }
    if (!*line) {
        return ST_OK;
    }
    const std::optional<std::string> bytes = cert_from_nvram_line(std::move(**line));
    if (!bytes) {
        return ST_OK;
    }
    const std::string temporary = private_tmp_path(cert.name);
    if (ExitStatus st = write_temporary(temporary, *bytes); st != ST_OK) {
        return st;
    }
    // The certificate goes through the ordinary installation, with every check it makes.
    return cert_install_offered(chains, temporary.c_str());
}

// The store is the program's own: whether a certificate is there must not depend on who asks.
bool stored(const Restorable& cert) {
    return access(cert.installed, F_OK) == 0;
}

}  // namespace

std::optional<std::string> cert_from_nvram_line(std::string line) {
    if (!line.empty()) {
        line.pop_back();
    }
    if (line.size() >= max_hex_text || !hex2bin(line)) {
        return std::nullopt;
    }
    return line;
}

ExitStatus keys_init_cert(ChainStore& chains) {
    if (!stored(prod_sign)) {
        if (ExitStatus st = restore(chains, prod_sign); st != ST_OK) {
            return st;
        }
        // Whatever the restore left in the store decides the anchor, as at the start of a run.
        trust_anchor.set(prod_sign_from_key_signing() ? Anchor::bundle : Anchor::rki);
    }
    if (!stored(terminal)) {
        if (ExitStatus st = restore(chains, terminal); st != ST_OK) {
            return st;
        }
    }
    return ST_OK;
}

bool prod_sign_from_key_signing() {
    const Result<X509Ptr> file = cert_read_file(paths::prod_sign_cert, OpenAs::root);
    if (file.status() != ST_OK) {
        return false;
    }
    const std::optional<std::string> issuer = x509_issuer_cn(file->get());
    return issuer && *issuer == "KeySigning";
}
