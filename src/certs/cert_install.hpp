// Placing certificates into the certificate store.
#pragma once

#include <string>

#include <openssl/x509.h>

#include "base/result.hpp"
#include "base/status.hpp"
#include "verify/cert_chain.hpp"

// "/usr/local/share/certs/" + the text after the last "/" of path.
[[nodiscard]] std::string cert_destination(const std::string& path);

// Whether cert, offered as path, may join the store: its common name when it may, or 4 (name
// taken), 3 (no or reserved common name), 5 (common name taken), 9, or the status of a stored file
// that cannot be read. Prints its own messages.
[[nodiscard]] Result<std::string> cert_install_verify(const char* path, const X509* cert);

// Writes cert into the store under path's base name, mode 0444, and for the application user's
// certificate with its group. 0 or 9, with its own messages.
[[nodiscard]] ExitStatus cert_install(const char* path, const X509* cert);

// The installation of the certificate file offered as source, every check included: its chain
// against the run's anchor (a file that fails is deleted as the caller could, D2), its place and
// common name, the application user's rule, then the store file. 0, or the first failure's
// status with its message.
[[nodiscard]] ExitStatus cert_install_offered(ChainStore& chains, const char* source);
