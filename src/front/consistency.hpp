// The start-up check every run goes through before a command runs.
#pragma once

#include "base/result.hpp"
#include "verify/cert_chain.hpp"

// The chain stores the check verified the certificate store in, for the commands to verify in
// too, when the terminal is in a usable state; 9 otherwise.
[[nodiscard]] Result<ChainStore> consistency_check();
