// The start-up sweep over the application file system.
#pragma once

#include <sys/stat.h>

#include "system/walk.hpp"

// One walk entry; the walk stops after a failed deletion.
[[nodiscard]] WalkStep ftw_process_files(const char* path, const struct stat* st, int type);

// Tells the kernel's security module that the sweep finished.
void ids_task_init();
