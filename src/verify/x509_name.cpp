// Reading the common names that give certificates their roles.
#include "verify/x509_name.hpp"

#include <cstring>

#include "base/shared.hpp"

namespace {

std::optional<std::string> name_cn(const X509_NAME* name) {
    if (name == nullptr) {
        return std::nullopt;
    }
    int idx = X509_NAME_get_index_by_NID(name, NID_commonName, -1);
    if (idx < 0) {
        return std::nullopt;
    }
    const ASN1_STRING* data = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, idx));
    if (data == nullptr) {
        return std::nullopt;
    }
    const auto* bytes = reinterpret_cast<const char*>(ASN1_STRING_get0_data(data));
    auto len = static_cast<std::size_t>(ASN1_STRING_length(data));
    // The text ends at an embedded NUL, as a C string copy of it would.
    return cut_at_slash(std::string(bytes, strnlen(bytes, len)));
}

}  // namespace

std::optional<std::string> x509_subject_cn(const X509* cert) {
    return name_cn(X509_get_subject_name(cert));
}

std::optional<std::string> x509_issuer_cn(const X509* cert) {
    return name_cn(X509_get_issuer_name(cert));
}
