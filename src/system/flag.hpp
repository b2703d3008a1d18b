// Setting a kernel flag file: the platform acts on it at the next start.
#pragma once

enum class FlagResult { set, open_failed, write_failed };

// Writes the single byte "1" to the flag file, created or truncated as the platform expects.
[[nodiscard]] FlagResult set_kernel_flag(const char* path);
