// Whole reads and writes on descriptors, retried across partial transfers and interruptions.
#include "io.hpp"

#include <unistd.h>

#include <cerrno>

std::size_t read_full(int fd, void* buf, std::size_t count) {
    auto* p = static_cast<char*>(buf);
    std::size_t done = 0;
    while (done < count) {
        ssize_t n = ::read(fd, p + done, count - done);
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

std::size_t write_full(int fd, const void* buf, std::size_t count) {
    const auto* p = static_cast<const char*>(buf);
    std::size_t done = 0;
    while (done < count) {
        ssize_t n = ::write(fd, p + done, count - done);
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
