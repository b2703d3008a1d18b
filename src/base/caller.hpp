// The caller recorded at start (D1), the switch to root, and file access with the caller's rights
// (D2, D3).
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <vector>

#include "fd.hpp"
#include "result.hpp"
#include "status.hpp"

namespace ids {
inline constexpr uid_t root = 0;
inline constexpr uid_t app_user = 500;
inline constexpr gid_t app_group = 500;
inline constexpr const char* app_user_name = "main-user";
}  // namespace ids

struct Caller {
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups;
};

// Records the real user, group and supplementary groups; must run before anything changes them.
void caller_record();

// Makes real, effective and saved IDs root, so the caller can no longer signal the process and
// every tool it starts runs as root.
void caller_become_root();

[[nodiscard]] const Caller& caller();

// Who may run a command, judged on the recorded caller.
enum class CallerRule { root_only, root_or_app };

[[nodiscard]] bool caller_allowed(CallerRule rule);

// Prints "Access denied." and returns ST_ACCESS_DENIED when the recorded caller may not run the
// command.
[[nodiscard]] ExitStatus caller_check(CallerRule rule);

// Whose rights judge a file: the caller's for what the caller names (D3), root's for the program's
// own files and the terminal's files under "/usr/local/" that the sweep judges (D27), so that a
// verdict on them never depends on who started the run.
enum class OpenAs { root, caller };

// While alive, the file-system identity is the one who names: with OpenAs::caller the kernel judges
// opens, lstat, access and unlink as if the caller made them (a root caller keeps every right);
// with OpenAs::root nothing changes.
class AsCaller {
public:
    explicit AsCaller(OpenAs who = OpenAs::caller);
    ~AsCaller();
    AsCaller(const AsCaller&) = delete;
    AsCaller& operator=(const AsCaller&) = delete;

private:
    bool switched_;
};

// The file primitives below judge with the caller's rights unless told otherwise by `who`.

// Opens a file the caller named, for reading, with the caller's rights (D3). It never blocks, and
// anything but a regular file (a FIFO, socket, device or directory) is refused exactly like a file
// that cannot be opened, so no caller can hold the process. flags may add O_NOFOLLOW; the access
// mode is always read-only, non-blocking and close-on-exec.
[[nodiscard]] UniqueFd caller_open(const char* path, int flags = 0, OpenAs who = OpenAs::caller);
// Holds a directory the caller named, as a path descriptor, if the caller could reach it.
[[nodiscard]] UniqueFd caller_open_dir(const char* path);
// lstat(2) with the caller's rights: the file's own information (a link is judged by itself), or
// 9 after "FATAL: Failed to obtain file information.".
[[nodiscard]] Result<struct stat> caller_lstat(const char* path, OpenAs who = OpenAs::caller);
[[nodiscard]] bool caller_access(const char* path, int mode, OpenAs who = OpenAs::caller);

// A caller's file held for reading, with the size and mode it had when it was judged.
struct CallerFile {
    UniqueFd fd;
    std::uint64_t size = 0;
    mode_t mode = 0;
};
// Judges a file's size before it is opened, printing its own refusal.
using SizeRule = ExitStatus (*)(std::uint64_t size);
// The one way a caller's file is opened to be verified (D3): its lstat, the size rule (if any)
// judged between that and the open, so a file too big to take is refused before it is opened,
// then the open, refused with "FATAL: Failed to open the file to verify." and 9.
[[nodiscard]] Result<CallerFile> caller_open_to_verify(const char* path, SizeRule rule = nullptr,
                                                       OpenAs who = OpenAs::caller);
// Whether the caller may write the held directory dir (create entries in it), judged by the kernel
// with the caller's rights on that very directory, never on a path. A kernel that cannot judge
// a descriptor so answers no.
[[nodiscard]] bool caller_may_write_dir(int dir);
// unlink(2) with the caller's rights: whether the entry is gone.
[[nodiscard]] bool caller_unlink(const char* path);
