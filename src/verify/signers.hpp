// Who signed a file: the search among the terminal's trusted signer certificates, and the signer
// it found.
#pragma once

#include <memory>
#include <string>

#include "base/caller.hpp"
#include "base/ossl.hpp"
#include "base/result.hpp"
#include "verify/signature.hpp"

class Signers;

// A signer that verified: its role (the certificate's common name), the signature bytes it was
// found by and its key. Only a search of Signers makes one, so a function that takes a
// `const Signer&` holds the proof that a verification succeeded.
class Signer {
public:
    const std::string cn;
    const Signature sig;

    // Whether this signer signed digest with the very signature bytes it was found by, for a copy
    // checked without searching again (D6, D17).
    [[nodiscard]] bool signs(const Digest& digest) const;

private:
    friend class Signers;
    Signer(std::string role, const Signature& bytes, EvpPkeyPtr key);

    EvpPkeyPtr key_;
};

// The candidate signers of one command, which owns them and passes them down: the certificate
// store, then the system certificates of "/usr/ssl/" (its bundle left out), each in listing
// order. A directory is listed the first time a search reaches it, a certificate read and its key
// prepared the first time a search tries it; both stay for the command. Only the program writes
// those directories, so nothing changes under the command but what it deletes itself.
class Signers {
public:
    Signers();
    ~Signers();
    Signers(const Signers&) = delete;
    Signers& operator=(const Signers&) = delete;

    // The signer of sig over digest: the first candidate in order whose key verifies it. 7 after
    // "Signature check failed." when none does; a candidate that cannot be read, a directory that
    // cannot be listed or a signer without a common name each end the search with its message.
    // D24: the key that verified the previous search is tried first, and when it verifies its
    // certificate is the answer (it was the first in order to hold that key, and every candidate
    // before it was read); the whole command searches in order once a candidate's key is not RSA
    // with a public exponent of at least 3.
    [[nodiscard]] Result<Signer> find(const Digest& digest, const Signature& sig);

    // The command deleted path: when it may have been a candidate, the next search lists again.
    void deleted(const std::string& path);

private:
    struct State;
    std::unique_ptr<State> state_;
};

// The signer of path + ".sig" over path, both read with the caller's rights (D3), after
// "Invalid file: %s\n" and 1 for a path that does not exist; else as Signers::find, or the
// failure of reading either file. A file that verified stays in held, when given: the
// descriptor it was digested from, with the size and mode it had then. What is installed is
// copied from there (D6), so nothing the caller does to the name afterwards, such as a swap for a
// sparse file of exabytes, is ever read.
[[nodiscard]] Result<Signer> file_verify(Signers& signers, const char* path,
                                         CallerFile* held = nullptr);

// The signer of sig over the file at path, read with the rights of `who` (D27 for the sweep);
// held as for file_verify.
[[nodiscard]] Result<Signer> data_verify(Signers& signers, const char* path, const Signature& sig,
                                         OpenAs who, CallerFile* held = nullptr);
