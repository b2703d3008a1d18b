// orvin-auth: the one privileged gate through which software, certificates and keys reach the
// terminal.
#include <syslog.h>

#include <cstdio>
#include <new>

#include "base/caller.hpp"
#include "base/status.hpp"
#include "front/commands.hpp"
#include "front/consistency.hpp"
#include "front/process.hpp"

namespace {

constexpr const char* program_name = "orvin-auth";

ExitStatus run(int argc, char** argv) {
    openlog(program_name, 0, LOG_LOCAL0);
    std::puts("\nOrvin Authentication and Installation Tool.");
    Result<ChainStore> chains = consistency_check();
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
    const bool limits_lifted = process_lift_limits();
    caller_record();
    caller_become_root();
    process_harden();
    if (!limits_lifted) {
        // Better no run than one that the caller's limits break half way (D4).
        std::puts("FATAL: Failed to set resource limits.");
        return ST_FAILURE;
    }
    if (argc == 0 || argv[0] == nullptr) {
        print_usage(program_name);
        return ST_BAD_ARGUMENT;
    }
    UniqueFd run_lock = process_lock_run();
    ExitStatus status = ST_FAILURE;
    try {
        status = run(argc, argv);
    } catch (const std::bad_alloc&) {
        std::puts("FATAL: Out of memory.");
    }
    // The output still held may wait for a reader that the caller never lets read; the next
    // run need not wait with it.
    run_lock.reset();
    return status;
}
