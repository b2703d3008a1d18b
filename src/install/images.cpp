// Screen images and operating-system updates: signed content written into raw partitions.
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <optional>
#include <string>

#include "base/caller.hpp"
#include "base/paths.hpp"
#include "base/shared.hpp"
#include "install/handlers.hpp"
#include "install/staged_copy.hpp"
#include "system/flag.hpp"
#include "system/mtd.hpp"
#include "system/private_tmp.hpp"
#include "system/staged_file.hpp"
#include "system/tools.hpp"
#include "verify/delete.hpp"
#include "verify/signers.hpp"

namespace {

constexpr off_t screen_image_size = 131072;
constexpr const char* os_signer = "OperatingSystem";

ExitStatus file_verify_image_file(const char* path) {
    const Result<struct stat> st = caller_lstat(path);
    if (!st.ok()) {
        return st.status();
    }
    if (st->st_size != screen_image_size) {
        std::puts("Invalid image file.");
        return ST_BAD_ARGUMENT;
    }
    return ST_OK;
}

// The root-only copy of the offered image that the flash tools read. The copy itself is judged:
// its signature against the first 256 bytes of the offered ".sig", read once, by the signer that
// was accepted, and its size where one is required. So what reaches the partition is what was
// verified, whatever the caller swaps in meanwhile (D6, D17).
ExitStatus snapshot_verified(Signers& signers, const char* source, const std::string& image,
                             const std::string& cn, std::optional<off_t> required_size) {
    const Result<Signature> sig = sig_read(std::string(source) + ".sig");
    if (!sig.ok()) {
        return sig.status();
    }
    // Staged beside the snapshot, in the run's own directory.
    StagedFile staged(dir_part(image).c_str());
    const Result<Digest> digest = copy_into(source, image, staged);
    if (!digest.ok()) {
        return digest.status();
    }
    struct stat copied {};
    if (fstat(staged.fd(), &copied) != 0) {
        std::puts("FATAL: Failed to obtain file information.");
        return ST_FAILURE;
    }
    const Result<Signer> signer = signers.find(*digest, *sig);
    if (!signer.ok()) {
        return signer.status();
    }
    if (signer->cn != cn) {
        std::puts("Signature check failed.");
        return ST_BAD_SIGNATURE;
    }
    if (required_size && copied.st_size != *required_size) {
        std::puts("Invalid image file.");
        return ST_BAD_ARGUMENT;
    }
    if (!staged.publish(image)) {
        std::printf("FATAL: Failed to create output file: %s\n", image.c_str());
        return ST_FAILURE;
    }
    return ST_OK;
}

// The step both image commands end with: snapshot the image the accepted signer signed and write
// the snapshot into the partition. A snapshot whose signature fails takes the offered image and
// its signature with it, as the first check would have (D2).
ExitStatus write_verified_image(Signers& signers, const char* source, const std::string& cn,
                                std::optional<off_t> required_size, const char* partition) {
    PrivateTmp tmp;
    if (!tmp.valid()) {
        std::printf("FATAL: Failed to create output file: %s\n", paths::private_tmp_template);
        return ST_FAILURE;
    }
    const std::string image = tmp.path("image");
    if (ExitStatus st = snapshot_verified(signers, source, image, cn, required_size); st != ST_OK) {
        return reject_on_bad_signature(st, source);
    }
    if (sys_nandwrite(partition, image.c_str()) != ST_OK) {
        return ST_FAILURE;
    }
    return ST_OK;
}

// One search serves both verifications: the offered image's and its snapshot's.
ExitStatus os_update_steps(const char* image) {
    Signers signers;
    Result<Signer> signer = file_verify_or_reject(signers, image);
    if (!signer.ok()) {
        return signer.status();
    }
    if (signer->cn != os_signer) {
        std::printf("Invalid signature: %s.\n", signer->cn.c_str());
        return reject_on_bad_signature(ST_BAD_SIGNATURE, image);
    }
    return write_verified_image(signers, image, signer->cn, std::nullopt, paths::mtd_os_update);
}

}  // namespace

ExitStatus cmd_image_install_check(const char* image) {
    if (ExitStatus st = caller_check(CallerRule::root_or_app); st != ST_OK) {
        return st;
    }
    Signers signers;
    if (Result<Signer> signer = file_verify(signers, image); !signer.ok()) {
        return signer.status();
    }
    if (ExitStatus st = file_verify_image_file(image); st != ST_OK) {
        return st;
    }
    std::puts("Image file can be installed.");
    return ST_OK;
}

ExitStatus cmd_image_install(const char* image) {
    if (ExitStatus st = caller_check(CallerRule::root_or_app); st != ST_OK) {
        return st;
    }
    Signers signers;
    Result<Signer> signer = file_verify_or_reject(signers, image);
    if (!signer.ok()) {
        return signer.status();
    }
    if (ExitStatus st = file_verify_image_file(image); st != ST_OK) {
        return st;
    }
    if (ExitStatus st = write_verified_image(signers, image, signer->cn, screen_image_size,
                                             paths::mtd_screens);
        st != ST_OK) {
        return st;
    }
    std::puts("Image file installed.");
    return ST_OK;
}

ExitStatus cmd_os_update(const char* image) {
    syslog(LOG_INFO, "Request for os_update");
    if (ExitStatus st = caller_check(CallerRule::root_or_app); st != ST_OK) {
        syslog(LOG_INFO, "failed to process os_update request. Access denied");
        return st;
    }
    ExitStatus st = os_update_steps(image);
    if (st == ST_OK) {
        switch (set_kernel_flag(paths::flag_os_update)) {
            case FlagResult::open_failed:
                // The one failure after the access test that leaves no log line.
                std::puts("FATAL: Failed to open os_update flag");
                return ST_FAILURE;
            case FlagResult::write_failed:
                std::puts("FATAL: Failed to set os_update flag");
                st = ST_FAILURE;
                break;
            case FlagResult::set:
                std::puts("OS image loaded and update flag set. Rebooting to commit...");
                sys_reboot();
                return ST_OK;
        }
    }
    syslog(LOG_INFO, "failed to process os_update request. Error- %d", st);
    return st;
}
