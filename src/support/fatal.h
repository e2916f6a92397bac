// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace sentrel {

/// Ends the process for a fault that no caller can mend: one line on standard error, then abort. Overlays
/// vanish with their connection, so a covered screen is never left behind. Any thread.
[[noreturn]] inline void fatal(std::string_view message) {
  std::fprintf(stderr, "sentrel: fatal: %.*s\n", static_cast<int>(message.size()), message.data());
  std::abort();
}

// Signed 64-bit arithmetic that never wraps: an overflow is fatal, because a time or a counter that wrapped
// would silently decide about alerts.

inline std::int64_t checkedAdd(std::int64_t a, std::int64_t b) {
  std::int64_t result = 0;
  if (__builtin_add_overflow(a, b, &result)) fatal("arithmetic overflow in an addition");
  return result;
}

inline std::int64_t checkedSubtract(std::int64_t a, std::int64_t b) {
  std::int64_t result = 0;
  if (__builtin_sub_overflow(a, b, &result)) fatal("arithmetic overflow in a subtraction");
  return result;
}

}  // namespace sentrel
