// A clean start for every run, whatever state the caller left the process in (D4, D5), and one
// run at a time (D22).
#pragma once

// Gives the process the program's own resource limits (D4). First of all, before even the caller
// is recorded: a caller's limit could otherwise end the run at its first allocation. False when a
// hard limit the caller left could not be raised and is too low for a run to finish safely.
[[nodiscard]] bool process_lift_limits();

void process_harden();

// Waits for every other run to end, then keeps them waiting until this one is done (D22). A lock
// file that cannot be made, or that is not the program's own, leaves the run unguarded.
void process_lock_run();

// Lets the next run start once this one has nothing left to change.
void process_unlock_run();
