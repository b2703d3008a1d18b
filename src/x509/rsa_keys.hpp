// RSA keys from raw numbers: the terminal's public key from its record, and the dummy keys that
// sign on its behalf.
#pragma once

#include <cstdint>
#include <span>

#include "base/ossl.hpp"
#include "base/result.hpp"
#include "base/status.hpp"

// An RSA key as its numbers; d is empty for a public key.
struct RsaNumbers {
    BignumPtr n;
    BignumPtr e;
    BignumPtr d;
};

// The public key (n and e) in a key block: a 16-bit big-endian modulus length and the modulus,
// then the same for the exponent. A length of 0 gives the value 0. 9 after "Failed to get
// modulus" or "Failed to get public exponent" (also when a length runs past the block).
[[nodiscard]] Result<RsaNumbers> extract_rsa_key(std::span<const std::uint8_t> block);

// The dummy key of the terminal modulus's class: the 1024-bit one for a modulus of 1017 to 1024
// bits, the 2048-bit one for every other; or 9 without a message.
[[nodiscard]] Result<RsaNumbers> x509_dummy_key(const BIGNUM* terminal_modulus);

// The key as a library key object, public or private by whether d is there; null on failure.
[[nodiscard]] EvpPkeyPtr rsa_pkey(const RsaNumbers& key);
