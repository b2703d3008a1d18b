// The one exchange with the Security API device, and the one proc read and proc write.
#include "device/sapi.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>

#include "base/fd.hpp"
#include "base/paths.hpp"
#include "base/run_lock.hpp"

namespace {

// A device failure reaches the program only as errno; a short transfer leaves it 0.
ssize_t write_once(int fd, std::span<const std::uint8_t> bytes) {
    errno = 0;
    ssize_t n;
    do {
        n = ::write(fd, bytes.data(), bytes.size());
    } while (n < 0 && errno == EINTR);
    return n;
}

ssize_t read_once(int fd, std::uint8_t* buf, std::size_t count) {
    errno = 0;
    ssize_t n;
    do {
        n = ::read(fd, buf, count);
    } while (n < 0 && errno == EINTR);
    return n;
}

SapiReply sapi_transfer(int fd, const SapiRequest& request, const SapiReplyRule& rule,
                        SapiWriteRefusal refusal) {
    const std::vector<std::uint8_t> bytes = sapi_encode(request);
    ssize_t written = write_once(fd, bytes);
    if (written < 0 || static_cast<std::size_t>(written) != bytes.size()) {
        const int err = errno;
        const SapiWriteFailure f = sapi_write_failure(request.command, err, refusal);
        if (f.with_code) {
            std::printf("FATAL: Write to the Security API device failed with code 0x%02X.\n",
                        static_cast<unsigned>(err));
        } else {
            std::puts("FATAL: Failed to write to the Security API device.");
        }
        return f.status;
    }
    if (rule.ask == 0) {
        return std::vector<std::uint8_t>{};
    }
    std::vector<std::uint8_t> reply(rule.ask);
    ssize_t got = read_once(fd, reply.data(), reply.size());
    if (!sapi_reply_accepted(got, rule)) {
        std::printf("FATAL: Read from the Security API device failed with code 0x%02X.\n",
                    static_cast<unsigned>(errno));
        return ST_FAILURE;
    }
    reply.resize(static_cast<std::size_t>(got));
    return reply;
}

}  // namespace

SapiReply sapi_exchange(const SapiRequest& request, const SapiReplyRule& rule,
                        SapiWriteRefusal refusal) {
    shared_work();
    // One request per open: the driver answers on the descriptor that carried the request.
    UniqueFd fd(::open(paths::sapi_device, O_RDWR | O_CLOEXEC));
    if (!fd) {
        std::puts("FATAL: Failed to open the Security API device.");
        return ST_FAILURE;
    }
    return sapi_transfer(fd.get(), request, rule, refusal);
}

SapiReply sapi_key_install_exchange(std::uint8_t acquirer, std::span<const std::uint8_t> key_block,
                                    KeyInstallSender sender) {
    std::optional<SapiRequest> request = sapi_key_install(acquirer, key_block);
    if (!request) {
        return ST_FAILURE;
    }
    if (sender == KeyInstallSender::key_file) {
        return sapi_exchange(*request, sapi_reply_key(key_reply_min), SapiWriteRefusal::pci_pin);
    }
    return sapi_exchange(*request, sapi_reply_key(terminal_key_reply_min),
                         SapiWriteRefusal::ordinary);
}

Result<ProcRecord> sapi_proc_read(ProcReads reads) {
    shared_work();
    UniqueFd fd(::open(paths::sapi_proc, O_RDONLY | O_CLOEXEC));
    if (!fd) {
        return ST_FAILURE;
    }
    ProcRecord record;
    ssize_t first = read_once(fd.get(), record.bytes.data(), record.bytes.size());
    if (first < 0) {
        return ST_FAILURE;
    }
    std::size_t total = static_cast<std::size_t>(first);
    if (reads == ProcReads::two) {
        ssize_t second =
            read_once(fd.get(), record.bytes.data() + total, record.bytes.size() - total);
        if (second < 0) {
            return ST_FAILURE;
        }
        total += static_cast<std::size_t>(second);
    }
    if (total == 0) {
        return ST_FAILURE;
    }
    record.length = total;
    return record;
}

ExitStatus sapi_proc_write(std::span<const std::uint8_t> record) {
    shared_work();
    UniqueFd fd(::open(paths::sapi_proc, O_WRONLY | O_CLOEXEC));
    if (!fd) {
        return ST_FAILURE;
    }
    const ssize_t n = write_once(fd.get(), record);
    return n >= 0 && static_cast<std::size_t>(n) == record.size() ? ST_OK : ST_FAILURE;
}
