// Handlers of the signed-content installation subsystem.
#pragma once

#include "base/status.hpp"

[[nodiscard]] ExitStatus cmd_file_install_check(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_file_install(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_file_remove(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_file_rename(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_image_install_check(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_image_install(int argc, char** argv);
[[nodiscard]] ExitStatus cmd_os_update(int argc, char** argv);
