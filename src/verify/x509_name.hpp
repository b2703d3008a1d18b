// Reading the common names that give certificates their roles.
#pragma once

#include <optional>
#include <string>

#include <openssl/x509.h>

// The first commonName of the subject or issuer as UTF-8 text, cut at the first "/"; empty when
// it is not text (D18); nothing when absent.
[[nodiscard]] std::optional<std::string> x509_subject_cn(const X509* cert);
[[nodiscard]] std::optional<std::string> x509_issuer_cn(const X509* cert);
