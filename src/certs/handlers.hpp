// Handlers of the certificate subsystem.
#pragma once

#include "base/status.hpp"

[[nodiscard]] ExitStatus cmd_cert_install_check(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_cert_install(int argc, char** argv);
