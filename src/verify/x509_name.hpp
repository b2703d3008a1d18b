// Reading the common names that give certificates their roles.
#pragma once

#include <optional>
#include <string>

#include <openssl/x509.h>

// The first commonName of the subject or issuer, cut at the first "/"; nothing when absent.
[[nodiscard]] std::optional<std::string> x509_subject_cn(const X509* cert);
[[nodiscard]] std::optional<std::string> x509_issuer_cn(const X509* cert);
