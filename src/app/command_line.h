// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <span>

namespace sentrel {

/// Exit statuses of a command.
enum class ExitStatus {
  done = 0,
  refused = 1,     ///< by the program that runs, or it gave no answer; the reason was printed
  misused = 2,     ///< an argument that nobody knows
  notRunning = 3,  ///< there is no program to ask
};

/// Answers a start that is no start of the program: words about it, and commands to the instance that runs,
/// each of which waits at most 5 s for an answer. Gives the exit status; nothing where the program is to run,
/// without arguments and with the one by which the session bus starts it. `arguments` are those behind the
/// program's name. Needs no display. Main thread.
std::optional<int> answerCommandLine(std::span<const char* const> arguments);

}  // namespace sentrel
