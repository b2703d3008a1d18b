// Certificate files a caller names: PEM read from memory the way the program reads its files, then
// the common names that give a certificate its role and pick its trust anchor.
#include <openssl/err.h>
#include <openssl/pem.h>

#include "base/ossl.hpp"
#include "fuzz_check.hpp"
#include "verify/cert_chain.hpp"
#include "verify/x509_name.hpp"

namespace {

void check_cn(const std::optional<std::string>& cn) {
    if (cn) {
        FUZZ_CHECK(cn->find('/') == std::string::npos);
    }
}

void check_cert(const X509* cert) {
    const auto subject = x509_subject_cn(cert);
    check_cn(subject);
    check_cn(x509_issuer_cn(cert));
    const Result<std::string> cn = cert_cn(cert);
    FUZZ_CHECK(cn.ok() == subject.has_value());
    FUZZ_CHECK(!cn.ok() || *cn == *subject);
    FUZZ_CHECK(cert_verify_ca_file(cert) != nullptr);
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

    // The name parser on its own: the input as the value of a subject common name, in every
    // string type a certificate may carry it as.
    static constexpr int types[] = {V_ASN1_UTF8STRING, V_ASN1_PRINTABLESTRING,
                                    V_ASN1_IA5STRING,  V_ASN1_T61STRING,
                                    V_ASN1_BMPSTRING,  V_ASN1_UNIVERSALSTRING};
    if (size < 1 || size > 512) {
        return 0;
    }
    X509Ptr made(X509_new());
    FUZZ_CHECK(made != nullptr);
    X509_NAME* name = X509_get_subject_name(made.get());
    const int type = types[data[0] % std::size(types)];
    // A second entry when asked for, since only the first common name counts.
    if (data[0] & 0x80) {
        (void)X509_NAME_add_entry_by_NID(name, NID_commonName, V_ASN1_UTF8STRING,
                                         reinterpret_cast<const unsigned char*>("first"), 5, -1, 0);
    }
    if (X509_NAME_add_entry_by_NID(name, NID_commonName, type, data + 1, static_cast<int>(size - 1),
                                   -1, 0) == 1) {
        check_cert(made.get());
    }
    ERR_clear_error();
    return 0;
}
