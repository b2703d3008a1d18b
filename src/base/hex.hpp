// The one hexadecimal codec, and the four-digit number of KBPK state file names; all in place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Decodes len hexadecimal characters (either case) at buf into len/2 bytes at the start of buf,
// high nibble first. true on success (an empty text included); false for an odd length (buf
// unchanged) or at the first character that is not a hexadecimal digit (buf then partly converted:
// the bytes made so far at its start, the characters read so far zeroed).
[[nodiscard]] bool hex2bin(std::uint8_t* buf, std::size_t len);

// Expands the first len/2 bytes of buf in place into len upper-case hexadecimal characters. Writes
// no terminator; the caller provides the room. It cannot fail.
void bin2hex(std::uint8_t* buf, std::size_t len);

// When the four bytes are all decimal digits, stores their value (0 to 9999) over them as a 32-bit
// integer in host byte order and returns true; otherwise false and the bytes stay as they were.
[[nodiscard]] bool atobl(std::uint8_t* four);

// hex2bin over a whole string: on success the string holds the decoded bytes.
[[nodiscard]] bool hex2bin(std::string& text);
