// The command table: the one place that knows the option words.
#pragma once

#include <array>

#include "base/status.hpp"

struct CommandEntry {
    const char* option;
    int hidden;
    int min_args;
    int max_args;
    const char* params;
    ExitStatus (*handler)(int argc, char** argv);
};

inline constexpr std::size_t command_count = 28;

extern const std::array<CommandEntry, command_count> cmds;

// The first row whose option and argument count match, or nullptr.
[[nodiscard]] const CommandEntry* find_command(int argc, char** argv);

// The usage text, listing every row that is not hidden.
void print_usage(const char* name);
