// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include <sys/types.h>

namespace sentrel::bench {

/// What a running process has used so far, all its threads together.
struct ProcessUsage {
  double cpuSeconds = 0;       ///< processor time, user and system
  std::int64_t wakeUps = 0;    ///< how often a thread went on after waiting
  double proportionalMib = 0;  ///< memory: its own, and its share of what it has in common with others

  /// Zeros for a process that does not run.
  [[nodiscard]] static ProcessUsage of(pid_t pid);
};

}  // namespace sentrel::bench
