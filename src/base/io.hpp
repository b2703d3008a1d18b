// Whole reads and writes on descriptors, retried across partial transfers and interruptions.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

inline constexpr std::size_t io_block = 4096;

// Bulk transfers (digests and copies of whole files) go in blocks this large: few system calls,
// still small enough to stay in cache between the read, the digest and the write, and memory
// stays flat whatever the file size (D21).
inline constexpr std::size_t io_bulk_block = std::size_t{256} * 1024;

// Bytes read: fewer than count only at end of file or on an error.
[[nodiscard]] std::size_t read_full(int fd, void* buf, std::size_t count);
// Everything left to read on fd, for small files such as kernel tables; a read error ends the
// text where it happened.
[[nodiscard]] std::string read_to_end(int fd);
// The size bytes of a small file, such as the program's own state: nothing when fewer could be
// read, or when no buffer could hold them. A 32-bit build cannot address a file beyond 2 GiB, and
// its size cut to fit would read a prefix as if it were the whole file (D26).
[[nodiscard]] std::optional<std::vector<std::uint8_t>> read_whole(int fd, off_t size);
// Where reading a file block by block stopped early: at a short read, or at a block the consumer
// refused.
enum class BlockFault { none, read, consume };

// Reads exactly size bytes of fd in bulk blocks and hands each to consume, which answers whether to
// go on; the file is never held whole.
[[nodiscard]] BlockFault read_blocks(
    int fd, std::uint64_t size,
    const std::function<bool(const std::uint8_t* block, std::size_t length)>& consume);

// Bytes written: fewer than count only on an error.
[[nodiscard]] std::size_t write_full(int fd, const void* buf, std::size_t count);
