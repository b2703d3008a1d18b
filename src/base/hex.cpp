// The one hexadecimal codec, and the four-digit number of KBPK state file names; all in place.
#include "base/hex.hpp"

#include <cstring>
#include <optional>

namespace {

// Nothing for a character that is not a hexadecimal digit.
std::optional<int> nibble(std::uint8_t c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return std::nullopt;
}

}  // namespace

bool hex2bin(std::uint8_t* buf, std::size_t len) {
    if (len % 2 != 0) {
        return false;
    }
    // Output position i/2 never overtakes input position i, so decoding in place is safe; each
    // character is zeroed once read so no key digit outlives its conversion.
    int high = 0;
    for (std::size_t i = 0; i < len; ++i) {
        const std::optional<int> value = nibble(buf[i]);
        if (!value) {
            return false;
        }
        buf[i] = 0;
        if (i % 2 == 0) {
            high = *value;
        } else {
            buf[i / 2] = static_cast<std::uint8_t>(high * 16 + *value);
        }
    }
    return true;
}

void bin2hex(std::uint8_t* buf, std::size_t len) {
    static constexpr char digits[] = "0123456789ABCDEF";
    // From the last byte backwards, so that no byte is overwritten before it has been read.
    for (std::size_t i = len / 2; i-- > 0;) {
        const std::uint8_t byte = buf[i];
        buf[2 * i] = static_cast<std::uint8_t>(digits[byte >> 4]);
        buf[2 * i + 1] = static_cast<std::uint8_t>(digits[byte & 0x0F]);
    }
}

bool atobl(std::uint8_t* four) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        if (four[i] < '0' || four[i] > '9') {
            return false;
        }
        value = value * 10 + (four[i] - '0');
    }
    std::memcpy(four, &value, sizeof value);
    return true;
}

bool hex2bin(std::string& text) {
    auto* bytes = reinterpret_cast<std::uint8_t*>(text.data());
    if (!hex2bin(bytes, text.size())) {
        return false;
    }
    text.resize(text.size() / 2);
    return true;
}
