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
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::uint8_t> buf(data, data + size);
    const int ok = hex2bin(buf.data(), buf.size());

    bool valid = size % 2 == 0;
    for (std::size_t i = 0; valid && i < size; ++i) {
        valid = digit(data[i]) >= 0;
    }
    FUZZ_CHECK(ok == (valid ? 1 : 0));
    if (valid) {
        for (std::size_t i = 0; i < size / 2; ++i) {
            FUZZ_CHECK(buf[i] == digit(data[2 * i]) * 16 + digit(data[2 * i + 1]));
        }
        // Back to text: the same digits in upper case.
        bin2hex(buf.data(), buf.size());
        for (std::size_t i = 0; i < size; ++i) {
            FUZZ_CHECK(buf[i] == std::toupper(data[i]));
        }
    } else if (size % 2 == 0) {
        // Nothing at or after the first bad character is touched.
        std::size_t bad = 0;
        while (digit(data[bad]) >= 0) ++bad;
        FUZZ_CHECK(std::memcmp(buf.data() + bad, data + bad, size - bad) == 0);
    } else {
        FUZZ_CHECK(std::memcmp(buf.data(), data, size) == 0);
    }

    std::string text(reinterpret_cast<const char*>(data), size);
    FUZZ_CHECK(hex2bin(text) == ok);
    FUZZ_CHECK(!ok || text.size() == size / 2);

    if (size >= 4) {
        std::uint8_t four[4];
        std::memcpy(four, data, 4);
        const bool digits =
            std::all_of(data, data + 4, [](std::uint8_t c) { return c >= '0' && c <= '9'; });
        FUZZ_CHECK(atobl(four) == (digits ? 1 : 0));
        if (digits) {
            std::uint32_t value;
            std::memcpy(&value, four, sizeof value);
            FUZZ_CHECK(value == std::stoul(std::string(reinterpret_cast<const char*>(data), 4)));
        } else {
            FUZZ_CHECK(std::memcmp(four, data, 4) == 0);
        }
    }
    return 0;
}
