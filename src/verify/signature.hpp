// Verifying a file's detached signature against the terminal's trusted signer certificates.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "base/caller.hpp"
#include "base/ossl.hpp"
#include "base/result.hpp"
#include "base/status.hpp"

inline constexpr std::size_t signature_size = 256;
inline constexpr std::size_t sha256_size = 32;

using Signature = std::array<std::uint8_t, signature_size>;
using Digest = std::array<std::uint8_t, sha256_size>;

// A signer that verified: its role (the certificate's common name), the signature bytes it was
// found by and its key. Verification helpers hand it out only inside a Result, so a signer is
// there exactly when the verdict was ST_OK.
struct Signer {
    std::string cn;
    Signature sig{};
    EvpPkeyPtr key;
};

// Checks path + ".sig" against path. ST_OK with the signer's common name, 7 for no trusted signer,
// 9 for anything else. Both files are read with the rights of `who`: the caller's for files the
// caller names (D3), root's for the terminal's own files (D27).
[[nodiscard]] Result<Signer> sig_verify(const char* path, OpenAs who = OpenAs::caller);

// As sig_verify, after "Invalid file: %s\n" and 1 for a path that does not exist.
[[nodiscard]] Result<Signer> file_verify(const char* path);

// As file_verify, and a file that verified stays held in held: the descriptor it was digested
// from, with the size and mode it had then. What is installed is copied from there (D6), so
// nothing the caller does to the name afterwards, such as a swap for a sparse file of exabytes,
// is ever read.
[[nodiscard]] Result<Signer> file_verify(const char* path, CallerFile& held);

// As sig_verify, for callers that only need the verdict.
[[nodiscard]] ExitStatus file_sig_verify(const char* path, OpenAs who = OpenAs::caller);

// As file_sig_verify, for a caller that has already opened path + ".sig" with the rights of `who`.
[[nodiscard]] ExitStatus file_sig_verify_opened(const char* path, int sig_fd, OpenAs who);

// A streaming SHA-256, for callers that digest bytes while they copy them (D6).
class Sha256 {
public:
    Sha256();

    // false after an OpenSSL failure; "FATAL: OpenSSL failure." is the caller's to print.
    [[nodiscard]] bool ok() const { return ok_; }
    void update(const void* data, std::size_t len);
    // The digest, or nothing after an OpenSSL failure.
    [[nodiscard]] std::optional<Digest> final();

private:
    EvpMdCtxPtr ctx_;
    bool ok_;
};

// Where a digested block goes first; false when it could not take it.
using BlockCopy = std::function<bool(const std::uint8_t* block, std::size_t length)>;

// The digest of exactly size bytes of fd, read in bulk blocks, each first handed to copy when one
// is given (D6: what is copied is what is digested). A short read prints read_failure, a block
// copy refused "FATAL: Failed to write a data block.", a digest failure "FATAL: OpenSSL failure.";
// each is 9.
[[nodiscard]] Result<Digest> digest_blocks(int fd, std::uint64_t size, const char* read_failure,
                                           const BlockCopy& copy = nullptr);

// The pieces, for callers that verify bytes they copied themselves (D6).
[[nodiscard]] Result<Signature> sig_read(const std::string& sig_path, OpenAs who = OpenAs::caller);
[[nodiscard]] Result<Signer> sig_find_signer(const Digest& digest, const Signature& sig);

// Whether the signer already found signed digest with the very signature bytes it was found by,
// for checking a copy without searching the candidates again (D6, D17).
[[nodiscard]] bool sig_matches(const Result<Signer>& signer, const Digest& digest);

// The candidate signers are read once per run; a change this run makes to their directories
// (a deletion, an install) must be announced so the next search reads them again.
void signer_cache_forget();
