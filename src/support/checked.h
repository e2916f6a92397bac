// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <limits>

#include "support/fatal.h"

namespace sentrel {

/// Signed 64-bit arithmetic that never wraps: an overflow ends the process, because a time or a counter that
/// wrapped would silently decide about alerts.
inline std::int64_t checkedAdd(std::int64_t a, std::int64_t b) {
  std::int64_t result = 0;
  if (__builtin_add_overflow(a, b, &result)) fatal("arithmetic overflow in an addition");
  return result;
}

/// For what is only shown: a sum out of range is the nearest number in it.
inline std::int64_t saturatingAdd(std::int64_t a, std::int64_t b) {
  std::int64_t result = 0;
  if (!__builtin_add_overflow(a, b, &result)) return result;
  return b > 0 ? std::numeric_limits<std::int64_t>::max() : std::numeric_limits<std::int64_t>::min();
}

inline std::int64_t checkedSubtract(std::int64_t a, std::int64_t b) {
  std::int64_t result = 0;
  if (__builtin_sub_overflow(a, b, &result)) fatal("arithmetic overflow in a subtraction");
  return result;
}

inline std::int64_t checkedMultiply(std::int64_t a, std::int64_t b) {
  std::int64_t result = 0;
  if (__builtin_mul_overflow(a, b, &result)) fatal("arithmetic overflow in a multiplication");
  return result;
}

}  // namespace sentrel
