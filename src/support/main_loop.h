// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "support/registration.h"
#include "support/task.h"

namespace sentrel {

/// The program's time base: milliseconds since 1970, taken from the wall clock once and advanced by a clock
/// that runs on through sleep and never steps. Any thread.
class Clock {
 public:
  virtual ~Clock() = default;
  [[nodiscard]] virtual std::int64_t nowMs() const = 0;
};

/// The main thread's queue and timers.
class MainLoop {
 public:
  virtual ~MainLoop() = default;

  /// Runs `task` on the main thread in a later turn, in the order of posting. Any thread.
  virtual void post(Task task) = 0;

  /// Runs `task` once after `delayMs` (>= 0), unless the registration ends first. Main thread.
  virtual Registration after(std::int64_t delayMs, Task task) = 0;

  /// Runs `task` every `intervalMs` (> 0) until the registration ends. Main thread.
  virtual Registration every(std::int64_t intervalMs, Task task) = 0;
};

}  // namespace sentrel
