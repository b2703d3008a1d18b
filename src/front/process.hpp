// A clean start for every run, whatever state the caller left the process in (D4, D5), and one
// run at a time (D22).
#pragma once

void process_harden();

// Waits for every other run to end, then keeps them waiting until this one exits (D22). A lock
// file that cannot be made, or that is not the program's own, leaves the run unguarded.
void process_lock_run();
