// The hexadecimal codec and the four-digit numbers, against a plain reading of their rules.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include "base/hex.hpp"
#include "fuzz_check.hpp"

namespace {

int digit(std::uint8_t c) {
    static constexpr char digits[] = "0123456789abcdef";
    const char* at = c == 0 ? nullptr : std::strchr(digits, std::tolower(c));
    return at == nullptr ? -1 : static_cast<int>(at - digits);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::uint8_t> buf(data, data + size);
    const bool ok = hex2bin(buf.data(), buf.size());
    const bool valid = size % 2 == 0 &&
                       std::all_of(data, data + size, [](std::uint8_t c) { return digit(c) >= 0; });
    FUZZ_CHECK(ok == valid);
    if (valid) {
        for (std::size_t i = 0; i < size / 2; ++i) {
            FUZZ_CHECK(buf[i] == digit(data[2 * i]) * 16 + digit(data[2 * i + 1]));
        }
        // Back to text: the same digits in upper case.
        bin2hex(buf.data(), buf.size());
        for (std::size_t i = 0; i < size; ++i) {
            FUZZ_CHECK(buf[i] == std::toupper(data[i]));
        }
    }

    std::string text(fuzz_text(data, size));
    FUZZ_CHECK(hex2bin(text) == ok);
    FUZZ_CHECK(!ok || text.size() == size / 2);

    if (size >= 4) {
        const std::string number(fuzz_text(data, 4));
        const bool digits = number.find_first_not_of("0123456789") == std::string::npos;
        std::uint8_t four[4];
        std::memcpy(four, data, 4);
        FUZZ_CHECK(atobl(four) == digits);
        std::uint32_t value;
        std::memcpy(&value, four, sizeof value);
        FUZZ_CHECK(!digits || value == std::stoul(number));
    }
    return 0;
}
