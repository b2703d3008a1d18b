// orvin-auth: the one privileged gate through which software, certificates and keys reach the
// terminal.
#include <syslog.h>

#include <cstdio>
#include <new>

#include "base/caller.hpp"
#include "base/run_lock.hpp"
#include "base/status.hpp"
#include "front/commands.hpp"
#include "front/consistency.hpp"
#include "front/process.hpp"

namespace {

constexpr const char* program_name = "orvin-auth";

// Constant-initialised, so no initialiser resets what lift_limits_first found.
enum class Limits { untouched, lifted, too_low };
Limits limits = Limits::untouched;

Limits lift_limits() {
    return process_lift_limits() ? Limits::lifted : Limits::too_low;
}

// Runs before every initialiser of the program and of the libraries it links (the C++ runtime,
// libcrypto), so none of them can fail under a limit the caller left (D4). Nothing here may
// allocate or throw.
void lift_limits_first(int /*argc*/, char** /*argv*/, char** /*envp*/) {
    limits = lift_limits();
}

using PreinitFunction = void (*)(int, char**, char**);
[[gnu::used, gnu::section(".preinit_array")]] const PreinitFunction lift_limits_entry =
    lift_limits_first;

// The start-up check works on the terminal's own state, which every run shares; the command then
// reads and verifies what the caller offers before it takes the lock again (D22).
Result<ChainStore> startup_check() {
    shared_work();
    Result<ChainStore> chains = consistency_check();
    run_lock_give_back();
    return chains;
}

ExitStatus run(int argc, char** argv) {
    openlog(program_name, 0, LOG_LOCAL0);
    std::puts("\nOrvin Authentication and Installation Tool.");
    Result<ChainStore> chains = startup_check();
    if (!chains.ok()) {
        return chains.status();
    }
    if (const CommandEntry* row = find_command(argc, argv)) {
        return row->run(*chains, argv + 2);
    }
    // An empty program name is what the kernel makes of an empty argument vector (D4).
    print_usage(argv[0][0] != '\0' ? argv[0] : program_name);
    return ST_BAD_ARGUMENT;
}

}  // namespace

int main(int argc, char** argv) {
    // A C library that runs no .preinit_array leaves the limits to be lifted here, late but still
    // before anything of the run.
    if (limits == Limits::untouched) {
        limits = lift_limits();
    }
    caller_record();
    caller_become_root();
    process_harden();
    if (limits != Limits::lifted) {
        // Better no run than one that the caller's limits break half way (D4).
        std::puts("FATAL: Failed to set resource limits.");
        return ST_FAILURE;
    }
    if (argc == 0 || argv[0] == nullptr) {
        print_usage(program_name);
        return ST_BAD_ARGUMENT;
    }
    run_lock_open();
    ExitStatus status = ST_FAILURE;
    try {
        status = run(argc, argv);
    } catch (const std::bad_alloc&) {
        std::puts("FATAL: Out of memory.");
    }
    // The held output is written at exit, once the lock is given back: the next run need not
    // wait for a reader that the caller never lets read.
    return status;
}
