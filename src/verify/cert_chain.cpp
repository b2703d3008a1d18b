// Certificate trust chains, and reading the common name that gives a certificate its role.
#include "verify/cert_chain.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <optional>

#include <openssl/err.h>
#include <openssl/pem.h>

#include "base/caller.hpp"
#include "base/fd.hpp"
#include "base/paths.hpp"
#include "base/shared.hpp"
#include "verify/x509_name.hpp"

namespace {

// The stored intermediates that join every verification while they are present.
struct Intermediate {
    const char* path;
    const char* cn;
};
constexpr Intermediate intermediates[] = {
    {paths::prod_sign_cert, "prod-sign"},
    {paths::keysign_main_user_cert, "keysign-main-user"},
};

UniqueFd open_cert(const char* path, OpenAs who) {
    if (who == OpenAs::caller) {
        return caller_open(path, O_RDONLY);
    }
    return UniqueFd(::open(path, O_RDONLY | O_CLOEXEC));
}

const char* default_anchor() {
    return orvin_rki_ca != 0 ? paths::anchor_rki : paths::anchor_bundle;
}

// A store holding the anchor file, and with the bundle the library's default locations too.
ExitStatus build_store(const char* anchor, X509StorePtr& store) {
    ERR_clear_error();
    store.reset(X509_STORE_new());
    if (!store) {
        std::puts("FATAL: OpenSSL failure: X509_STORE_new.");
        return ST_FAILURE;
    }
    if (X509_STORE_load_file(store.get(), anchor) != 1) {
        std::puts("FATAL: OpenSSL failure: X509_STORE_load_locations.");
        return ST_FAILURE;
    }
    if (std::strcmp(anchor, paths::anchor_bundle) == 0 &&
        X509_STORE_set_default_paths(store.get()) != 1) {
        std::puts("FATAL: OpenSSL failure: X509_STORE_set_default_paths.");
        return ST_FAILURE;
    }
    return ST_OK;
}

// A damaged intermediate fails every verification while it is present, so that a broken store
// is noticed (and swept) rather than silently trusted less.
ExitStatus add_intermediates(X509_STORE* store) {
    ExitStatus status = ST_OK;
    for (const Intermediate& i : intermediates) {
        if (access(i.path, F_OK) != 0) {
            continue;
        }
        X509Ptr cert;
        if (ExitStatus st = cert_verify_extend(i.path, cert, i.cn, store); st != ST_OK) {
            status = st;
        }
    }
    return status;
}

ExitStatus verify_chain(X509_STORE* store, X509* cert, ExitStatus status) {
    ERR_clear_error();
    X509StoreCtxPtr ctx(X509_STORE_CTX_new());
    if (!ctx || X509_STORE_CTX_init(ctx.get(), store, cert, nullptr) != 1) {
        std::puts("FATAL: OpenSSL failure: X509_STORE_CTX_init.");
        return ST_FAILURE;
    }
    if (status != ST_OK) {
        return status;
    }
    const int verified = X509_verify_cert(ctx.get());
    ERR_clear_error();
    return verified == 1 ? ST_OK : ST_CERT_INVALID;
}

void print_open_failure() {
    std::puts("FATAL: Failed to open certificate file.");
}

}  // namespace

CertFile cert_read_file(const char* path, OpenAs who) {
    UniqueFd fd = open_cert(path, who);
    if (!fd) {
        return {ST_CERT_UNREADABLE, nullptr};
    }
    ERR_clear_error();
    BioPtr bio(BIO_new_fd(fd.get(), BIO_NOCLOSE));
    X509Ptr cert(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    ERR_clear_error();
    if (!cert) {
        return {ST_CERT_INVALID, nullptr};
    }
    return {ST_OK, std::move(cert)};
}

const char* cert_verify_ca_file(const X509* cert) {
    const char* anchor = default_anchor();
    if (cert == nullptr) {
        return anchor;
    }
    const std::optional<std::string> issuer = x509_issuer_cn(cert);
    const std::optional<std::string> subject = x509_subject_cn(cert);
    if (!issuer || !subject) {
        return anchor;
    }
    // The application user's and the tamper service's certificates always chain to the bundle.
    if (*subject == "main-user" || *subject == "detamper") {
        return paths::anchor_bundle;
    }
    if (*issuer == "KeySigning" && *subject == "prod-sign") {
        orvin_rki_ca = 0;
        return paths::anchor_bundle;
    }
    return anchor;
}

ExitStatus cert_verify(const char* path, OpenAs who, X509Ptr& verified) {
    verified.reset();
    CertFile file = cert_read_file(path, who);
    X509StorePtr store;
    if (ExitStatus st = build_store(cert_verify_ca_file(file.cert.get()), store); st != ST_OK) {
        return st;
    }
    if (file.status == ST_CERT_UNREADABLE) {
        print_open_failure();
        return file.status;
    }
    if (file.status != ST_OK) {
        return file.status;
    }
    const ExitStatus status =
        verify_chain(store.get(), file.cert.get(), add_intermediates(store.get()));
    if (status == ST_OK) {
        verified = std::move(file.cert);
    }
    return status;
}

ExitStatus cert_verify(const char* path) {
    X509Ptr verified;
    return cert_verify(path, OpenAs::root, verified);
}

ExitStatus cert_verify_extend(const char* path, X509Ptr& cert, const char* cn, X509_STORE* store) {
    CertFile file = cert_read_file(path, OpenAs::root);
    if (file.status == ST_CERT_UNREADABLE) {
        print_open_failure();
        return file.status;
    }
    if (file.status != ST_OK) {
        return file.status;
    }
    const std::optional<std::string> subject = x509_subject_cn(file.cert.get());
    if (!subject) {
        std::puts("No common name found in certificate file.");
        return ST_FAILURE;
    }
    if (*subject == cn) {
        ERR_clear_error();
        if (X509_STORE_add_cert(store, file.cert.get()) != 1) {
            std::puts("FATAL: OpenSSL failure: X509_STORE_add_cert.");
            return ST_FAILURE;
        }
    }
    cert = std::move(file.cert);
    return ST_OK;
}

ExitStatus cert_read_cn(const char* path, std::string& cn, OpenAs who) {
    CertFile file = cert_read_file(path, who);
    if (file.status == ST_CERT_UNREADABLE) {
        print_open_failure();
        return file.status;
    }
    if (file.status != ST_OK) {
        std::puts("Failed to read certificate file.");
        return file.status;
    }
    return cert_cn(file.cert.get(), cn);
}

ExitStatus cert_cn(const X509* cert, std::string& cn) {
    std::optional<std::string> subject = x509_subject_cn(cert);
    if (!subject) {
        std::puts("No common name found in certificate file.");
        return ST_CERT_INVALID;
    }
    cn = std::move(*subject);
    return ST_OK;
}
