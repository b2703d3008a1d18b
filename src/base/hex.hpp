// The one hexadecimal codec, and the four-digit number of KBPK state file names; all in place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Decodes len hexadecimal characters (either case) at buf into len/2 bytes at the start of buf,
// high nibble first. 1 on success (an empty text included); 0 for an odd length (buf unchanged) or
// at the first character that is not a hexadecimal digit (buf then partly converted: the bytes
// made so far at its start, the characters read so far zeroed).
[[nodiscard]] int hex2bin(std::uint8_t* buf, std::size_t len);

// Expands the first len/2 bytes of buf in place into len upper-case hexadecimal characters. Writes
// no terminator; the caller provides the room. Always 1.
int bin2hex(std::uint8_t* buf, std::size_t len);

// When the four bytes are all decimal digits, stores their value (0 to 9999) over them as a 32-bit
// integer in host byte order and returns 1; otherwise 0 and the bytes stay as they were.
[[nodiscard]] int atobl(std::uint8_t* four);

// hex2bin over a whole string: on success the string holds the decoded bytes.
[[nodiscard]] int hex2bin(std::string& text);
