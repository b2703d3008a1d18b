// Verifying a file's detached signature against the terminal's trusted signer certificates.
#include "verify/signature.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include <openssl/err.h>
#include <openssl/pem.h>

#include "base/caller.hpp"
#include "base/io.hpp"
#include "base/ossl.hpp"
#include "base/paths.hpp"
#include "verify/x509_name.hpp"

namespace {


enum class Match { yes, no, failed, unlisted };

// The digest is computed once; every candidate key is tried against it, as the signing tool's
// "sign the SHA-256 of the file" would be checked.
bool key_matches(EVP_PKEY* key, const Digest& digest, const Signature& sig) {
    EvpPkeyCtxPtr ctx(EVP_PKEY_CTX_new(key, nullptr));
    if (!ctx || EVP_PKEY_verify_init(ctx.get()) != 1 ||
        EVP_PKEY_CTX_set_signature_md(ctx.get(), EVP_sha256()) != 1) {
        ERR_clear_error();
        return false;
    }
    bool ok = EVP_PKEY_verify(ctx.get(), sig.data(), sig.size(), digest.data(), digest.size()) == 1;
    ERR_clear_error();
    return ok;
}

// Tries one candidate file; prints and fails for anything that is not a readable certificate.
Match try_candidate(const std::string& path, const Digest& digest, const Signature& sig,
                    X509Ptr& signer) {
    FilePtr f(std::fopen(path.c_str(), "re"));
    if (!f) {
        std::puts("Failed to open certificate file.");
        return Match::failed;
    }
    X509Ptr cert(PEM_read_X509(f.get(), nullptr, nullptr, nullptr));
    if (!cert) {
        ERR_clear_error();
        std::puts("Failed to read certificate file.");
        return Match::failed;
    }
    EVP_PKEY* key = X509_get0_pubkey(cert.get());
    if (key == nullptr) {
        ERR_clear_error();
        std::puts("FATAL: OpenSSL failure.");
        return Match::failed;
    }
    if (!key_matches(key, digest, sig)) {
        return Match::no;
    }
    signer = std::move(cert);
    return Match::yes;
}

// Searches one directory in listing order; "skip" names an extra entry to pass over.
Match search_dir(const char* dir, const char* skip, const Digest& digest, const Signature& sig,
                 X509Ptr& signer) {
    DirPtr d(opendir(dir));
    if (!d) {
        std::puts("FATAL: Directory listing failed.");
        return Match::unlisted;
    }
    while (const dirent* e = readdir(d.get())) {
        const char* name = e->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0 ||
            (skip != nullptr && std::strcmp(name, skip) == 0) || std::strlen(name) > 256) {
            continue;
        }
        Match m = try_candidate(std::string(dir) + name, digest, sig, signer);
        if (m != Match::no) {
            return m;
        }
    }
    return Match::no;
}

// Digests exactly size bytes of fd in 4096-byte blocks, never holding the file.
ExitStatus digest_fd(int fd, off_t size, Digest& digest) {
    Sha256 sha;
    if (!sha.ok()) {
        std::puts("FATAL: OpenSSL failure.");
        return ST_FAILURE;
    }
    std::array<std::uint8_t, io_block> block;
    auto remaining = static_cast<std::uint64_t>(size);
    while (remaining > 0) {
        std::size_t want = remaining < block.size() ? remaining : block.size();
        if (read_full(fd, block.data(), want) != want) {
            std::puts("FATAL: Failed to read the block data.");
            return ST_FAILURE;
        }
        sha.update(block.data(), want);
        if (!sha.ok()) {
            std::puts("FATAL: OpenSSL failure.");
            return ST_FAILURE;
        }
        remaining -= want;
    }
    if (!sha.final(digest)) {
        std::puts("FATAL: OpenSSL failure.");
        return ST_FAILURE;
    }
    return ST_OK;
}

}  // namespace

Sha256::Sha256() : ctx_(EVP_MD_CTX_new()), ok_(false) {
    ok_ = ctx_ && EVP_DigestInit_ex(ctx_.get(), EVP_sha256(), nullptr) == 1;
}

void Sha256::update(const void* data, std::size_t len) {
    ok_ = ok_ && EVP_DigestUpdate(ctx_.get(), data, len) == 1;
}

bool Sha256::final(Digest& out) {
    unsigned int len = 0;
    ok_ = ok_ && EVP_DigestFinal_ex(ctx_.get(), out.data(), &len) == 1 && len == out.size();
    return ok_;
}

ExitStatus sig_read(const std::string& sig_path, Signature& sig) {
    if (!caller_access(sig_path.c_str(), R_OK)) {
        std::printf("Cannot access signature file: %s\n", sig_path.c_str());
        return ST_BAD_SIGNATURE;
    }
    UniqueFd fd = caller_open(sig_path.c_str(), O_RDONLY | O_NONBLOCK);
    if (!fd) {
        std::printf("Failed to open the signature file: %s\n", sig_path.c_str());
        return ST_FAILURE;
    }
    if (read_full(fd.get(), sig.data(), sig.size()) != sig.size()) {
        std::printf("Failed to read the signature file: %s\n", sig_path.c_str());
        return ST_FAILURE;
    }
    return ST_OK;
}

SignerResult sig_find_signer(const Digest& digest, const Signature& sig) {
    X509Ptr signer;
    // The certificate store is searched first, so an installed signer wins over a system one.
    Match m = search_dir(paths::cert_store, nullptr, digest, sig, signer);
    if (m == Match::failed || m == Match::unlisted) {
        return {ST_FAILURE, {}};
    }
    if (m == Match::no) {
        m = search_dir(paths::ssl_dir, paths::ssl_bundle_name, digest, sig, signer);
        if (m == Match::failed) {
            return {ST_FAILURE, {}};
        }
        if (m == Match::unlisted) {
            return {ST_BAD_SIGNATURE, {}};
        }
        if (m == Match::no) {
            std::puts("Signature check failed.");
            return {ST_BAD_SIGNATURE, {}};
        }
    }
    std::optional<std::string> cn = x509_subject_cn(signer.get());
    if (!cn) {
        std::puts("No common name found in certificate file.");
        return {ST_FAILURE, {}};
    }
    return {ST_OK, *cn};
}

SignerResult sig_verify(const char* path) {
    Signature sig{};
    if (ExitStatus st = sig_read(std::string(path) + ".sig", sig); st != ST_OK) {
        return {st, {}};
    }
    struct stat st {};
    if (caller_lstat(path, &st) != 0) {
        std::puts("FATAL: Failed to obtain file information.");
        return {ST_FAILURE, {}};
    }
    UniqueFd fd = caller_open(path, O_RDONLY | O_NONBLOCK);
    if (!fd) {
        std::puts("FATAL: Failed to open the file to verify.");
        return {ST_FAILURE, {}};
    }
    Digest digest{};
    if (ExitStatus s = digest_fd(fd.get(), st.st_size, digest); s != ST_OK) {
        return {s, {}};
    }
    fd.reset();
    return sig_find_signer(digest, sig);
}

SignerResult file_verify(const char* path) {
    if (!caller_access(path, F_OK)) {
        std::printf("Invalid file: %s\n", path);
        return {ST_BAD_ARGUMENT, {}};
    }
    return sig_verify(path);
}

ExitStatus file_sig_verify(const char* path) { return sig_verify(path).status; }
