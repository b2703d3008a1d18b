// Values read back from the nvram store, which outlives any installation: the certificates kept
// there as hexadecimal text and the terminal key in either of its forms.
#include <cctype>
#include <string>

#include "certs/cert_restore.hpp"
#include "fuzz_check.hpp"
#include "keys/keys_init.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string line(fuzz_text(data, size));
    if (const auto bytes = cert_from_nvram_line(line)) {
        // The value is the line without its last character: exactly two digits per byte.
        FUZZ_CHECK(size == 0 || size - 1 < 4096);
        FUZZ_CHECK(bytes->size() * 2 == (size ? size - 1 : 0));
        static constexpr char digits[] = "0123456789ABCDEF";
        for (std::size_t i = 0; i < bytes->size(); ++i) {
            const auto b = static_cast<std::uint8_t>((*bytes)[i]);
            FUZZ_CHECK(std::toupper(data[2 * i]) == digits[b >> 4]);
            FUZZ_CHECK(std::toupper(data[2 * i + 1]) == digits[b & 0x0F]);
        }
    }

    // The terminal key's two forms cannot be mistaken for each other: hexadecimal text never
    // holds the TR-31 header's letters, and any text put into that header's place is TR-31.
    const bool hex = line.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    FUZZ_CHECK(!hex || !terminal_key_is_tr31(line));
    const std::string padded = line + std::string(5, '0');
    const std::string block = "B" + padded.substr(0, 4) + "K0RS00E" + padded.substr(4);
    FUZZ_CHECK(terminal_key_is_tr31(block));
    for (const char other : {'b', 'A', 'C', '0', '\0'}) {
        FUZZ_CHECK(!terminal_key_is_tr31(std::string(1, other) + block.substr(1)));
    }
    FUZZ_CHECK(!terminal_key_is_tr31(block.substr(0, 11)));
    return 0;
}
