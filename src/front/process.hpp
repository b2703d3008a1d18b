// A clean start for every run, whatever state the caller left the process in (D4, D5).
#pragma once

void process_harden();
