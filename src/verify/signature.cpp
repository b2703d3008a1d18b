// Detached signatures and the digests they sign: reading them and computing them.
#include "verify/signature.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

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

Result<Digest> digest_blocks(int fd, std::uint64_t size, const char* read_failure,
                             const BlockCopy& copy) {
    Sha256 sha;
    if (!sha.ok()) {
        openssl_failure();
        return ST_FAILURE;
    }
    bool copied = true;
    const BlockFault fault = read_blocks(fd, size, [&](const std::uint8_t* block, std::size_t n) {
        copied = !copy || copy(block, n);
        if (copied) {
            sha.update(block, n);
        }
        return copied && sha.ok();
    });
    if (fault == BlockFault::read) {
        std::puts(read_failure);
        return ST_FAILURE;
    }
    if (!copied) {
        std::puts("FATAL: Failed to write a data block.");
        return ST_FAILURE;
    }
    // A digest that failed on a block stays failed, so its final answer covers that block too.
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
