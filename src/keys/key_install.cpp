// Working keys: a TR-31 key block goes to the device and comes back as a protected key file that
// the caller owns under "/home/".
#include "keys/key_install.hpp"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

#include "base/caller.hpp"
#include "base/fd.hpp"
#include "base/io.hpp"
#include "base/owners.hpp"
#include "base/path_rules.hpp"
#include "base/paths.hpp"
#include "base/shared.hpp"
#include "device/sapi.hpp"
#include "keys/acquirer.hpp"
#include "keys/handlers.hpp"
#include "keys/kbpk.hpp"
#include "keys/registry.hpp"
#include "keys/tr31.hpp"

namespace {

// Until the caller owns it, the key is readable by root alone.
constexpr mode_t opk_create_mode = 0600;
constexpr mode_t key_dir_mode = 0777;

ExitStatus invalid_destination(const char* dest) {
    std::printf("Invalid destination path: %s\n", dest);
    return ST_BAD_PATH;
}

// Where the target meets the existing tree: the deepest entry on its way that exists, the
// directories still to be made below it (top first) and the file's own name. real is the
// ancestor resolved through its links when the place was judged (D7); the writes follow that
// text and no link (D20).
struct KeyPlace {
    std::string ancestor;
    std::vector<std::string> missing;
    std::string name;
    std::string real;
};

std::optional<KeyPlace> key_place(const std::string& target) {
    const std::optional<PathSplit> split = split_at_existing(target);
    if (!split) {
        return std::nullopt;
    }
    KeyPlace place{split->existing, path_components(split->rest), {}, {}};
    if (!place.missing.empty()) {
        place.name = place.missing.back();
        place.missing.pop_back();
    }
    const std::optional<std::string> real = resolve_path(place.ancestor);
    if (!real) {
        return std::nullopt;
    }
    place.real = *real;
    return place;
}

// The target as the kernel would reach it now: the resolved ancestor and the rest of the text.
std::string resolved_target(const KeyPlace& place) {
    std::string resolved = place.real == "/" ? "" : place.real;
    for (const std::string& c : place.missing) {
        resolved += "/" + c;
    }
    return resolved + "/" + place.name;
}

bool inside(const std::string& path, const char* dir) {
    return path == dir || starts_with(path, (std::string(dir) + "/").c_str());
}

// D20: a key file is made with root's rights and handed to its caller, so a caller other than
// root may not have one anywhere in the program's home; D7 keeps every key file under "/home/".
bool key_place_allowed(const KeyPlace& place) {
    const std::string resolved = resolved_target(place);
    if (!starts_with(resolved, paths::home_prefix)) {
        return false;
    }
    return caller().uid == ids::root || !inside(resolved, paths::orvin_home);
}

// The offered key block as read once, and the source's mode, which the key file takes over.
struct KeyBlock {
    std::vector<std::uint8_t> bytes;
    mode_t mode = 0;
};

// The key block is read once, with the caller's rights (D3), into the bytes the device gets.
Result<KeyBlock> key_block_read(const char* source) {
    // Judged once already; a file that has grown since is refused in the same words (D10).
    const Result<CallerFile> file = caller_open_to_verify(source, tr31_size_rule);
    if (!file.ok()) {
        return file.status();
    }
    KeyBlock block{std::vector<std::uint8_t>(static_cast<std::size_t>(file->size)), file->mode};
    if (read_full(file->fd.get(), block.bytes.data(), block.bytes.size()) != block.bytes.size()) {
        std::printf("Failed to read the TR-31 file: %s\n", source);
        return ST_FAILURE;
    }
    return block;
}

// Every component entered from "/" without following a link, so the directory held is the one
// the text names.
UniqueFd dir_open_nofollow(const std::string& path) {
    UniqueFd dir(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (const std::string& c : path_components(path)) {
        if (!dir) {
            break;
        }
        dir = UniqueFd(
            ::openat(dir.get(), c.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    }
    return dir;
}

bool same_directory(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether the held directory is the program's home or lies below it, found by climbing ".." from
// the directory itself rather than by reading any path text.
bool held_in_orvin_home(int dir) {
    struct stat home {};
    if (::stat(paths::orvin_home, &home) != 0) {
        return false;
    }
    UniqueFd at(::openat(dir, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat here {};
    while (at && ::fstat(at.get(), &here) == 0) {
        if (same_directory(here, home)) {
            return true;
        }
        UniqueFd up(::openat(at.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        struct stat parent {};
        if (!up || ::fstat(up.get(), &parent) != 0) {
            break;
        }
        if (same_directory(parent, here)) {
            return false;  // "/" reached
        }
        at = std::move(up);
    }
    // A directory whose place cannot be told is not trusted with a key file.
    return true;
}

// D20, literally: a caller other than root places a key file only where he could have made it
// himself, so he never gets a file of his own in a directory he may not write (another user's
// home, whose shell would run it). Judged on the deepest existing directory as held.
bool key_dir_writable(int dir) {
    return caller().uid == ids::root || caller_may_write_dir(dir);
}

// The place was judged when the command began; the directories are now entered along the text
// that judgement resolved, from "/" and without following any link (D20), so a component swapped
// for a link since then ends the walk instead of moving the file. The rules are judged again on
// what the walk holds. Directories made stay root's.
UniqueFd key_dir_make(const KeyPlace& place) {
    if (!key_place_allowed(place)) {
        return {};
    }
    UniqueFd dir = dir_open_nofollow(place.real);
    if (!dir || !key_dir_writable(dir.get())) {
        return {};
    }
    for (const std::string& c : place.missing) {
        if (!dir || ::mkdirat(dir.get(), c.c_str(), key_dir_mode) != 0) {
            return {};
        }
        dir = UniqueFd(
            ::openat(dir.get(), c.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    }
    if (!dir || (caller().uid != ids::root && held_in_orvin_home(dir.get()))) {
        return {};
    }
    return dir;
}

// Created exclusively and never through a link: a name planted since the check is refused rather
// than written through and handed to the caller. Owner and mode come after the whole key.
ExitStatus opk_file_write(int dir, const KeyPlace& place, const std::string& target,
                          const std::vector<std::uint8_t>& key, gid_t group, mode_t mode) {
    UniqueFd fd(::openat(dir, place.name.c_str(),
                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, opk_create_mode));
    if (!fd) {
        std::puts("FATAL: Failed to open the Orvin Protected Key file.");
        return ST_FAILURE;
    }
    if (write_full(fd.get(), key.data(), key.size()) != key.size()) {
        std::printf("Failed to write the Orvin Protected Key file: %s\n", target.c_str());
        return ST_FAILURE;
    }
    if (::fchown(fd.get(), caller().uid, group) != 0) {
        std::puts("Failed to set user and group ID's.");
        return ST_FAILURE;
    }
    if (::fchmod(fd.get(), mode & 07777) != 0) {
        std::fputs("FATAL: Internal filesystem call failed.", stdout);
        return ST_FAILURE;
    }
    return ST_OK;
}

// The caller rule, the acquirer ID rule and the acquirer's KBPK; nothing is deleted before these.
Result<int> key_command_start(const char* id_text) {
    Result<int> id = acquirer_command_start(id_text);
    if (id.ok() && !kbpk_exists(*id)) {
        return ST_KBPK_PRESENCE;
    }
    return id;
}

ExitStatus key_install_checks(const char* source, const char* dest) {
    if (ExitStatus st = file_verify_key_file(source); st != ST_OK) {
        return st;
    }
    return key_install_verify(source, dest);
}

}  // namespace

ExitStatus key_install_verify(const char* source, const char* dest) {
    const std::string d(dest);
    if (ExitStatus st = dest_names_directory(d); st != ST_OK) {
        return st;
    }
    const std::string target = install_full_path(source, d);
    if (ExitStatus st = dest_text_verify(dest, target); st != ST_OK) {
        return st;
    }
    if (!starts_with(d, paths::home_prefix)) {
        return invalid_destination(dest);
    }
    if (path_has_bad_component(target) || !path_stays_inside(target, paths::home_prefix)) {
        return invalid_destination(dest);
    }
    const std::optional<KeyPlace> place = key_place(target);
    if (!place || !key_place_allowed(*place)) {
        return invalid_destination(dest);
    }
    if (const UniqueFd held = dir_open_nofollow(place->real);
        !held || !key_dir_writable(held.get())) {
        return invalid_destination(dest);
    }
    if (path_exists(target.c_str())) {
        std::printf("Destination file already exists: %s\n", target.c_str());
        return ST_EXISTS;
    }
    return ST_OK;
}

ExitStatus key_install_file(int id, const char* source, const char* dest) {
    const std::string d(dest);
    if (ExitStatus st = dest_names_directory(d); st != ST_OK) {
        return st;
    }
    const std::string target = install_full_path(source, d);
    const std::optional<KeyPlace> place = key_place(target);
    if (!place) {
        return ST_FAILURE;
    }
    const passwd* pw = ::getpwuid(caller().uid);
    if (pw == nullptr) {
        std::fputs("FATAL: Failed to obtain user information.", stdout);
        return ST_FAILURE;
    }
    const gid_t group = pw->pw_gid;
    const Result<KeyBlock> block = key_block_read(source);
    if (!block.ok()) {
        return block.status();
    }
    // A registry that cannot be read stops the install before the device holds the key (D25).
    const Result<Registry> registry = sha256_registry_load();
    if (!registry.ok()) {
        return registry.status();
    }
    SapiReply r = sapi_key_install_exchange(static_cast<std::uint8_t>(id), block->bytes,
                                            KeyInstallSender::key_file);
    if (!r.ok()) {
        return r.status();
    }
    const std::optional<KeyReply> reply = sapi_parse_key_reply(*r);
    if (!reply) {
        return ST_FAILURE;
    }
    // The device and the registry come before any directory or file is made.
    if (ExitStatus s = sha256_hash_check(*registry, reply->key_digest, reply->second_digest);
        s != ST_OK) {
        return s;
    }
    const UniqueFd dir = key_dir_make(*place);
    if (!dir) {
        return ST_FAILURE;
    }
    return opk_file_write(dir.get(), *place, target, reply->protected_key, group, block->mode);
}

ExitStatus cmd_key_install_check(const char* acquirer, const char* tr31_path,
                                 const char* opk_path) {
    if (const Result<int> started = key_command_start(acquirer); !started.ok()) {
        return started.status();
    }
    if (ExitStatus st = key_install_checks(tr31_path, opk_path); st != ST_OK) {
        return st;
    }
    std::puts("Cryptographic key can be installed.");
    return ST_OK;
}

ExitStatus cmd_key_install(const char* acquirer, const char* tr31_path, const char* opk_path) {
    const Result<int> started = key_command_start(acquirer);
    if (!started.ok()) {
        return started.status();
    }
    const int id = *started;
    ExitStatus st = key_install_checks(tr31_path, opk_path);
    if (st == ST_OK) {
        st = key_install_file(id, tr31_path, opk_path);
    }
    if (st != ST_OK) {
        // A refused key block goes, as far as the caller could delete it himself (D2).
        (void)caller_unlink(tr31_path);
        return st;
    }
    std::puts("Cryptographic key installed.");
    return ST_OK;
}
