// Owners for OpenSSL objects, so every object is released on every path.
#pragma once

#include <cstdio>
#include <memory>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "owners.hpp"

inline void x509_extensions_free(STACK_OF(X509_EXTENSION) * list) {
    sk_X509_EXTENSION_pop_free(list, X509_EXTENSION_free);
}

inline void openssl_string_free(char* text) {
    OPENSSL_free(text);
}

// Keys, digests and their contexts.
using EvpPkeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using EvpPkeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX_free>>;
using EvpMdPtr = std::unique_ptr<EVP_MD, Deleter<EVP_MD_free>>;
using EvpMdCtxPtr = std::unique_ptr<EVP_MD_CTX, Deleter<EVP_MD_CTX_free>>;
using BignumPtr = std::unique_ptr<BIGNUM, Deleter<BN_free>>;
using OsslParamBldPtr = std::unique_ptr<OSSL_PARAM_BLD, Deleter<OSSL_PARAM_BLD_free>>;
using OsslParamPtr = std::unique_ptr<OSSL_PARAM, Deleter<OSSL_PARAM_free>>;

// Certificates, requests and their verification.
using X509Ptr = std::unique_ptr<X509, Deleter<X509_free>>;
using X509ReqPtr = std::unique_ptr<X509_REQ, Deleter<X509_REQ_free>>;
using X509ExtensionPtr = std::unique_ptr<X509_EXTENSION, Deleter<X509_EXTENSION_free>>;
using X509ExtensionsPtr =
    std::unique_ptr<STACK_OF(X509_EXTENSION), Deleter<x509_extensions_free>>;
using X509StorePtr = std::unique_ptr<X509_STORE, Deleter<X509_STORE_free>>;
using X509StoreCtxPtr = std::unique_ptr<X509_STORE_CTX, Deleter<X509_STORE_CTX_free>>;

// ASN.1 values, I/O and text the library allocated (such as a name's one-line form).
using Asn1IntegerPtr = std::unique_ptr<ASN1_INTEGER, Deleter<ASN1_INTEGER_free>>;
using Asn1StringPtr = std::unique_ptr<ASN1_STRING, Deleter<ASN1_STRING_free>>;
using Asn1TimePtr = std::unique_ptr<ASN1_TIME, Deleter<ASN1_TIME_free>>;
using BioPtr = std::unique_ptr<BIO, Deleter<BIO_free_all>>;
using OpensslStringPtr = std::unique_ptr<char, Deleter<openssl_string_free>>;

// The line for a library failure that has nothing more to say.
inline void openssl_failure() {
    std::puts("FATAL: OpenSSL failure.");
}
