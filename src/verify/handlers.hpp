// Handlers of the signature-verification subsystem.
#pragma once

#include "base/status.hpp"

[[nodiscard]] ExitStatus cmd_authenticate();
