// Reading the common names that give certificates their roles.
#include "verify/x509_name.hpp"

#include <cstring>

#include "base/ossl.hpp"
#include "base/shared.hpp"

namespace {

// A common name is text whatever string type carries it (D18): the library turns every type into
// UTF-8, so a BMPString "SuperRoot" is "SuperRoot". A name it cannot turn into text, or one that
// holds a NUL, could only be misread as another, so it reads as empty.
std::string cn_text(const ASN1_STRING* data) {
    unsigned char* raw = nullptr;
    const int length = data == nullptr ? -1 : ASN1_STRING_to_UTF8(&raw, data);
    const OpensslStringPtr text(reinterpret_cast<char*>(raw));
    if (length <= 0) {
        return {};
    }
    const auto size = static_cast<std::size_t>(length);
    if (std::memchr(text.get(), '\0', size) != nullptr) {
        return {};
    }
    return std::string(text.get(), size);
}

std::optional<std::string> name_cn(const X509_NAME* name) {
    if (name == nullptr) {
        return std::nullopt;
    }
    int idx = X509_NAME_get_index_by_NID(name, NID_commonName, -1);
    if (idx < 0) {
        return std::nullopt;
    }
    return cut_at_slash(cn_text(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, idx))));
}

}  // namespace

std::optional<std::string> x509_subject_cn(const X509* cert) {
    return name_cn(X509_get_subject_name(cert));
}

std::optional<std::string> x509_issuer_cn(const X509* cert) {
    return name_cn(X509_get_issuer_name(cert));
}
