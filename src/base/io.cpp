// Whole reads and writes on descriptors, retried across partial transfers and interruptions.
#include "io.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

namespace {

// Repeats step, which moves what it can of the rest from offset done, until count bytes are moved:
// across partial transfers and interruptions, and no further than an error or end of file.
template <class Step>
std::size_t transfer_whole(std::size_t count, Step step) {
    std::size_t done = 0;
    while (done < count) {
        const ssize_t n = step(done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        done += static_cast<std::size_t>(n);
    }
    return done;
}

}  // namespace

std::size_t read_full(int fd, void* buf, std::size_t count) {
    auto* p = static_cast<char*>(buf);
    return transfer_whole(count,
                          [&](std::size_t done) { return ::read(fd, p + done, count - done); });
}

std::string read_to_end(int fd) {
    std::string text;
    char buf[io_block];
    std::size_t n;
    do {
        n = read_full(fd, buf, sizeof buf);
        text.append(buf, n);
    } while (n == sizeof buf);
    return text;
}

std::optional<std::vector<std::uint8_t>> read_whole(int fd, off_t size) {
    std::vector<std::uint8_t> bytes;
    if (size < 0 || static_cast<std::uint64_t>(size) > bytes.max_size()) {
        return std::nullopt;
    }
    bytes.resize(static_cast<std::size_t>(size));
    if (read_full(fd, bytes.data(), bytes.size()) != bytes.size()) {
        return std::nullopt;
    }
    return bytes;
}

BlockFault read_blocks(int fd, std::uint64_t size,
                       const std::function<bool(const std::uint8_t*, std::size_t)>& consume) {
    if (size > io_bulk_block) {
        (void)posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    }
    // No bigger than the file and left uninitialised: small files are the common case (the sweep
    // digests every installed file), and a whole block for each would cost more than its read.
    const std::size_t block_size = size < io_bulk_block ? size : io_bulk_block;
    auto block = std::make_unique_for_overwrite<std::uint8_t[]>(block_size);
    for (std::uint64_t remaining = size; remaining > 0;) {
        const std::size_t want = remaining < block_size ? remaining : block_size;
        if (read_full(fd, block.get(), want) != want) {
            return BlockFault::read;
        }
        if (!consume(block.get(), want)) {
            return BlockFault::consume;
        }
        remaining -= want;
    }
    return BlockFault::none;
}

std::size_t write_full(int fd, const void* buf, std::size_t count) {
    const auto* p = static_cast<const char*>(buf);
    return transfer_whole(count,
                          [&](std::size_t done) { return ::write(fd, p + done, count - done); });
}
