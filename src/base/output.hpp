// The program's own output, and what its tools print, held in memory and written out only when
// the run holds nothing other runs wait for.
#pragma once

#include <cstddef>

// From here on what the program prints is held, so a caller who never reads it (a full pipe, a
// stopped terminal) cannot stop a run inside a writable window, nor keep other runs waiting; what
// is held is written at exit.
void output_hold();

// Holds what a tool wrote to its descriptor fd (1 or 2) after everything held so far, to reach the
// caller's descriptor of the same number in that order.
void output_append(int fd, const char* data, std::size_t length);

// Gives the run lock back, then writes what is held to descriptors 1 and 2: at exit, and before
// the reboot that ends a run. Nothing reaches the caller's descriptors while the lock is held
// (D22). A failed write loses the output, never the run.
void output_release();
