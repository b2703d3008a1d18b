// The acquirer ID rule shared by every KBPK and key command.
#pragma once

#include <sys/types.h>

#include <optional>

#include "base/result.hpp"
#include "base/status.hpp"

inline constexpr int acquirer_max = 255;

// Decimal, octal ("017") or hexadecimal ("0x1F"); leading blanks skipped, nothing may follow;
// 0 to 255, and 0 only for root (an empty text reads as 0). nullopt when refused.
[[nodiscard]] std::optional<int> acquirer_id_parse(const char* text, uid_t caller_uid);

// The rule for the recorded caller (D1). Refusal is status 1 without a message; that is the
// handler's to return.
[[nodiscard]] std::optional<int> acquirer_id(const char* text);

// The start of every KBPK and key command: the caller rule ("Access denied.", 6), then the
// acquirer ID rule (1, no message). The ID when both pass.
[[nodiscard]] Result<int> acquirer_command_start(const char* id_text);
