// The start-up check every run goes through before a command runs.
#pragma once

// 0 when the terminal is in a usable state, 9 otherwise.
[[nodiscard]] int consistency_check();
