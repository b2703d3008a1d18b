// The start-up sweep over the application file system.
#pragma once

#include "system/walk.hpp"
#include "verify/signers.hpp"

// One walk entry, judged against the sweep's signers; the walk stops after a failed deletion.
[[nodiscard]] WalkStep ftw_process_files(Signers& signers, const char* path, int type);

// Tells the kernel's security module that the sweep finished.
void ids_task_init();
