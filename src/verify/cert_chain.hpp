// Certificate trust chains, and reading the common name that gives a certificate its role.
#pragma once

#include <memory>
#include <string>

#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include "base/caller.hpp"
#include "base/ossl.hpp"
#include "base/result.hpp"
#include "base/status.hpp"
#include "base/trust_anchor.hpp"

// One PEM certificate, the first of the file, or 2 when the file cannot be opened, 3 when it
// holds no PEM certificate. Prints nothing.
[[nodiscard]] Result<X509Ptr> cert_read_file(const char* path, OpenAs who = OpenAs::root);

// What a chain verification found, whatever its outcome.
struct ChainVerdict {
    // The very certificate that passed, so a caller installs what was checked (D6); or 2 (cannot
    // be opened), 3 (no certificate, or the chain fails), 9 (library failure), or the status of a
    // damaged stored intermediate.
    Result<X509Ptr> cert;
    // The anchor file the chain was checked against.
    const char* anchor;
    // The file holds a production-signing certificate issued by "KeySigning" (verified or not).
    bool prod_sign_from_key_signing;
};

// The stores certificate chains are verified in, built by the start-up check and handed to every
// command that verifies a chain. A store (an anchor file, the library's default locations and the
// stored intermediates present) is built the first time it is needed and kept while the
// intermediates stay the same files; building one costs more than a verification.
class ChainStore {
public:
    ChainStore();
    ~ChainStore();
    ChainStore(ChainStore&&) noexcept;
    ChainStore& operator=(ChainStore&&) noexcept;
    ChainStore(const ChainStore&) = delete;
    ChainStore& operator=(const ChainStore&) = delete;

    // Verifies the chain of the certificate in path, read with the rights of `who`. It ends in
    // run_anchor's file, except that the application user's and the tamper service's certificates
    // and a production-signing one from "KeySigning" always end in the bundle. Each stored
    // intermediate present joins the chain; a damaged one fails the verification with its message.
    [[nodiscard]] ChainVerdict verify(const char* path, OpenAs who, Anchor run_anchor);

private:
    struct State;
    std::unique_ptr<State> state_;
};

// As cert_read_file, the failure said: "FATAL: Failed to open certificate file." with 2, "Failed to
// read certificate file." with 3.
[[nodiscard]] Result<X509Ptr> cert_read_reported(const char* path, OpenAs who = OpenAs::root);

// The subject common name of the certificate in path, cut at the first "/"; or 2 or 3, each
// failure with its message.
[[nodiscard]] Result<std::string> cert_read_cn(const char* path, OpenAs who = OpenAs::root);

// The same for a certificate already read; or 3 with "No common name found in certificate file.".
[[nodiscard]] Result<std::string> cert_cn(const X509* cert);
