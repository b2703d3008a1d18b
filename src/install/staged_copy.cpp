// Copying an offered file into a staged file with the caller's rights, and checking that the
// staged bytes still carry the accepted signer's signature (D6).
#include "install/staged_copy.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "base/caller.hpp"
#include "base/fd.hpp"
#include "base/io.hpp"

namespace {

Result<Digest> copy_blocks(int in, std::uint64_t size, const std::string& dest,
                           const StagedFile& out) {
    if (!out.valid()) {
        std::printf("FATAL: Failed to create output file: %s\n", dest.c_str());
        return ST_FAILURE;
    }
    return digest_blocks(in, size, "FATAL: Failed to read a data block.",
                         [&](const std::uint8_t* block, std::size_t n) {
                             return write_full(out.fd(), block, n) == n;
                         });
}

}  // namespace

Result<Digest> copy_into(const char* source, const std::string& dest, const StagedFile& out) {
    const Result<struct stat> st = caller_lstat(source);
    if (!st.ok()) {
        return st.status();
    }
    UniqueFd in = caller_open(source, O_RDONLY | O_NONBLOCK);
    if (!in) {
        std::puts("FATAL: Failed to open input file.");
        return ST_FAILURE;
    }
    return copy_blocks(in.get(), static_cast<std::uint64_t>(st->st_size), dest, out);
}

Result<Digest> copy_held(const CallerFile& in, const std::string& dest, const StagedFile& out) {
    // The descriptor was read to its end when it was verified.
    if (lseek(in.fd.get(), 0, SEEK_SET) != 0) {
        std::puts("FATAL: Failed to read a data block.");
        return ST_FAILURE;
    }
    return copy_blocks(in.fd.get(), in.size, dest, out);
}

ExitStatus write_signature(const Signature& sig, const std::string& dest, const StagedFile& out) {
    if (!out.valid()) {
        std::printf("FATAL: Failed to create output file: %s\n", dest.c_str());
        return ST_FAILURE;
    }
    if (write_full(out.fd(), sig.data(), sig.size()) != sig.size()) {
        std::puts("FATAL: Failed to write a data block.");
        return ST_FAILURE;
    }
    return ST_OK;
}

ExitStatus check_staged(const Digest& digest, const Signer& signer) {
    if (!signer.signs(digest)) {
        std::puts("Signature check failed.");
        return ST_BAD_SIGNATURE;
    }
    return ST_OK;
}
