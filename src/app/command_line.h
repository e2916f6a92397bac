// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <span>

namespace sentrel {

/// Answers a start that only asks for words, and gives its exit status: 0, 1 where they could not be printed,
/// 2 for an argument that nobody knows. Nothing where the program is to run: without arguments, and with the
/// one by which the session bus starts it. `arguments` are those behind the program's name. Needs neither a
/// display, a bus nor a Qt application. Main thread.
[[nodiscard]] std::optional<int> answerCommandLine(std::span<const char* const> arguments);

}  // namespace sentrel
