// RSA keys from raw numbers: the terminal's public key and the dummy signing keys.
#include "x509/rsa_keys.hpp"

#include <openssl/core_names.h>

#include <cstdio>
#include <optional>

#include "x509/dummy_keys.hpp"

namespace {

// The big-endian number behind a 16-bit big-endian length at pos; pos moves past it.
BignumPtr take_number(std::span<const std::uint8_t> block, std::size_t& pos) {
    if (block.size() < 2 || pos > block.size() - 2) {
        return nullptr;
    }
    const std::size_t length = (static_cast<std::size_t>(block[pos]) << 8) | block[pos + 1];
    pos += 2;
    if (length > block.size() - pos) {
        return nullptr;
    }
    BignumPtr value(BN_bin2bn(block.data() + pos, static_cast<int>(length), nullptr));
    pos += length;
    return value;
}

BignumPtr number(std::span<const std::uint8_t> big_endian) {
    return BignumPtr(BN_bin2bn(big_endian.data(), static_cast<int>(big_endian.size()), nullptr));
}

}  // namespace

Result<RsaNumbers> extract_rsa_key(std::span<const std::uint8_t> block) {
    RsaNumbers key;
    std::size_t pos = 0;
    key.n = take_number(block, pos);
    if (!key.n) {
        std::puts("Failed to get modulus");
        return ST_FAILURE;
    }
    key.e = take_number(block, pos);
    if (!key.e) {
        std::puts("Failed to get public exponent");
        return ST_FAILURE;
    }
    return key;
}

Result<RsaNumbers> x509_dummy_key(const BIGNUM* terminal_modulus) {
    RsaNumbers key;
    // The signature then has the length one made by a key of the terminal key's class would have.
    const int bits = BN_num_bits(terminal_modulus);
    const bool small = bits >= 1017 && bits <= 1024;
    key.n = small ? number(dummy_rsa_1024_n) : number(dummy_rsa_2048_n);
    key.d = small ? number(dummy_rsa_1024_d) : number(dummy_rsa_2048_d);
    key.e = number(dummy_rsa_e);
    if (!key.n || !key.d || !key.e) {
        return ST_FAILURE;
    }
    return key;
}

EvpPkeyPtr rsa_pkey(const RsaNumbers& key) {
    OsslParamBldPtr build(OSSL_PARAM_BLD_new());
    if (!build || !key.n || !key.e ||
        !OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_N, key.n.get()) ||
        !OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_E, key.e.get()) ||
        (key.d && !OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_D, key.d.get()))) {
        return nullptr;
    }
    OsslParamPtr params(OSSL_PARAM_BLD_to_param(build.get()));
    EvpPkeyCtxPtr ctx(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
    if (!params || !ctx || EVP_PKEY_fromdata_init(ctx.get()) <= 0) {
        return nullptr;
    }
    EVP_PKEY* made = nullptr;
    const int selection = key.d ? EVP_PKEY_KEYPAIR : EVP_PKEY_PUBLIC_KEY;
    if (EVP_PKEY_fromdata(ctx.get(), &made, selection, params.get()) <= 0) {
        return nullptr;
    }
    return EvpPkeyPtr(made);
}
