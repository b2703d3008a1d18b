// The DUKPT KSN log: the device's report, the log's lines, the answer, and the log's rewrite.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/status.hpp"

namespace ksn {

inline constexpr std::size_t ksn_size = 10;
// The report: index low byte, index high byte, the device key's current KSN; the rest is ignored.
inline constexpr std::size_t report_index_low = 0;
inline constexpr std::size_t report_index_high = 1;
inline constexpr std::size_t report_ksn_offset = 2;
inline constexpr std::size_t report_size = report_ksn_offset + ksn_size;
// The answer: a status byte, then the KSN the log held before.
inline constexpr std::size_t answer_status_offset = 0;
inline constexpr std::size_t answer_ksn_offset = 1;
inline constexpr std::size_t answer_size = answer_ksn_offset + ksn_size;

static_assert(report_size == 12);
static_assert(answer_size == 11);

inline constexpr std::uint8_t status_matched = 10;
inline constexpr std::uint8_t status_unmatched = 0;

// The initial key serial number is bytes 0 to 6 and these bits of byte 7; the rest is the
// transaction counter.
inline constexpr std::size_t iksn_whole_bytes = 7;
inline constexpr std::uint8_t iksn_byte7_mask = 0xE0;

// The log path has always had to fit 256 bytes with the ".temp" of its old temporary name.
inline constexpr std::size_t log_path_max = 250;

}  // namespace ksn

using Ksn = std::array<std::uint8_t, ksn::ksn_size>;
using KsnAnswer = std::array<std::uint8_t, ksn::answer_size>;

struct KsnReport {
    int key_index = 0;
    Ksn ksn{};
};

// Each byte counts as signed, so the result is the little-endian value only while both bytes are
// below 0x80 (0x90 0x01 gives 144). The log stores the number so made: it is part of its format.
[[nodiscard]] int ksn_key_index(std::uint8_t low, std::uint8_t high);

// A record shorter than a report reads as zeros in its missing bytes.
[[nodiscard]] KsnReport ksn_parse_report(std::span<const std::uint8_t> record);

[[nodiscard]] KsnAnswer ksn_encode_answer(std::uint8_t status, const Ksn& old_ksn);

// "%i:", twenty upper-case hexadecimal digits, "\n".
[[nodiscard]] std::string create_ksn_entry(int key_index, const Ksn& ksn);

// Whether the two KSNs name the same initial key; the counters are never compared.
[[nodiscard]] bool same_iksn(const Ksn& a, const Ksn& b);

// Decodes the twenty hexadecimal digits (either case) after the first ":"; nothing when there is
// no ":" or the digits do not decode.
[[nodiscard]] std::optional<Ksn> ksn_from_entry(std::string_view line);

// The KSN line holds when it is the entry of key_index for the initial key of ksn; nothing
// otherwise. A damaged line is no entry, and gets a message.
[[nodiscard]] std::optional<Ksn> matching_entry(const std::string& line, int key_index,
                                                const Ksn& ksn);

// Rewrites the log at log_path with the entry for the pair, as a new file renamed over it. When an
// entry for the same key and initial key was there, it is replaced, its KSN goes to old_ksn and
// *status becomes 10; otherwise the entry is appended and both are left as they were. 0, or 9 on
// any failure.
[[nodiscard]] ExitStatus update_ksn_data(int key_index, const Ksn& ksn, Ksn& old_ksn,
                                         std::uint8_t* status, const char* log_path);
