// The modern command line: `vorn <command> [options]`.
#pragma once

#include <string_view>

namespace vorn::modern {

// True when a first argument selects the modern interface: a command name
// or anything starting with "--".
bool is_modern_command(std::string_view first_argument);

// Runs the modern command line; returns the exit status (0 success, 1 bad
// input, 2 misuse of the command line).
int run_cli(int argc, char** argv);

}  // namespace vorn::modern
