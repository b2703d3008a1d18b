// Handlers of the certificate subsystem.
#pragma once

#include "base/status.hpp"
#include "verify/cert_chain.hpp"

[[nodiscard]] ExitStatus cmd_cert_install_check(ChainStore& chains, const char* source);
[[nodiscard]] ExitStatus cmd_cert_install(ChainStore& chains, const char* source);
