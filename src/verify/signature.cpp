// Detached signatures and the digests they sign: reading them and computing them.
#include "verify/signature.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <system_error>
#include <thread>
#include <utility>

#include "base/caller.hpp"
#include "base/io.hpp"
#include "base/ossl.hpp"

Sha256::Sha256() : ctx_(EVP_MD_CTX_new()), ok_(false) {
    // Fetched once per run: the implicit fetch behind EVP_sha256() is paid at every digest.
    static const EvpMdPtr sha256(EVP_MD_fetch(nullptr, "SHA256", nullptr));
    ok_ = ctx_ && EVP_DigestInit_ex(ctx_.get(), sha256 ? sha256.get() : EVP_sha256(), nullptr) == 1;
}

void Sha256::update(const void* data, std::size_t len) {
    ok_ = ok_ && EVP_DigestUpdate(ctx_.get(), data, len) == 1;
}

std::optional<Digest> Sha256::final() {
    Digest out{};
    unsigned int len = 0;
    ok_ = ok_ && EVP_DigestFinal_ex(ctx_.get(), out.data(), &len) == 1 && len == out.size();
    if (!ok_) {
        return std::nullopt;
    }
    return out;
}

namespace {

// A quarter of a serial block, so the blocks in flight between the two threads stay as warm in the
// cache as two serial blocks would.
constexpr std::size_t ring_block = io_bulk_block / 4;

// The blocks of one digest, read and copied on one thread and digested on the other, so the second
// digest of an install overlaps its copy. A few buffers go round; each is reused only once its
// bytes are both written and digested, so the bytes digested are the bytes written (D6), and
// memory stays flat whatever the file size (D21).
class BlockRing {
public:
    // false when the buffers cannot be had; the digest then goes on with one buffer in turn.
    [[nodiscard]] bool allocate() {
        for (auto& buf : bufs_) {
            buf.reset(new (std::nothrow) std::uint8_t[ring_block]);
            if (!buf) {
                return false;
            }
        }
        return true;
    }

    // Reader: a free buffer to fill, or null once the digest has given up.
    [[nodiscard]] std::uint8_t* next_free() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return abandoned_ || produced_ - consumed_ < depth; });
        return abandoned_ ? nullptr : bufs_[produced_ % depth].get();
    }
    void filled(std::size_t length) {
        {
            const std::lock_guard lock(mutex_);
            lengths_[produced_ % depth] = length;
            ++produced_;
        }
        changed_.notify_all();
    }
    void finish(BlockFault fault) {
        {
            const std::lock_guard lock(mutex_);
            fault_ = fault;
            finished_ = true;
        }
        changed_.notify_all();
    }

    // Digest: the next filled block, empty once the reader has finished and every block is taken.
    [[nodiscard]] std::span<const std::uint8_t> next_filled() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return finished_ || consumed_ < produced_; });
        if (consumed_ == produced_) {
            return {};
        }
        return {bufs_[consumed_ % depth].get(), lengths_[consumed_ % depth]};
    }
    void release() {
        {
            const std::lock_guard lock(mutex_);
            ++consumed_;
        }
        changed_.notify_all();
    }
    void give_up() {
        {
            const std::lock_guard lock(mutex_);
            abandoned_ = true;
        }
        changed_.notify_all();
    }
    [[nodiscard]] BlockFault fault() {
        const std::lock_guard lock(mutex_);
        return fault_;
    }

private:
    static constexpr std::size_t depth = 8;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::array<std::unique_ptr<std::uint8_t[]>, depth> bufs_;
    std::array<std::size_t, depth> lengths_{};
    std::uint64_t produced_ = 0;
    std::uint64_t consumed_ = 0;
    bool finished_ = false;
    bool abandoned_ = false;
    BlockFault fault_ = BlockFault::none;
};

// Block by block as the serial digest goes: a short read ends it, then a refused copy; a block is
// handed on only after both.
void read_into(int fd, std::uint64_t size, const BlockCopy& copy, BlockRing& ring) {
    BlockFault fault = BlockFault::none;
    for (std::uint64_t remaining = size; remaining > 0;) {
        std::uint8_t* block = ring.next_free();
        if (block == nullptr) {
            break;
        }
        const std::size_t want = remaining < ring_block ? remaining : ring_block;
        if (read_full(fd, block, want) != want) {
            fault = BlockFault::read;
            break;
        }
        if (copy && !copy(block, want)) {
            fault = BlockFault::consume;
            break;
        }
        ring.filled(want);
        remaining -= want;
    }
    ring.finish(fault);
}

// The reading thread, which never outlives the digest: whichever way it ends, it is told to stop
// and joined, so no thread is left at a later fork.
class ReaderThread {
public:
    ReaderThread(BlockRing& ring, std::thread thread) : ring_(ring), thread_(std::move(thread)) {}
    ReaderThread(const ReaderThread&) = delete;
    ReaderThread& operator=(const ReaderThread&) = delete;
    ~ReaderThread() {
        ring_.give_up();
        thread_.join();
    }

private:
    BlockRing& ring_;
    std::thread thread_;
};

// Digests size bytes of fd with the reads and copies on a thread of their own; nothing when the
// buffers or the thread cannot be had (a caller's resource limits can refuse either), so the digest
// goes the serial way instead with the same outcome.
std::optional<BlockFault> digest_alongside(int fd, std::uint64_t size, const BlockCopy& copy,
                                           Sha256& sha) {
    BlockRing ring;
    if (!ring.allocate()) {
        return std::nullopt;
    }
    std::thread thread;
    try {
        thread = std::thread(read_into, fd, size, std::cref(copy), std::ref(ring));
    } catch (const std::system_error&) {
        return std::nullopt;
    }
    {
        const ReaderThread reader(ring, std::move(thread));
        for (;;) {
            const std::span<const std::uint8_t> block = ring.next_filled();
            if (block.empty()) {
                break;
            }
            sha.update(block.data(), block.size());
            ring.release();
            if (!sha.ok()) {
                break;
            }
        }
    }
    return ring.fault();
}

BlockFault digest_serially(int fd, std::uint64_t size, const BlockCopy& copy, Sha256& sha) {
    return read_blocks(fd, size, [&](const std::uint8_t* block, std::size_t n) {
        if (copy && !copy(block, n)) {
            return false;
        }
        sha.update(block, n);
        return sha.ok();
    });
}

}  // namespace

Result<Digest> digest_blocks(int fd, std::uint64_t size, const char* read_failure,
                             const BlockCopy& copy) {
    Sha256 sha;
    if (!sha.ok()) {
        openssl_failure();
        return ST_FAILURE;
    }
    std::optional<BlockFault> fault;
    if (size > io_bulk_block) {
        (void)posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
        fault = digest_alongside(fd, size, copy, sha);
    }
    if (!fault) {
        fault = digest_serially(fd, size, copy, sha);
    }
    // A failed digest stopped at its block, before any later short read or refused copy; its
    // final answer covers that block too.
    if (sha.ok() && *fault == BlockFault::read) {
        std::puts(read_failure);
        return ST_FAILURE;
    }
    if (sha.ok() && *fault == BlockFault::consume) {
        std::puts("FATAL: Failed to write a data block.");
        return ST_FAILURE;
    }
    const std::optional<Digest> digest = sha.final();
    if (!digest) {
        openssl_failure();
        return ST_FAILURE;
    }
    return *digest;
}

Result<Signature> sig_read(const std::string& sig_path, OpenAs who) {
    // Opening first spares the access test on the usual path; a failed open is then told apart
    // exactly as before: unreadable for whoever judges, or readable but not openable.
    UniqueFd fd = caller_open(sig_path.c_str(), O_RDONLY | O_NONBLOCK, who);
    if (!fd) {
        if (!caller_access(sig_path.c_str(), R_OK, who)) {
            std::printf("Cannot access signature file: %s\n", sig_path.c_str());
            return ST_BAD_SIGNATURE;
        }
        std::printf("Failed to open the signature file: %s\n", sig_path.c_str());
        return ST_FAILURE;
    }
    return sig_read_opened(fd.get(), sig_path);
}

Result<Signature> sig_read_opened(int fd, const std::string& sig_path) {
    Signature sig{};
    if (read_full(fd, sig.data(), sig.size()) != sig.size()) {
        std::printf("Failed to read the signature file: %s\n", sig_path.c_str());
        return ST_FAILURE;
    }
    return sig;
}
