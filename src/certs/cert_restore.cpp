// Restoring missing certificates from nvram, and the trust-anchor flag that follows from them.
#include "certs/cert_restore.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "base/fd.hpp"
#include "base/io.hpp"
#include "base/paths.hpp"
#include "base/shared.hpp"
#include "base/status.hpp"
#include "certs/cert_install.hpp"
#include "base/hex.hpp"
#include "system/tools.hpp"
#include "verify/cert_chain.hpp"
#include "verify/x509_name.hpp"

namespace {

// The nvram store's values are hexadecimal text of at most this many characters (D11 keeps it).
constexpr std::size_t max_hex_text = 4096;
constexpr mode_t restored_file_mode = 0644;

struct Restorable {
    const char* nvram_key;
    const char* installed;
    const char* temporary;
};

constexpr Restorable prod_sign{"ProdSignCert", paths::prod_sign_cert, paths::tmp_prod_sign_cert};
constexpr Restorable terminal{"TerminalCert", paths::terminal_cert, paths::tmp_terminal_cert};

// /tmp belongs to everyone: whatever a local user left at the name goes first, and the new file is
// created exclusively, so a planted link can neither redirect nor pre-empt the write.
int write_temporary(const char* path, const std::string& bytes) {
    (void)unlink(path);
    UniqueFd fd(
        open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, restored_file_mode));
    if (!fd) {
        return ST_FAILURE;
    }
    if (write_full(fd.get(), bytes.data(), bytes.size()) != bytes.size()) {
        return ST_FAILURE;
    }
    return ST_OK;
}

// The certificate goes through the ordinary installation, with every check it makes.
int install_temporary(const char* path) {
    std::string name = "orvin-auth";
    std::string option = "--install-cert";
    std::string file = path;
    char* argv[] = {name.data(), option.data(), file.data(), nullptr};
    return cmd_cert_install(4, argv);
}

// A value that is absent or malformed leaves the certificate missing; that is not an error.
int restore(const Restorable& cert) {
    std::optional<std::string> line;
    if (sys_nvram_get(cert.nvram_key, line) != ST_OK) {
        return ST_FAILURE;
    }
    if (!line) {
        return ST_OK;
    }
    const std::optional<std::string> bytes = cert_from_nvram_line(std::move(*line));
    if (!bytes) {
        return ST_OK;
    }
    if (int st = write_temporary(cert.temporary, *bytes); st != ST_OK) {
        return st;
    }
    return install_temporary(cert.temporary);
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
    if (line.size() >= max_hex_text || hex2bin(line) != 1) {
        return std::nullopt;
    }
    return line;
}

int keys_init_cert() {
    if (!stored(prod_sign)) {
        if (int st = restore(prod_sign); st != ST_OK) {
            return st;
        }
        orvin_rki_ca = orvin_rki_ca_check();
    }
    if (!stored(terminal)) {
        if (int st = restore(terminal); st != ST_OK) {
            return st;
        }
    }
    return ST_OK;
}

int orvin_rki_ca_check() {
    const CertFile file = cert_read_file(paths::prod_sign_cert, OpenAs::root);
    if (file.status != ST_OK) {
        return 1;
    }
    const std::optional<std::string> issuer = x509_issuer_cn(file.cert.get());
    return issuer && *issuer == "KeySigning" ? 0 : 1;
}
