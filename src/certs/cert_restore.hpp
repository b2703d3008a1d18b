// Restoring missing certificates from nvram, and the trust-anchor flag that follows from them.
#pragma once

#include <optional>
#include <string>

#include "base/status.hpp"
#include "verify/cert_chain.hpp"

// Puts "prod-sign.crt" and "terminal.crt" back into the store from nvram when missing, verified in
// chains; sets the run's trust anchor again after a production-signing restore attempt. 0, or
// the first failed step's status.
[[nodiscard]] ExitStatus keys_init_cert(ChainStore& chains);

// Whether the stored production-signing certificate was issued by "KeySigning", which decides the
// trust anchor (the bundle exactly then). Prints and changes nothing.
[[nodiscard]] bool prod_sign_from_key_signing();

// The certificate file's bytes from an nvram line (its last character is the line end), or
// nothing for a value that is passed over: 4096 characters or more, odd length, not hexadecimal.
[[nodiscard]] std::optional<std::string> cert_from_nvram_line(std::string line);
