// Detached signatures and the digests they sign: reading them and computing them.
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

// The 256 signature bytes of sig_path, read with the rights of `who`: the caller's for files the
// caller names (D3), root's for the terminal's own files (D27). 7 after "Cannot access signature
// file: %s\n" when it cannot be read, 9 when it cannot be opened or is short.
[[nodiscard]] Result<Signature> sig_read(const std::string& sig_path, OpenAs who = OpenAs::caller);

// As sig_read, from sig_path already opened as fd.
[[nodiscard]] Result<Signature> sig_read_opened(int fd, const std::string& sig_path);
