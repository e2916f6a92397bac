// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace sentrel {

/// The program's time base: milliseconds since 1970, taken from the wall clock once and advanced by a clock
/// that runs on through sleep and never steps. Any thread.
class Clock {
 public:
  virtual ~Clock() = default;
  [[nodiscard]] virtual std::int64_t nowMs() const = 0;
};

}  // namespace sentrel
