// Finding MTD partitions by name and writing images into them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/result.hpp"
#include "base/status.hpp"

// One partition as "/proc/mtd" lists it: the device path and the length argument of the flash
// tools ("0x" + at most 8 characters of the size field + "\n").
struct MtdPartition {
    std::string device;
    std::string length_arg;
};

// Pure lookup over the table's text: the first line that contains the fragment and a ":" decides;
// nothing when there is none or its device name has more than 5 characters. Exposed for unit tests.
[[nodiscard]] std::optional<MtdPartition> mtd_find(std::string_view table, std::string_view fragment);

// The partition's device path "/dev/<name>", or 9 after printing the reason.
[[nodiscard]] Result<std::string> get_mtd(const char* fragment);

// Erases the partition and writes the image into it; a failed erase stops the write (D9).
[[nodiscard]] ExitStatus sys_nandwrite(const char* fragment, const char* image);
