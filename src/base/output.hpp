// The program's own output, held in memory and written out only where no change is under way.
#pragma once

// From here on what the program prints is held, so a caller who never reads it (a full pipe, a
// stopped terminal) cannot stop a run inside a writable window; what is held is written at exit.
void output_hold();

// Writes what is held to descriptor 1: before a tool starts, so its output follows ours, and at
// exit. A failed write loses the output, never the run.
void output_release();
