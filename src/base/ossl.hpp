// Owners for OpenSSL objects, so every object is released on every path.
#pragma once

#include <memory>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

template <auto F>
struct Deleter {
    void operator()(auto* p) const noexcept { F(p); }
};

using X509Ptr = std::unique_ptr<X509, Deleter<X509_free>>;
using EvpPkeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using EvpPkeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX_free>>;
using EvpMdCtxPtr = std::unique_ptr<EVP_MD_CTX, Deleter<EVP_MD_CTX_free>>;
using X509StorePtr = std::unique_ptr<X509_STORE, Deleter<X509_STORE_free>>;
using X509StoreCtxPtr = std::unique_ptr<X509_STORE_CTX, Deleter<X509_STORE_CTX_free>>;
using BioPtr = std::unique_ptr<BIO, Deleter<BIO_free_all>>;
