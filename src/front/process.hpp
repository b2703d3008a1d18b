// A clean start for every run, whatever state the caller left the process in (D4, D5), and one
// run at a time (D22).
#pragma once

#include "base/fd.hpp"

// Gives the process the program's own resource limits (D4). First of all, before even the caller
// is recorded: a caller's limit could otherwise end the run at its first allocation. False when a
// hard limit the caller left could not be raised and is too low for a run to finish safely.
[[nodiscard]] bool process_lift_limits();

void process_harden();

// Waits for every other run to end, then keeps them waiting while the descriptor it gives is open
// (D22). A lock file that cannot be made, or that is not the program's own, leaves the run
// unguarded (an empty descriptor).
[[nodiscard]] UniqueFd process_lock_run();
