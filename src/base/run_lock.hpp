// Which part of a run keeps the other runs waiting (D22).
#pragma once

// Opens the root-only lock file, once, right after the clean start. Nothing is locked yet: a run
// holds the lock only while it works on what runs share, so nothing the caller controls (a file
// of exabytes to verify, an output pipe nobody reads) can keep another run waiting.
void run_lock_open();

// The run is about to work on what runs share: the start-up check, a walk of /usr/local/, a
// writable window, a state file, the device, a platform tool. Waits until no other run holds the
// lock and holds it from here on; a run that holds it already goes straight on. The mechanisms
// themselves call it, so no path can reach shared work without it.
void shared_work();

// Gives the lock back: after the start-up check, and before anything is written to the caller's
// descriptors. Shared work after it waits for the lock again.
void run_lock_give_back();
