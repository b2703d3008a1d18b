// Certificate files a caller names: PEM read from memory the way the program reads its files, then
// the common names that give a certificate its role.
#include <algorithm>

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
    const std::string_view text = fuzz_text(data + 1, size - 1);
    const bool names_issuer = (data[0] & 0x20) != 0;
    if (add_cn(names_issuer ? issuer : subject, type, text)) {
        check_cert(made.get());
        // Printable ASCII in a one-byte string type reads back as itself, up to its first "/".
        const bool ascii = std::all_of(text.begin(), text.end(),
                                       [](char c) { return c >= 0x20 && c <= 0x7e; });
        const bool one_byte = type != V_ASN1_BMPSTRING && type != V_ASN1_UNIVERSALSTRING;
        const bool hidden = (data[0] & (names_issuer ? 0x40 : 0x80)) != 0;
        if (ascii && one_byte && !hidden) {
            const auto read =
                names_issuer ? x509_issuer_cn(made.get()) : x509_subject_cn(made.get());
            FUZZ_CHECK(read && *read == text.substr(0, text.find('/')));
        }
    }
    ERR_clear_error();
    return 0;
}
