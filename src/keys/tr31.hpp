// The outer shape of key files before they reach the device: KBPK files and TR-31 key blocks.
#pragma once

#include <cstdint>
#include <span>

#include "base/status.hpp"

namespace tr31 {
inline constexpr std::uint64_t min_size = 56;
// The largest block the device's request buffer takes (D10); the length field alone allows 9992.
inline constexpr std::uint64_t max_size = 4088;
inline constexpr std::size_t head_size = 5;
}  // namespace tr31

// Why a TR-31 file is refused; none when its shape is acceptable.
enum class Tr31Fault { none, size, version, length_field, length };

// The size test, made before the file is opened.
[[nodiscard]] Tr31Fault tr31_size_fault(std::uint64_t size);

// The version ID and the four-digit length field, against the file's size.
[[nodiscard]] Tr31Fault tr31_head_fault(std::span<const std::uint8_t, tr31::head_size> head,
                                        std::uint64_t size);

// The line printed for a fault; nullptr for none.
[[nodiscard]] const char* tr31_fault_message(Tr31Fault fault);

// The size rules a caller's key file is opened under (see caller_open_to_verify): 0, or the
// fault's line and 13 for a TR-31 block, "Invalid KBPK file." and 11 for a KBPK file that is
// not the device's 256 bytes.
[[nodiscard]] ExitStatus tr31_size_rule(std::uint64_t size);
[[nodiscard]] ExitStatus kbpk_size_rule(std::uint64_t size);

// 0; 9 when the file's status cannot be read; 11 when it is not 256 bytes (symbolic links are
// judged by their own size). Examined with the caller's rights (D3).
[[nodiscard]] ExitStatus file_verify_kbpk_file(const char* path);

// 0; 1 missing; 9 cannot be examined, opened or read; 13 not an acceptable TR-31 key block.
// Examined and read with the caller's rights (D3).
[[nodiscard]] ExitStatus file_verify_key_file(const char* path);
