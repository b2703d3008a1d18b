// Certificate files a caller names: PEM read from memory the way the program reads its files, then
// the common names that give a certificate its role and pick its trust anchor.
#include <openssl/err.h>
#include <openssl/pem.h>

#include "base/ossl.hpp"
#include "fuzz_check.hpp"
#include "verify/cert_chain.hpp"
#include "verify/x509_name.hpp"

namespace {

void check_cert(const X509* cert) {
    // A common name as the system uses it ends before any "/".
    const auto subject = x509_subject_cn(cert);
    const auto issuer = x509_issuer_cn(cert);
    FUZZ_CHECK(!subject || subject->find('/') == std::string::npos);
    FUZZ_CHECK(!issuer || issuer->find('/') == std::string::npos);
    const Result<std::string> cn = cert_cn(cert);
    FUZZ_CHECK(cn.ok() == subject.has_value());
    FUZZ_CHECK(!cn.ok() || *cn == *subject);
    FUZZ_CHECK(cert_verify_ca_file(cert) != nullptr);
}

bool add_cn(X509_NAME* name, int type, std::string_view text) {
    return X509_NAME_add_entry_by_NID(name, NID_commonName, type,
                                      reinterpret_cast<const unsigned char*>(text.data()),
                                      static_cast<int>(text.size()), -1, 0) == 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 16384) {
        return 0;
    }
    ERR_clear_error();
    BioPtr bio(BIO_new_mem_buf(data, static_cast<int>(size)));
    FUZZ_CHECK(bio != nullptr);
    X509Ptr cert(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    ERR_clear_error();
    if (cert) {
        check_cert(cert.get());
    }

    // The name parser on its own: the input as the value of a common name, in every string type
    // a certificate may carry it as. The first byte picks the type, an earlier subject common name
    // that hides the input's (only the first counts), an issuer "KeySigning", and whether the input
    // names the issuer rather than the subject.
    static constexpr int types[] = {V_ASN1_UTF8STRING, V_ASN1_PRINTABLESTRING,
                                    V_ASN1_IA5STRING,  V_ASN1_T61STRING,
                                    V_ASN1_BMPSTRING,  V_ASN1_UNIVERSALSTRING};
    if (size < 1 || size > 512) {
        return 0;
    }
    X509Ptr made(X509_new());
    FUZZ_CHECK(made != nullptr);
    X509_NAME* subject = X509_get_subject_name(made.get());
    X509_NAME* issuer = X509_get_issuer_name(made.get());
    if (data[0] & 0x80) {
        (void)add_cn(subject, V_ASN1_UTF8STRING, "first");
    }
    if (data[0] & 0x40) {
        (void)add_cn(issuer, V_ASN1_UTF8STRING, "KeySigning");
    }
    const int type = types[(data[0] & 0x1F) % std::size(types)];
    if (add_cn(data[0] & 0x20 ? issuer : subject, type, fuzz_text(data + 1, size - 1))) {
        check_cert(made.get());
    }
    ERR_clear_error();
    return 0;
}
