// Placing certificates into the certificate store.
#include "certs/cert_install.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include <openssl/err.h>
#include <openssl/pem.h>

#include "base/caller.hpp"
#include "base/dir_entries.hpp"
#include "base/fd.hpp"
#include "base/ossl.hpp"
#include "base/path_rules.hpp"
#include "base/paths.hpp"
#include "base/run_lock.hpp"
#include "base/shared.hpp"
#include "base/trust_anchor.hpp"
#include "certs/cert_user.hpp"
#include "certs/handlers.hpp"
#include "system/osfs.hpp"
#include "system/staged_file.hpp"
#include "verify/cert_chain.hpp"
#include "verify/x509_name.hpp"

namespace {

constexpr mode_t installed_cert_mode = 0444;

// Nobody may sign with these through a certificate placed in the store.
bool reserved_cn(const std::string& cn) {
    return cn == "SuperRoot" || cn == "OperatingSystem";
}

// One PEM block of type CERTIFICATE: whatever else the source held stays behind.
bool write_pem(int fd, const X509* cert) {
    ERR_clear_error();
    BioPtr bio(BIO_new_fd(fd, BIO_NOCLOSE));
    const bool ok = bio && PEM_write_bio_X509(bio.get(), cert) == 1 && BIO_flush(bio.get()) == 1;
    ERR_clear_error();
    return ok;
}

// Another stored certificate under the same common name would make signers ambiguous.
ExitStatus scan_for_cn(const std::string& cn) {
    const std::optional<std::vector<std::string>> names = dir_entries(paths::cert_store);
    if (!names) {
        std::puts("FATAL: Directory listing failed.");
        return ST_FAILURE;
    }
    for (const std::string& name : *names) {
        const std::string entry = std::string(paths::cert_store) + name;
        const Result<std::string> stored = cert_read_cn(entry.c_str());
        if (!stored.ok()) {
            return stored.status();
        }
        if (*stored == cn) {
            std::printf("Certificate for %s already exists: %s\n", cn.c_str(), entry.c_str());
            return ST_CN_EXISTS;
        }
    }
    return ST_OK;
}

ExitStatus write_store_file(const std::string& destination, const X509* cert,
                            const std::optional<gid_t>& group) {
    StagedFile staged;
    if (!staged.valid()) {
        std::puts("Failed to open destination certificate file.");
        return ST_FAILURE;
    }
    if (!write_pem(staged.fd(), cert)) {
        std::puts("Failed to write destination certificate file.");
        return ST_FAILURE;
    }
    if (group && fchown(staged.fd(), ids::root, *group) != 0) {
        std::puts("Failed to set certificate user and group ID's.");
        return ST_FAILURE;
    }
    if (fchmod(staged.fd(), installed_cert_mode) != 0) {
        std::puts("Failed to set certificate permissions.");
        return ST_FAILURE;
    }
    if (!staged.publish(destination)) {
        std::puts("Failed to write destination certificate file.");
        return ST_FAILURE;
    }
    return ST_OK;
}

// The offered file is read once, with the caller's rights (D3), and verified against the run's
// anchor; everything after works on what was verified, however the file changes meanwhile (D6).
Result<X509Ptr> verify_offered(ChainStore& chains, const char* path) {
    ChainVerdict verdict = chains.verify(path, OpenAs::caller, trust_anchor.get());
    // Once a production-signing certificate from "KeySigning" is offered, the bundle anchors the
    // rest of the run, the KBPK requests' trust-anchor flag included.
    if (verdict.prod_sign_from_key_signing) {
        trust_anchor.set(Anchor::bundle);
    }
    return std::move(verdict.cert);
}

}  // namespace

std::string cert_destination(const std::string& path) {
    return std::string(paths::cert_store) + base_name(path);
}

Result<std::string> cert_install_verify(const char* path, const X509* cert) {
    // The offered certificate has been read and verified; what the store holds now decides the
    // install that follows, and no other run may change it in between (D22).
    shared_work();
    const std::string destination = cert_destination(path);
    if (ExitStatus st = dest_text_verify(destination.c_str(), destination); st != ST_OK) {
        return st;
    }
    if (caller_access(destination.c_str(), F_OK)) {
        std::printf("Destination certificate already exists: %s\n", destination.c_str());
        return ST_EXISTS;
    }
    Result<std::string> cn = cert_cn(cert);
    if (!cn.ok()) {
        return cn;
    }
    if (reserved_cn(*cn)) {
        std::puts("Invalid common name found in certificate file.");
        return ST_CERT_INVALID;
    }
    if (ExitStatus st = scan_for_cn(*cn); st != ST_OK) {
        return st;
    }
    return cn;
}

ExitStatus cert_install(const char* path, const X509* cert) {
    const std::string destination = cert_destination(path);
    const std::optional<std::string> cn = x509_subject_cn(cert);
    if (!cn) {
        std::puts("FATAL: No common name found in certificate file.");
        return ST_FAILURE;
    }
    const Result<std::optional<gid_t>> group = app_group_for(*cn);
    if (!group.ok()) {
        return group.status();
    }
    OsfsWritable writable;
    if (!writable.ok()) {
        return ST_FAILURE;
    }
    return write_store_file(destination, cert, *group);
}

ExitStatus cmd_cert_install_check(ChainStore& chains, const char* source) {
    const Result<X509Ptr> cert = verify_offered(chains, source);
    if (!cert.ok()) {
        return cert.status();
    }
    if (const Result<std::string> cn = cert_install_verify(source, cert->get()); !cn.ok()) {
        return cn.status();
    }
    std::puts("Certificate can be installed.");
    return ST_OK;
}

ExitStatus cert_install_offered(ChainStore& chains, const char* source) {
    const Result<X509Ptr> cert = verify_offered(chains, source);
    // A file that does not verify is deleted as the caller could delete it himself (D2).
    if (cert.status() == ST_CERT_INVALID && !caller_unlink(source)) {
        std::printf("Failed to delete invalid certificate: %s.\n", source);
    }
    if (!cert.ok()) {
        return cert.status();
    }
    const Result<std::string> cn = cert_install_verify(source, cert->get());
    if (!cn.ok()) {
        return cn.status();
    }
    if (ExitStatus st = cert_adduser_cn(*cn); st != ST_OK) {
        std::printf("Failed to add user for certificate: %s.\n", source);
        return st;
    }
    if (ExitStatus st = cert_install(source, cert->get()); st != ST_OK) {
        std::printf("Failed to install certificate: %s.\n", source);
        return st;
    }
    std::puts("Certificate installed.");
    return ST_OK;
}

ExitStatus cmd_cert_install(ChainStore& chains, const char* source) {
    return cert_install_offered(chains, source);
}
