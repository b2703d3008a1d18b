// Certificate trust chains, and reading the common name that gives a certificate its role.
#pragma once

#include <string>

#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include "base/caller.hpp"
#include "base/ossl.hpp"
#include "base/result.hpp"
#include "base/status.hpp"

// One PEM certificate, the first of the file, or 2 when the file cannot be opened, 3 when it
// holds no PEM certificate. Prints nothing.
[[nodiscard]] Result<X509Ptr> cert_read_file(const char* path, OpenAs who = OpenAs::root);

// The trust-anchor file for cert (the default one for a null cert). Changes nothing: cert_verify
// is where meeting a "prod-sign" certificate from "KeySigning" clears orvin_rki_ca.
[[nodiscard]] const char* cert_verify_ca_file(const X509* cert);

// Verifies the chain of the certificate in path and gives the very certificate that passed, so a
// caller installs what was checked (D6); or 2 (cannot be opened), 3 (no certificate, or the chain
// fails), 9 (library failure), or the status of a damaged stored intermediate.
[[nodiscard]] Result<X509Ptr> cert_verify(const char* path, OpenAs who);

// As cert_read_file, the failure said: "FATAL: Failed to open certificate file." with 2, "Failed to
// read certificate file." with 3.
[[nodiscard]] Result<X509Ptr> cert_read_reported(const char* path, OpenAs who = OpenAs::root);

// The subject common name of the certificate in path, cut at the first "/"; or 2 or 3, each
// failure with its message.
[[nodiscard]] Result<std::string> cert_read_cn(const char* path, OpenAs who = OpenAs::root);

// The same for a certificate already read; or 3 with "No common name found in certificate file.".
[[nodiscard]] Result<std::string> cert_cn(const X509* cert);
