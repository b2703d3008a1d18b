// Handlers of the terminal-certificate subsystem.
#pragma once

#include "base/status.hpp"

[[nodiscard]] ExitStatus cmd_x509_csr(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_x509_generate(int argc, char** argv);
