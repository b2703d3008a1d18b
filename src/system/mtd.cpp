// Finding MTD partitions by name and writing images into them.
#include "system/mtd.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/fd.hpp"
#include "base/io.hpp"
#include "base/paths.hpp"
#include "base/status.hpp"
#include "system/tools.hpp"

namespace {

// The device path "/dev/" + name has always lived in 12 bytes: longer names are not ours.
constexpr std::size_t max_device_name = 5;
// The size column of "/proc/mtd" is 8 hexadecimal digits.
constexpr std::size_t size_digits = 8;

std::optional<std::string> read_table() {
    UniqueFd fd(open(paths::mtd_table, O_RDONLY | O_CLOEXEC));
    if (!fd) {
        return std::nullopt;
    }
    return read_to_end(fd.get());
}

// Prints the reason and gives nothing when the partition cannot be found.
std::optional<MtdPartition> find_partition(const char* fragment) {
    const std::optional<std::string> table = read_table();
    if (!table) {
        std::puts("Failed to open the MTD table.");
        return std::nullopt;
    }
    std::optional<MtdPartition> part = mtd_find(*table, fragment);
    if (!part) {
        std::puts("Failed to determine the MTD device.");
    }
    return part;
}

}  // namespace

std::optional<MtdPartition> mtd_find(std::string_view table, std::string_view fragment) {
    while (!table.empty()) {
        // A line keeps its line end: the size field of a short line runs into it, and the flash
        // tools have always received it that way.
        const std::size_t end = table.find('\n');
        const std::size_t len = end == std::string_view::npos ? table.size() : end + 1;
        const std::string_view line = table.substr(0, len);
        table.remove_prefix(len);

        const std::size_t colon = line.find(':');
        if (line.find(fragment) == std::string_view::npos || colon == std::string_view::npos) {
            continue;
        }
        // The first line that names the fragment decides, even when its device does not fit.
        const std::string_view name = line.substr(0, colon);
        if (name.size() > max_device_name) {
            return std::nullopt;
        }
        const std::string_view size = line.substr(std::min(colon + 2, line.size())).substr(0, size_digits);
        MtdPartition part;
        part.device = std::string("/dev/").append(name);
        part.length_arg = std::string("0x").append(size).append("\n");
        return part;
    }
    return std::nullopt;
}

Result<std::string> get_mtd(const char* fragment) {
    std::optional<MtdPartition> part = find_partition(fragment);
    if (!part) {
        return ST_FAILURE;
    }
    return std::move(part->device);
}

ExitStatus sys_nandwrite(const char* fragment, const char* image) {
    const std::optional<MtdPartition> part = find_partition(fragment);
    if (!part) {
        return ST_FAILURE;
    }
    const char* dev = part->device.c_str();
    // D9: writing over a partition that was not erased would leave a mix of old and new image.
    if (sys_run_tool(paths::tool_mtd_debug, {"mtd_debug", "erase", dev, "0", part->length_arg.c_str()},
                     ForkFailure::end_program) != ST_OK) {
        return ST_FAILURE;
    }
    return sys_run_tool(paths::tool_nandwrite, {"nandwrite", "--markbad", "--pad", dev, image},
                        ForkFailure::end_program);
}
