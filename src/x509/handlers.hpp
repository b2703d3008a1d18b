// Handlers of the terminal-certificate subsystem.
#pragma once

#include "base/status.hpp"

[[nodiscard]] ExitStatus cmd_x509_csr();
[[nodiscard]] ExitStatus cmd_x509_generate();
