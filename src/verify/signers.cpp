// Who signed a file: the search among the terminal's trusted signer certificates, and the signer
// it found.
#include "verify/signers.hpp"

#include <unistd.h>

#include <cstdio>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include "base/dir_entries.hpp"
#include "base/path_rules.hpp"
#include "base/paths.hpp"
#include "base/shared.hpp"
#include "verify/x509_name.hpp"

namespace {

// What reading one candidate gave. A failure stops every search that reaches it, and is reported
// by each one that does.
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

// One candidate directory: its entries in listing order, or nothing when it cannot be listed.
struct Listing {
    bool listed = false;
    std::optional<std::vector<Candidate>> entries;
};

EvpPkeyCtxPtr make_verifier(EVP_PKEY* key) {
    EvpPkeyCtxPtr ctx(EVP_PKEY_CTX_new(key, nullptr));
    if (!ctx || EVP_PKEY_verify_init(ctx.get()) != 1 ||
        EVP_PKEY_CTX_set_signature_md(ctx.get(), EVP_sha256()) != 1) {
        ctx.reset();
    }
    ERR_clear_error();
    return ctx;
}

// D24 holds for RSA keys whose public exponent is at least 3: no signature verifies under two
// different ones unless it was forged for both, and below 3 such a forgery is practical.
bool key_allows_shortcut(const EVP_PKEY* key) {
    if (EVP_PKEY_is_a(key, "RSA") != 1) {
        return false;
    }
    BIGNUM* raw = nullptr;
    const bool read = EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &raw) == 1;
    const BignumPtr e(raw);
    ERR_clear_error();
    return read && (BN_num_bits(e.get()) > 2 || BN_get_word(e.get()) >= 3);
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

// Prints why a candidate cannot take part in a search; false for one that can.
bool report_read_failure(Read read) {
    switch (read) {
        case Read::unread:
        case Read::open_failed:
            std::puts("Failed to open certificate file.");
            return true;
        case Read::read_failed:
            std::puts("Failed to read certificate file.");
            return true;
        case Read::no_key:
            openssl_failure();
            return true;
        case Read::ok:
            break;
    }
    return false;
}

enum class Match { yes, no, failed, unlisted };

// Where a search ended, and with Match::yes the candidate that signed.
struct Search {
    Match match;
    Candidate* signer = nullptr;
};

// Whether path may have been one of the candidates: its directory is, or leads to, the store or
// "/usr/ssl/" (the sweep walks links, so a candidate can be deleted under another name).
bool may_be_candidate(const std::string& path) {
    const std::optional<std::string> dir = resolve_path(dir_part(path));
    if (!dir) {
        return true;
    }
    for (const char* candidates : {paths::cert_store, paths::ssl_dir}) {
        const std::optional<std::string> real = resolve_path(candidates);
        if (!real || *real == *dir) {
            return true;
        }
    }
    return false;
}

}  // namespace

struct Signers::State {
    Listing store;
    Listing system;
    // The candidate that verified the previous search (D24).
    Candidate* last = nullptr;
    // Set for the rest of the command once a candidate's key gives no D24 shortcut.
    bool in_order = false;
    // Candidates read before a deletion, kept by path for the listing made after it.
    std::map<std::string, Candidate> read_before;

    void list(const char* dir, const char* skip, Listing& listing);
    Search try_candidate(Candidate& c, const Digest& digest, const Signature& sig);
    Search search_dir(const char* dir, const char* skip, Listing& listing, const Digest& digest,
                      const Signature& sig, const Candidate* tried);
    Search search_in_order(const Digest& digest, const Signature& sig, const Candidate* tried);
};

// Lists dir; "skip" names an extra entry to pass over. A candidate already read keeps its reading.
void Signers::State::list(const char* dir, const char* skip, Listing& listing) {
    listing.listed = true;
    const std::optional<std::vector<std::string>> names = dir_entries(dir);
    if (!names) {
        return;
    }
    listing.entries.emplace();
    for (const std::string& name : *names) {
        if (skip != nullptr && name == skip) {
            continue;
        }
        std::string path = std::string(dir) + name;
        auto kept = read_before.find(path);
        if (kept != read_before.end()) {
            listing.entries->push_back(std::move(kept->second));
            read_before.erase(kept);
        } else {
            listing.entries->push_back(Candidate{std::move(path), Read::unread, nullptr, nullptr, {}});
        }
    }
}

// Tries one candidate; prints and fails for anything that is not a readable certificate.
Search Signers::State::try_candidate(Candidate& c, const Digest& digest, const Signature& sig) {
    if (c.read == Read::unread) {
        read_candidate(c);
        if (c.read == Read::ok && !key_allows_shortcut(X509_get0_pubkey(c.cert.get()))) {
            in_order = true;
        }
    }
    if (report_read_failure(c.read)) {
        return {Match::failed};
    }
    if (!verifies(c.verifier.get(), digest, sig)) {
        return {Match::no};
    }
    return {Match::yes, &c};
}

// A candidate already tried on this signature (read, and not verifying it) is passed over.
Search Signers::State::search_dir(const char* dir, const char* skip, Listing& listing,
                                  const Digest& digest, const Signature& sig,
                                  const Candidate* tried) {
    if (!listing.listed) {
        list(dir, skip, listing);
    }
    if (!listing.entries) {
        std::puts("FATAL: Directory listing failed.");
        return {Match::unlisted};
    }
    for (Candidate& c : *listing.entries) {
        if (&c == tried) {
            continue;
        }
        const Search s = try_candidate(c, digest, sig);
        if (s.match != Match::no) {
            return s;
        }
    }
    return {Match::no};
}

Search Signers::State::search_in_order(const Digest& digest, const Signature& sig,
                                       const Candidate* tried) {
    // The certificate store is searched first, so an installed signer wins over a system one.
    const Search s = search_dir(paths::cert_store, nullptr, store, digest, sig, tried);
    if (s.match != Match::no) {
        return s.match == Match::unlisted ? Search{Match::failed} : s;
    }
    return search_dir(paths::ssl_dir, paths::ssl_bundle_name, system, digest, sig, tried);
}

Signer::Signer(std::string role, const Signature& bytes, EvpPkeyPtr key)
    : cn(std::move(role)), sig(bytes), key_(std::move(key)) {}

bool Signer::signs(const Digest& digest) const {
    EvpPkeyCtxPtr verifier = make_verifier(key_.get());
    return verifies(verifier.get(), digest, sig);
}

Signers::Signers() : state_(std::make_unique<State>()) {}

Signers::~Signers() = default;

Result<Signer> Signers::find(const Digest& digest, const Signature& sig) {
    State& s = *state_;
    const Candidate* tried = s.in_order ? nullptr : s.last;
    Search found{Match::no};
    if (tried != nullptr && verifies(tried->verifier.get(), digest, sig)) {
        found = {Match::yes, s.last};
    } else {
        found = s.search_in_order(digest, sig, tried);
    }
    switch (found.match) {
        case Match::failed:
            return ST_FAILURE;
        case Match::unlisted:
            return ST_BAD_SIGNATURE;
        case Match::no:
            std::puts("Signature check failed.");
            return ST_BAD_SIGNATURE;
        case Match::yes:
            break;
    }
    Candidate& signer = *found.signer;
    s.last = &signer;
    if (!signer.cn) {
        signer.cn = x509_subject_cn(signer.cert.get());
    }
    if (!*signer.cn) {
        std::puts("No common name found in certificate file.");
        return ST_FAILURE;
    }
    EVP_PKEY* key = X509_get0_pubkey(signer.cert.get());
    if (key == nullptr || EVP_PKEY_up_ref(key) != 1) {
        ERR_clear_error();
        openssl_failure();
        return ST_FAILURE;
    }
    return Signer(**signer.cn, sig, EvpPkeyPtr(key));
}

void Signers::deleted(const std::string& path) {
    if (!may_be_candidate(path)) {
        return;
    }
    State& s = *state_;
    for (Listing* listing : {&s.store, &s.system}) {
        if (listing->entries) {
            for (Candidate& c : *listing->entries) {
                if (c.read != Read::unread) {
                    std::string path = c.path;
                    s.read_before.emplace(std::move(path), std::move(c));
                }
            }
        }
        *listing = Listing{};
    }
    s.last = nullptr;
}

Result<Signer> data_verify(Signers& signers, const char* path, const Signature& sig, OpenAs who,
                           CallerFile* held) {
    Result<CallerFile> file = caller_open_to_verify(path, nullptr, who);
    if (!file.ok()) {
        return file.status();
    }
    const Result<Digest> digest =
        digest_blocks(file->fd.get(), file->size, "FATAL: Failed to read the block data.");
    if (!digest.ok()) {
        return digest.status();
    }
    Result<Signer> signer = signers.find(*digest, sig);
    if (signer.ok() && held != nullptr) {
        *held = std::move(file.value());
    }
    return signer;
}

Result<Signer> file_verify(Signers& signers, const char* path, CallerFile* held) {
    if (!caller_access(path, F_OK)) {
        std::printf("Invalid file: %s\n", path);
        return ST_BAD_ARGUMENT;
    }
    const Result<Signature> sig = sig_read(std::string(path) + ".sig");
    if (!sig.ok()) {
        return sig.status();
    }
    return data_verify(signers, path, *sig, OpenAs::caller, held);
}
