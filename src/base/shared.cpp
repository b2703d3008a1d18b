// Small state and helpers every subsystem shares.
#include "shared.hpp"

#include <pwd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "caller.hpp"
#include "owners.hpp"
#include "paths.hpp"
#include "trust_anchor.hpp"

TrustAnchor trust_anchor;

ConsoleMode get_mode() {
    static constexpr const char* serial_getty = "::respawn:/sbin/getty -L ttymxc1 115200 vt100\n";
    FilePtr f(std::fopen(paths::inittab, "re"));
    if (!f) {
        std::puts("Failed to open inittab.");
        return ConsoleMode::unknown;
    }
    char* line = nullptr;
    std::size_t cap = 0;
    ssize_t len;
    ConsoleMode mode = ConsoleMode::no_serial_login;
    while ((len = getline(&line, &cap, f.get())) >= 0) {
        if (static_cast<std::size_t>(len) == std::strlen(serial_getty) &&
            std::memcmp(line, serial_getty, static_cast<std::size_t>(len)) == 0) {
            mode = ConsoleMode::serial_login;
            break;
        }
    }
    std::free(line);
    return mode;
}

std::string base_name(const std::string& path) {
    auto pos = path.rfind('/');
    return pos == std::string::npos ? path : path.substr(pos + 1);
}

std::string dir_part(const std::string& path) {
    auto pos = path.rfind('/');
    return pos == std::string::npos ? std::string() : path.substr(0, pos + 1);
}

Result<std::optional<gid_t>> app_group_for(const std::string& cn) {
    if (cn != ids::app_user_name) {
        return std::optional<gid_t>();
    }
    const passwd* pw = getpwnam(ids::app_user_name);
    if (pw == nullptr) {
        std::fputs("FATAL: Failed to obtain user information.", stdout);
        return ST_FAILURE;
    }
    return std::optional<gid_t>(pw->pw_gid);
}

std::string cut_at_slash(std::string cn) {
    auto pos = cn.find('/');
    if (pos != std::string::npos) {
        cn.resize(pos);
    }
    return cn;
}
