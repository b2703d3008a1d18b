// The outer shape of key files before they reach the device: KBPK files and TR-31 key blocks.
#include "keys/tr31.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "base/caller.hpp"
#include "base/fd.hpp"
#include "base/io.hpp"
#include "device/sapi_wire.hpp"

namespace {

// "0", "A", "B" and "C" lie 0, 17, 18 and 19 above "0"; anything else, lower case included, wraps
// to another value.
bool version_known(std::uint8_t id) {
    const auto offset = static_cast<std::uint8_t>(id - '0');
    return offset == 0 || offset == 17 || offset == 18 || offset == 19;
}

}  // namespace

Tr31Fault tr31_size_fault(std::uint64_t size) {
    return size < tr31::min_size || size > tr31::max_size ? Tr31Fault::size : Tr31Fault::none;
}

Tr31Fault tr31_head_fault(std::span<const std::uint8_t, tr31::head_size> head, std::uint64_t size) {
    if (!version_known(head[0])) {
        return Tr31Fault::version;
    }
    std::uint64_t length = 0;
    for (std::size_t i = 1; i < head.size(); ++i) {
        if (head[i] < '0' || head[i] > '9') {
            return Tr31Fault::length_field;
        }
        length = length * 10 + static_cast<std::uint64_t>(head[i] - '0');
    }
    if (length != size || length % 8 != 0) {
        return Tr31Fault::length;
    }
    return Tr31Fault::none;
}

const char* tr31_fault_message(Tr31Fault fault) {
    switch (fault) {
        case Tr31Fault::none:
            return nullptr;
        case Tr31Fault::size:
            return "Invalid TR-31 file size.";
        case Tr31Fault::version:
            return "Invalid TR-31 version ID.";
        case Tr31Fault::length_field:
            return "Invalid TR-31 length field.";
        case Tr31Fault::length:
            return "Invalid TR-31 length.";
    }
    return nullptr;
}

ExitStatus tr31_size_rule(std::uint64_t size) {
    if (Tr31Fault f = tr31_size_fault(size); f != Tr31Fault::none) {
        std::puts(tr31_fault_message(f));
        return ST_BAD_TR31_FILE;
    }
    return ST_OK;
}

ExitStatus kbpk_size_rule(std::uint64_t size) {
    if (size != sapi::kbpk_file_size) {
        std::puts("Invalid KBPK file.");
        return ST_BAD_KBPK_FILE;
    }
    return ST_OK;
}

ExitStatus file_verify_kbpk_file(const char* path) {
    const Result<struct stat> st = caller_lstat(path);
    return st.ok() ? kbpk_size_rule(static_cast<std::uint64_t>(st->st_size)) : st.status();
}

ExitStatus file_verify_key_file(const char* path) {
    if (!caller_access(path, F_OK)) {
        std::printf("Invalid file: %s\n", path);
        return ST_BAD_ARGUMENT;
    }
    Result<CallerFile> file = caller_open_to_verify(path, tr31_size_rule);
    if (!file.ok()) {
        return file.status();
    }
    const int fd = file->fd.get();
    std::array<std::uint8_t, tr31::head_size> head{};
    if (read_full(fd, head.data(), 1) != 1 ||
        read_full(fd, head.data() + 1, head.size() - 1) != head.size() - 1) {
        std::printf("Failed to read the TR-31 file: %s\n", path);
        return ST_FAILURE;
    }
    file->fd.reset();
    if (Tr31Fault f = tr31_head_fault(head, file->size); f != Tr31Fault::none) {
        std::puts(tr31_fault_message(f));
        return ST_BAD_TR31_FILE;
    }
    return ST_OK;
}
