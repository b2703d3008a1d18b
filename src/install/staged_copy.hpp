// Copying an offered file into a staged file with the caller's rights, and checking that the
// staged bytes still carry the accepted signer's signature (D6).
#pragma once

#include <string>

#include "base/caller.hpp"
#include "base/result.hpp"
#include "base/status.hpp"
#include "system/staged_file.hpp"
#include "verify/signers.hpp"

// Copies exactly the lstat size of source, opened with the caller's rights (D3), into out, and
// gives the digest of what was written.
[[nodiscard]] Result<Digest> copy_into(const char* source, const std::string& dest,
                                       const StagedFile& out);

// Copies exactly the size that was verified of the file held since (D6), from its start, into
// out, and gives the digest of what was written. A file that has shrunk since fails the read.
[[nodiscard]] Result<Digest> copy_held(const CallerFile& in, const std::string& dest,
                                       const StagedFile& out);

// Writes the signature bytes that were verified, and nothing else, into out (D17).
[[nodiscard]] ExitStatus write_signature(const Signature& sig, const std::string& dest,
                                         const StagedFile& out);

// The staged bytes (their digest) must carry the signature that was verified, by the signer that
// was found for it; "Signature check failed." and 7 otherwise (D6).
[[nodiscard]] ExitStatus check_staged(const Digest& digest, const Signer& signer);
