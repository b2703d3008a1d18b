// Test driver: runs one system wrapper or start-up step by name inside the simulated terminal, so
// tests can see the exact argument vectors and effects of code no command reaches yet.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/caller.hpp"
#include "base/shared.hpp"
#include "certs/cert_restore.hpp"
#include "front/process.hpp"
#include "system/mtd.hpp"
#include "system/tools.hpp"

namespace {

int dispatch(int argc, char** argv) {
    const std::string op = argc > 1 ? argv[1] : "";
    auto arg = [&](int i) -> const char* { return i < argc ? argv[i] : nullptr; };
    if (op == "adduser") return sys_adduser(arg(2));
    if (op == "passwd") return sys_passwd(arg(2), arg(3));
    if (op == "reboot") {
        sys_reboot();
        return 0;
    }
    if (op == "mount") return sys_mount(arg(2), arg(3), arg(4), arg(5));
    if (op == "umount") return sys_umount(arg(2), arg(3));
    if (op == "fsck") return sys_fsck(arg(2), arg(3));
    if (op == "nvram-set") return sys_nvram_set(arg(2), arg(3));
    if (op == "nvram-commit") return sys_nvram_commit();
    if (op == "nvram-get") {
        std::optional<std::string> line;
        int st = sys_nvram_get(arg(2), line);
        std::printf("line=%s", line ? line->c_str() : "(none)\n");
        return st;
    }
    if (op == "run") {
        // Printed, not yet flushed: it must still come before the tool's own output.
        std::printf("before-");
        const std::vector<const char*> vector(argv + 3, argv + argc);
        return sys_run_tool(arg(2), vector, ForkFailure::return_failure);
    }
    if (op == "led") return set_led_permissions(arg(2));
    if (op == "get-mtd") {
        std::string dev = "unset";
        int st = get_mtd(arg(2), dev);
        std::printf("device=%s\n", dev.c_str());
        return st;
    }
    if (op == "nandwrite") return sys_nandwrite(arg(2), arg(3));
    if (op == "keys-init-cert") {
        // As the start-up check leaves it before any command runs.
        orvin_rki_ca = orvin_rki_ca_check();
        int st = keys_init_cert();
        std::printf("rki=%d\n", orvin_rki_ca);
        return st;
    }
    std::printf("unknown probe %s\n", op.c_str());
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    caller_record();
    caller_become_root();
    process_harden();
    int st = dispatch(argc, argv);
    std::printf("result=%d\n", st);
    return 0;
}
