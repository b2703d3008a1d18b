// Handlers of the signed-content installation subsystem.
#pragma once

#include "base/status.hpp"

[[nodiscard]] ExitStatus cmd_file_install_check(const char* source, const char* dest);
[[nodiscard]] ExitStatus cmd_file_install(const char* source, const char* dest);
[[nodiscard]] ExitStatus cmd_file_remove(const char* path);
[[nodiscard]] ExitStatus cmd_file_rename(const char* path, const char* new_path);
[[nodiscard]] ExitStatus cmd_image_install_check(const char* image);
[[nodiscard]] ExitStatus cmd_image_install(const char* image);
[[nodiscard]] ExitStatus cmd_os_update(const char* image);
