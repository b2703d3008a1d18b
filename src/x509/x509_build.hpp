// Building and signing the certificate request and the certificate for a key that the security
// processor holds, and writing their PEM text into a record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include <openssl/x509.h>

#include "x509/rsa_keys.hpp"

// The PEM request for the terminal key, signed with the dummy key of its class: the number of
// bytes written into out, 0 on every failure (a text longer than out included, D11).
[[nodiscard]] std::size_t x509_csr(std::span<std::uint8_t> out, const RsaNumbers& terminal,
                                   const std::string& subject, const std::string& key_usage);

// The PEM certificate for the terminal-held key, issued in the name of the terminal certificate
// and signed with the given dummy key: the number of bytes written into out, 0 on every failure.
[[nodiscard]] std::size_t x509_generate(std::span<std::uint8_t> out, const RsaNumbers& key,
                                        const RsaNumbers& dummy, const std::string& subject,
                                        const std::string& key_usage);

// Appends one extension made from its configuration text; false when the text yields none.
[[nodiscard]] bool rsa_req_x509_add_ext(STACK_OF(X509_EXTENSION) * list, int nid, const char* text);
// The same on a certificate, with the issuer certificate as context.
[[nodiscard]] bool rsa_cert_x509_add_ext(X509* issuer, X509* cert, int nid, const char* text);
