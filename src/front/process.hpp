// A clean start for every run, whatever state the caller left the process in (D4, D5).
#pragma once

// Gives the process the program's own resource limits (D4). First of all, before anything of the
// program or its libraries is initialised: a caller's limit could otherwise end the run at its
// first allocation. Only system calls, no allocation. False when a hard limit the caller left
// could not be raised and is too low for a run to finish safely.
[[nodiscard]] bool process_lift_limits();

void process_harden();
