// "/proc/mtd" as the kernel (or whatever mounted over it) presents it: the first line of the input
// is the partition name fragment, the rest the table.
#include "fuzz_check.hpp"
#include "system/mtd.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto [fragment, table] = fuzz_cut(fuzz_text(data, size), '\n');
    const auto part = mtd_find(table, fragment);
    if (!part) {
        return 0;
    }
    // The device name came from before the first ":" of a line and is at most five characters;
    // the length argument is "0x", up to eight characters, and the line end.
    FUZZ_CHECK(part->device.starts_with("/dev/") && part->device.size() <= 10);
    FUZZ_CHECK(part->device.find_first_of(":\n") == std::string::npos);
    FUZZ_CHECK(table.find(part->device.substr(5) + ":") != std::string_view::npos);
    FUZZ_CHECK(part->length_arg.starts_with("0x") && part->length_arg.ends_with("\n"));
    FUZZ_CHECK(part->length_arg.size() <= 11);
    return 0;
}
