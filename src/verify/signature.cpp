// Verifying a file's detached signature against the terminal's trusted signer certificates.
#include "verify/signature.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <openssl/err.h>
#include <openssl/pem.h>

#include "base/caller.hpp"
#include "base/dir_entries.hpp"
#include "base/io.hpp"
#include "base/ossl.hpp"
#include "base/paths.hpp"
#include "verify/x509_name.hpp"

namespace {

enum class Match { yes, no, failed, unlisted };

// What reading one candidate gave. A failure stops every search that reaches it, and is reported
// again each time one does.
enum class Read { unread, ok, open_failed, read_failed, no_key };

struct Candidate {
    std::string path;
    Read read = Read::unread;
    X509Ptr cert;
    // Prepared once: trying a candidate then costs one public-key operation. Null for a key that
    // cannot verify this kind of signature, which never matches.
    EvpPkeyCtxPtr verifier;
    // The subject common name, read the first time this candidate is the signer.
    std::optional<std::optional<std::string>> cn;
};

// The identity of a directory's listing; any entry added, removed or renamed changes it.
struct DirStamp {
    dev_t dev = 0;
    ino_t ino = 0;
    timespec mtime{};
    timespec ctime{};

    bool operator==(const DirStamp& o) const {
        return dev == o.dev && ino == o.ino && mtime.tv_sec == o.mtime.tv_sec &&
               mtime.tv_nsec == o.mtime.tv_nsec && ctime.tv_sec == o.ctime.tv_sec &&
               ctime.tv_nsec == o.ctime.tv_nsec;
    }
};

// One candidate directory as this run has read it: its entries in listing order, each read the
// first time a search reaches it (a search that matches early never opens the later ones).
struct CandidateDir {
    bool cached = false;
    bool listed = false;
    DirStamp stamp;
    std::vector<Candidate> entries;
};

struct SignerCache {
    CandidateDir store;
    CandidateDir system;
};

SignerCache& signer_cache() {
    static SignerCache cache;
    return cache;
}

std::optional<DirStamp> dir_stamp(const char* dir) {
    struct stat st {};
    if (stat(dir, &st) != 0) {
        return std::nullopt;
    }
    return DirStamp{st.st_dev, st.st_ino, st.st_mtim, st.st_ctim};
}

// Lists dir into cache; "skip" names an extra entry to pass over. A directory whose identity
// cannot be read is listed again at every search.
void list_dir(const char* dir, const char* skip, CandidateDir& cache) {
    const std::optional<DirStamp> stamp = dir_stamp(dir);
    if (cache.cached && stamp && *stamp == cache.stamp) {
        return;
    }
    cache = CandidateDir{};
    const std::optional<std::vector<std::string>> names = dir_entries(dir);
    cache.listed = names.has_value();
    if (names) {
        for (const std::string& name : *names) {
            if (skip == nullptr || name != skip) {
                cache.entries.push_back(
                    Candidate{std::string(dir) + name, Read::unread, nullptr, nullptr, {}});
            }
        }
    }
    if (stamp) {
        cache.cached = true;
        cache.stamp = *stamp;
    }
}

EvpPkeyCtxPtr make_verifier(EVP_PKEY* key) {
    EvpPkeyCtxPtr ctx(EVP_PKEY_CTX_new(key, nullptr));
    if (!ctx || EVP_PKEY_verify_init(ctx.get()) != 1 ||
        EVP_PKEY_CTX_set_signature_md(ctx.get(), EVP_sha256()) != 1) {
        ctx.reset();
    }
    ERR_clear_error();
    return ctx;
}

void read_candidate(Candidate& c) {
    FilePtr f(std::fopen(c.path.c_str(), "re"));
    if (!f) {
        c.read = Read::open_failed;
        return;
    }
    c.cert.reset(PEM_read_X509(f.get(), nullptr, nullptr, nullptr));
    if (!c.cert) {
        ERR_clear_error();
        c.read = Read::read_failed;
        return;
    }
    EVP_PKEY* key = X509_get0_pubkey(c.cert.get());
    if (key == nullptr) {
        ERR_clear_error();
        c.read = Read::no_key;
        return;
    }
    c.verifier = make_verifier(key);
    c.read = Read::ok;
}

// The digest is computed once; every candidate key is tried against it, as the signing tool's
// "sign the SHA-256 of the file" would be checked.
bool verifies(EVP_PKEY_CTX* verifier, const Digest& digest, const Signature& sig) {
    if (verifier == nullptr) {
        return false;
    }
    const bool ok =
        EVP_PKEY_verify(verifier, sig.data(), sig.size(), digest.data(), digest.size()) == 1;
    ERR_clear_error();
    return ok;
}

// Where a search ended, and with Match::yes the candidate that signed.
struct Search {
    Match match;
    Candidate* signer = nullptr;
};

// Tries one candidate; prints and fails for anything that is not a readable certificate.
Search try_candidate(Candidate& c, const Digest& digest, const Signature& sig) {
    if (c.read == Read::unread) {
        read_candidate(c);
    }
    switch (c.read) {
        case Read::unread:
        case Read::open_failed:
            std::puts("Failed to open certificate file.");
            return {Match::failed};
        case Read::read_failed:
            std::puts("Failed to read certificate file.");
            return {Match::failed};
        case Read::no_key:
            std::puts("FATAL: OpenSSL failure.");
            return {Match::failed};
        case Read::ok:
            break;
    }
    if (!verifies(c.verifier.get(), digest, sig)) {
        return {Match::no};
    }
    return {Match::yes, &c};
}

// Searches one directory in listing order.
Search search_dir(const char* dir, const char* skip, CandidateDir& cache, const Digest& digest,
                  const Signature& sig) {
    list_dir(dir, skip, cache);
    if (!cache.listed) {
        std::puts("FATAL: Directory listing failed.");
        return {Match::unlisted};
    }
    for (Candidate& c : cache.entries) {
        const Search s = try_candidate(c, digest, sig);
        if (s.match != Match::no) {
            return s;
        }
    }
    return {Match::no};
}

}  // namespace

Sha256::Sha256() : ctx_(EVP_MD_CTX_new()), ok_(false) {
    // Fetched once per run: the implicit fetch behind EVP_sha256() is paid at every digest.
    static const EvpMdPtr sha256(EVP_MD_fetch(nullptr, "SHA256", nullptr));
    ok_ = ctx_ && EVP_DigestInit_ex(ctx_.get(), sha256 ? sha256.get() : EVP_sha256(), nullptr) == 1;
}

void Sha256::update(const void* data, std::size_t len) {
    ok_ = ok_ && EVP_DigestUpdate(ctx_.get(), data, len) == 1;
}

std::optional<Digest> Sha256::final() {
    Digest out{};
    unsigned int len = 0;
    ok_ = ok_ && EVP_DigestFinal_ex(ctx_.get(), out.data(), &len) == 1 && len == out.size();
    if (!ok_) {
        return std::nullopt;
    }
    return out;
}

Result<Digest> digest_blocks(int fd, std::uint64_t size, const char* read_failure,
                             const BlockCopy& copy) {
    Sha256 sha;
    if (!sha.ok()) {
        std::puts("FATAL: OpenSSL failure.");
        return ST_FAILURE;
    }
    bool copied = true;
    const BlockFault fault = read_blocks(fd, size, [&](const std::uint8_t* block, std::size_t n) {
        copied = !copy || copy(block, n);
        if (copied) {
            sha.update(block, n);
        }
        return copied && sha.ok();
    });
    if (fault == BlockFault::read) {
        std::puts(read_failure);
        return ST_FAILURE;
    }
    if (!copied) {
        std::puts("FATAL: Failed to write a data block.");
        return ST_FAILURE;
    }
    // A digest that failed on a block stays failed, so its final answer covers that block too.
    const std::optional<Digest> digest = sha.final();
    if (!digest) {
        std::puts("FATAL: OpenSSL failure.");
        return ST_FAILURE;
    }
    return *digest;
}

Result<Signature> sig_read(const std::string& sig_path, OpenAs who) {
    // Opening first spares the access test on the usual path; a failed open is then told apart
    // exactly as before: unreadable for whoever judges, or readable but not openable.
    UniqueFd fd = caller_open(sig_path.c_str(), O_RDONLY | O_NONBLOCK, who);
    if (!fd) {
        if (!caller_access(sig_path.c_str(), R_OK, who)) {
            std::printf("Cannot access signature file: %s\n", sig_path.c_str());
            return ST_BAD_SIGNATURE;
        }
        std::printf("Failed to open the signature file: %s\n", sig_path.c_str());
        return ST_FAILURE;
    }
    Signature sig{};
    if (read_full(fd.get(), sig.data(), sig.size()) != sig.size()) {
        std::printf("Failed to read the signature file: %s\n", sig_path.c_str());
        return ST_FAILURE;
    }
    return sig;
}

Result<Signer> sig_find_signer(const Digest& digest, const Signature& sig) {
    SignerCache& cache = signer_cache();
    // The certificate store is searched first, so an installed signer wins over a system one.
    Search s = search_dir(paths::cert_store, nullptr, cache.store, digest, sig);
    if (s.match == Match::failed || s.match == Match::unlisted) {
        return ST_FAILURE;
    }
    if (s.match == Match::no) {
        s = search_dir(paths::ssl_dir, paths::ssl_bundle_name, cache.system, digest, sig);
        if (s.match == Match::failed) {
            return ST_FAILURE;
        }
        if (s.match == Match::unlisted) {
            return ST_BAD_SIGNATURE;
        }
        if (s.match == Match::no) {
            std::puts("Signature check failed.");
            return ST_BAD_SIGNATURE;
        }
    }
    Candidate* signer = s.signer;
    if (!signer->cn) {
        signer->cn = x509_subject_cn(signer->cert.get());
    }
    if (!*signer->cn) {
        std::puts("No common name found in certificate file.");
        return ST_FAILURE;
    }
    EVP_PKEY* key = X509_get0_pubkey(signer->cert.get());
    if (key == nullptr || EVP_PKEY_up_ref(key) != 1) {
        ERR_clear_error();
        std::puts("FATAL: OpenSSL failure.");
        return ST_FAILURE;
    }
    return Signer{**signer->cn, sig, EvpPkeyPtr(key)};
}

bool sig_matches(const Result<Signer>& signer, const Digest& digest) {
    if (!signer.ok() || !signer->key) {
        return false;
    }
    EvpPkeyCtxPtr verifier = make_verifier(signer->key.get());
    return verifies(verifier.get(), digest, signer->sig);
}

void signer_cache_forget() { signer_cache() = SignerCache{}; }

namespace {

// held, when given, keeps the file that verified.
Result<Signer> verify_signed_file(const char* path, const Signature& sig, OpenAs who,
                                  CallerFile* held = nullptr) {
    Result<CallerFile> file = caller_open_to_verify(path, nullptr, who);
    if (!file.ok()) {
        return file.status();
    }
    const Result<Digest> digest =
        digest_blocks(file->fd.get(), file->size, "FATAL: Failed to read the block data.");
    if (!digest.ok()) {
        return digest.status();
    }
    Result<Signer> signer = sig_find_signer(*digest, sig);
    if (signer.ok() && held != nullptr) {
        *held = std::move(file.value());
    }
    return signer;
}

}  // namespace

Result<Signer> sig_verify(const char* path, OpenAs who) {
    const Result<Signature> sig = sig_read(std::string(path) + ".sig", who);
    if (!sig.ok()) {
        return sig.status();
    }
    return verify_signed_file(path, *sig, who);
}

ExitStatus file_sig_verify_opened(const char* path, int sig_fd, OpenAs who) {
    Signature sig{};
    if (read_full(sig_fd, sig.data(), sig.size()) != sig.size()) {
        std::printf("Failed to read the signature file: %s.sig\n", path);
        return ST_FAILURE;
    }
    return verify_signed_file(path, sig, who).status();
}

Result<Signer> file_verify(const char* path) {
    CallerFile unused;
    return file_verify(path, unused);
}

Result<Signer> file_verify(const char* path, CallerFile& held) {
    if (!caller_access(path, F_OK)) {
        std::printf("Invalid file: %s\n", path);
        return ST_BAD_ARGUMENT;
    }
    const Result<Signature> sig = sig_read(std::string(path) + ".sig");
    if (!sig.ok()) {
        return sig.status();
    }
    return verify_signed_file(path, *sig, OpenAs::caller, &held);
}

ExitStatus file_sig_verify(const char* path, OpenAs who) {
    return sig_verify(path, who).status();
}
