// The start-up sweep over the application file system.
#pragma once

#include <sys/stat.h>

// One walk entry: 0 to go on, 1 to stop the walk after a failed deletion.
[[nodiscard]] int ftw_process_files(const char* path, const struct stat* st, int type);

// Tells the kernel's security module that the sweep finished.
void ids_task_init();
