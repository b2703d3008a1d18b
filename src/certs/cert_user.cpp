// The application user and its device permissions, kept in step with the certificate store.
#include "certs/cert_user.hpp"

#include <ftw.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "base/caller.hpp"
#include "base/paths.hpp"
#include "base/shared.hpp"
#include "base/trust_anchor.hpp"
#include "base/status.hpp"
#include "system/mtd.hpp"
#include "system/tools.hpp"
#include "verify/cert_chain.hpp"
#include "verify/delete.hpp"

namespace {

enum class Grant { owner, led };

struct DeviceGrant {
    const char* path;
    Grant grant;
};

// The devices the application drives, in the order they are handed over. Each is touched only
// when present: terminals differ in what they carry.
constexpr DeviceGrant device_grants[] = {
    {"/dev/beeper", Grant::owner},
    {"/dev/emvl1_uart", Grant::owner},
    {"/dev/fb0", Grant::owner},
    {"/dev/input/event0", Grant::owner},
    {"/dev/lp0", Grant::owner},
    {"/dev/mag-swipe", Grant::owner},
    {"/dev/power", Grant::owner},
    {"/dev/rtc0", Grant::owner},
    {"/dev/sapi0", Grant::owner},
    {"/dev/secpe", Grant::owner},
    {"/dev/ttymxc4", Grant::owner},
    {"/sys/power/state", Grant::owner},
    {"/dev/ttymxc0", Grant::owner},
    {"/sys/class/leds/LED1:YELLOW:PIN1", Grant::led},
    {"/sys/class/leds/LED2:YELLOW:PIN2", Grant::led},
    {"/sys/class/leds/LED3:YELLOW:PIN3", Grant::led},
    {"/sys/class/leds/LED4:YELLOW:PIN4", Grant::led},
    {"/sys/class/leds/LED5:YELLOW:PIN5", Grant::led},
    {"/sys/class/leds/LED6:YELLOW:PIN6", Grant::led},
    {"/sys/class/leds/LED7:RED", Grant::led},
    {"/sys/class/leds/LED8:GREEN", Grant::led},
    {"/sys/class/leds/LED9:BLUE:BLUETOOTH", Grant::led},
    {"/dev/apple-co-pro", Grant::owner},
};

// An existing account is left alone, password included: only a new one gets its password cleared,
// and only on a terminal with a serial console login.
ExitStatus ensure_account() {
    if (getpwnam(ids::app_user_name) != nullptr) {
        return ST_OK;
    }
    if (ExitStatus st = sys_adduser(ids::app_user_name); st != ST_OK) {
        return st;
    }
    if (get_mode() == ConsoleMode::serial_login) {
        return sys_passwd("-d", ids::app_user_name);
    }
    return ST_OK;
}

ExitStatus grant_devices() {
    for (const DeviceGrant& d : device_grants) {
        if (!caller_access(d.path, F_OK)) {
            continue;
        }
        const ExitStatus st = d.grant == Grant::led ? set_led_permissions(d.path)
                                                    : sys_chown(d.path, ids::root, ids::app_group);
        if (st != ST_OK) {
            return st;
        }
    }
    return ST_OK;
}

// The screens partition holds the application's own images: unlike the devices above, a terminal
// without it is broken.
ExitStatus grant_screens() {
    const Result<std::string> device = get_mtd(paths::mtd_screens);
    if (!device.ok()) {
        return device.status();
    }
    return sys_chown(device->c_str(), ids::root, ids::app_group);
}

}  // namespace

ExitStatus cert_adduser_cn(const std::string& cn) {
    if (cn != ids::app_user_name) {
        return ST_OK;
    }
    if (ExitStatus st = ensure_account(); st != ST_OK) {
        return st;
    }
    if (ExitStatus st = grant_devices(); st != ST_OK) {
        return st;
    }
    return grant_screens();
}

WalkStep ftw_process_certs(ChainStore& chains, const char* path, int type) {
    if (type != FTW_F) {
        return WalkStep::go_on;
    }
    std::printf("%s - certificate", path);
    // The certificate that verified gives the common name too, so each is read once (D6).
    ChainVerdict verdict = chains.verify(path, OpenAs::root, trust_anchor.get());
    // A stored production-signing certificate from "KeySigning" makes the bundle the anchor for
    // the certificates after it and the rest of the run.
    if (verdict.prod_sign_from_key_signing) {
        trust_anchor.set(Anchor::bundle);
    }
    const Result<X509Ptr> verified = std::move(verdict.cert);
    if (!verified.ok()) {
        std::fputs(" invalid - delete", stdout);
        if (file_unlink(path) != ST_OK) {
            std::printf("Failed to delete invalid certificate: %s.\n", path);
            return WalkStep::stop;
        }
    } else {
        std::fputs(" - verified", stdout);
        const Result<std::string> cn = cert_cn(verified->get());
        if (!cn.ok() || cert_adduser_cn(*cn) != ST_OK) {
            std::printf("Failed to add user for certificate: %s.\n", path);
            return WalkStep::stop;
        }
    }
    std::puts("");
    return WalkStep::go_on;
}
