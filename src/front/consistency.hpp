// The start-up check every run goes through before a command runs.
#pragma once

#include "base/status.hpp"

// 0 when the terminal is in a usable state, 9 otherwise.
[[nodiscard]] ExitStatus consistency_check();
