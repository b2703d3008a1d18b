// Building and signing the terminal's certificate requests and certificates.
#include "x509/x509_build.hpp"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <cstdio>
#include <memory>
#include <utility>

#include "base/paths.hpp"
#include "verify/cert_chain.hpp"
#include "x509/terminal_record.hpp"

namespace {

// The validity of every certificate the terminal issues, whatever its clock says.
constexpr const char* not_before = "100101000000Z";
constexpr const char* not_after = "291231235959Z";
constexpr int serial_bits = 64;

// The field's string as the library makes it from ASCII text (D18): it picks the type the field
// allows for these characters (PrintableString for a country, IA5String for an address, UTF-8
// text otherwise, a byte of 0x80 or more included) and refuses characters the field cannot
// carry. Its length bounds are not applied, so an empty or long common name is taken as the
// subject text has it (D11).
Asn1StringPtr ascii_entry(int nid, const std::string& value) {
    const ASN1_STRING_TABLE* table = ASN1_STRING_TABLE_get(nid);
    unsigned long mask = table == nullptr ? DIRSTRING_TYPE : table->mask;
    if (table == nullptr || (table->flags & STABLE_NO_MASK) == 0) {
        mask &= ASN1_STRING_get_default_mask();
    }
    ASN1_STRING* made = nullptr;
    if (ASN1_mbstring_ncopy(&made, reinterpret_cast<const unsigned char*>(value.data()),
                            static_cast<int>(value.size()), MBSTRING_ASC, mask, 0, 0) <= 0) {
        ERR_clear_error();
        return nullptr;
    }
    return Asn1StringPtr(made);
}

void subject_fill(X509_NAME* name, const std::string& subject) {
    for (const SubjectEntry& entry : x509_subject_parse(subject)) {
        // A field the library does not take is left out, like the pieces that name no field.
        const int nid = OBJ_txt2nid(entry.field.c_str());
        Asn1StringPtr value = nid == NID_undef ? nullptr : ascii_entry(nid, entry.value);
        if (!value || X509_NAME_add_entry_by_NID(name, nid, ASN1_STRING_type(value.get()),
                                                 ASN1_STRING_get0_data(value.get()),
                                                 ASN1_STRING_length(value.get()), -1, 0) != 1) {
            ERR_clear_error();
        }
    }
}

// Steps shared by both builders: a request with the terminal key and the subject.
X509ReqPtr request_for(const RsaNumbers& key, const std::string& subject) {
    X509ReqPtr req(X509_REQ_new());
    if (!req) {
        std::puts("FATAL: Failed to create a new certificate request structure.");
        return nullptr;
    }
    EvpPkeyPtr pkey = rsa_pkey(key);
    if (!pkey || X509_REQ_set_pubkey(req.get(), pkey.get()) != 1) {
        openssl_failure();
        return nullptr;
    }
    subject_fill(X509_REQ_get_subject_name(req.get()), subject);
    return req;
}

EvpPkeyPtr signing_key(const RsaNumbers& dummy) {
    EvpPkeyPtr pkey = rsa_pkey(dummy);
    if (!pkey) {
        openssl_failure();
    }
    return pkey;
}

// The PEM text written by write into out; 0 when it cannot be made or does not fit (D11).
template <typename Write>
std::size_t pem_into(std::span<std::uint8_t> out, Write write) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || write(bio.get()) != 1) {
        return 0;
    }
    const std::size_t length = BIO_ctrl_pending(bio.get());
    if (length == 0 || length > out.size() ||
        BIO_read(bio.get(), out.data(), static_cast<int>(length)) != static_cast<int>(length)) {
        return 0;
    }
    return length;
}

// A certificate that takes over the request's subject and key. The library's own conversion
// would sign it with MD5 on the way; it is signed once, at the end, with SHA-256.
X509Ptr certificate_from(X509_REQ* req) {
    X509Ptr cert(X509_new());
    if (!cert || X509_set_subject_name(cert.get(), X509_REQ_get_subject_name(req)) != 1 ||
        X509_set_pubkey(cert.get(), X509_REQ_get0_pubkey(req)) != 1) {
        return nullptr;
    }
    return cert;
}

// 64 random bits with the top one set, so every serial number has the same length.
bool set_serial(X509* cert) {
    BignumPtr bn(BN_new());
    if (!bn || BN_rand(bn.get(), serial_bits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) != 1) {
        return false;
    }
    Asn1IntegerPtr serial(BN_to_ASN1_INTEGER(bn.get(), nullptr));
    return serial && X509_set_serialNumber(cert, serial.get()) == 1;
}

X509Ptr issuer_certificate() {
    Result<X509Ptr> issuer = cert_read_file(paths::terminal_cert, OpenAs::root);
    if (issuer.status() == ST_CERT_UNREADABLE) {
        std::printf("Failed to open the issuer certificate file: %s\n", paths::terminal_cert);
        return nullptr;
    }
    if (!issuer.ok()) {
        std::printf("Failed to read the issuer certificate file: %s\n", paths::terminal_cert);
        return nullptr;
    }
    return std::move(*issuer);
}

bool set_issuer_and_validity(X509* cert, X509* issuer) {
    Asn1TimePtr from(ASN1_TIME_new());
    Asn1TimePtr until(ASN1_TIME_new());
    return from && until && ASN1_UTCTIME_set_string(from.get(), not_before) == 1 &&
           ASN1_UTCTIME_set_string(until.get(), not_after) == 1 &&
           X509_set_issuer_name(cert, X509_get_subject_name(issuer)) == 1 &&
           X509_set1_notBefore(cert, from.get()) == 1 && X509_set1_notAfter(cert, until.get()) == 1;
}

}  // namespace

bool rsa_req_x509_add_ext(STACK_OF(X509_EXTENSION) * list, int nid, const char* text) {
    X509ExtensionPtr ext(X509V3_EXT_nconf_nid(nullptr, nullptr, nid, text));
    if (!ext || !sk_X509_EXTENSION_push(list, ext.get())) {
        return false;
    }
    (void)ext.release();
    return true;
}

bool rsa_cert_x509_add_ext(X509* issuer, X509* cert, int nid, const char* text) {
    X509V3_CTX ctx{};
    X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
    X509ExtensionPtr ext(X509V3_EXT_nconf_nid(nullptr, &ctx, nid, text));
    return ext && X509_add_ext(cert, ext.get(), -1) == 1;
}

std::size_t x509_csr(std::span<std::uint8_t> out, const RsaNumbers& terminal,
                     const std::string& subject, const std::string& key_usage) {
    ERR_clear_error();
    X509ReqPtr req = request_for(terminal, subject);
    if (!req) {
        return 0;
    }
    const Result<RsaNumbers> dummy = x509_dummy_key(terminal.n.get());
    if (!dummy.ok()) {
        return 0;
    }
    EvpPkeyPtr pkey = signing_key(*dummy);
    if (!pkey) {
        return 0;
    }
    // Extensions the library rejects are left out: the device learns of it from the request.
    X509ExtensionsPtr list(sk_X509_EXTENSION_new_null());
    if (list) {
        const bool ca = key_usage.find("keyCertSign") != std::string::npos;
        (void)rsa_req_x509_add_ext(list.get(), NID_basic_constraints,
                                   ca ? "critical,CA:TRUE" : "critical,CA:FALSE");
        if (!key_usage.empty()) {
            (void)rsa_req_x509_add_ext(list.get(), NID_key_usage, key_usage.c_str());
        }
        (void)X509_REQ_add_extensions(req.get(), list.get());
    }
    if (X509_REQ_sign(req.get(), pkey.get(), EVP_sha256()) <= 0) {
        openssl_failure();
        return 0;
    }
    return pem_into(out, [&](BIO* bio) { return PEM_write_bio_X509_REQ(bio, req.get()); });
}

std::size_t x509_generate(std::span<std::uint8_t> out, const RsaNumbers& key,
                          const RsaNumbers& dummy, const std::string& subject,
                          const std::string& key_usage) {
    ERR_clear_error();
    X509ReqPtr req = request_for(key, subject);
    if (!req) {
        return 0;
    }
    EvpPkeyPtr pkey = signing_key(dummy);
    if (!pkey) {
        return 0;
    }
    X509Ptr cert = certificate_from(req.get());
    if (!cert || X509_set_version(cert.get(), X509_VERSION_3) != 1 || !set_serial(cert.get())) {
        openssl_failure();
        return 0;
    }
    X509Ptr issuer = issuer_certificate();
    if (!issuer) {
        return 0;
    }
    if (!set_issuer_and_validity(cert.get(), issuer.get())) {
        openssl_failure();
        return 0;
    }
    // An extension that cannot be made is left out; the certificate is still worth having.
    (void)rsa_cert_x509_add_ext(issuer.get(), cert.get(), NID_basic_constraints,
                                "critical,CA:FALSE");
    if (!key_usage.empty()) {
        (void)rsa_cert_x509_add_ext(issuer.get(), cert.get(), NID_key_usage, key_usage.c_str());
    }
    (void)rsa_cert_x509_add_ext(issuer.get(), cert.get(), NID_subject_key_identifier, "hash");
    (void)rsa_cert_x509_add_ext(issuer.get(), cert.get(), NID_authority_key_identifier,
                                "keyid,issuer");
    if (X509_sign(cert.get(), pkey.get(), EVP_sha256()) <= 0) {
        openssl_failure();
        return 0;
    }
    return pem_into(out, [&](BIO* bio) { return PEM_write_bio_X509(bio, cert.get()); });
}
