// Owning wrapper for a file descriptor whose close keeps errno.
#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            reset(std::exchange(other.fd_, -1));
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool valid() const { return fd_ >= 0; }
    explicit operator bool() const { return valid(); }

    // Hands the descriptor over; it is no longer closed here.
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }

    void reset(int fd = -1) {
        if (fd_ >= 0) {
            int saved = errno;
            ::close(fd_);
            errno = saved;
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};
