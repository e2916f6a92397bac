// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include <sys/types.h>

namespace sentrel::test {

/// What a running process has used so far and holds now, all its threads together.
struct ProcessUsage {
  double cpuSeconds = 0;       ///< processor time, user and system
  std::int64_t wakeUps = 0;    ///< how often a thread went on after waiting
  double proportionalMib = 0;  ///< memory: its own, and its share of what it has in common with others
  /// That without the pages of files, of which its share changes with whoever else runs.
  double ownMib = 0;
  int threads = 0;
  std::map<std::string, int> descriptors;  ///< how many of each kind, by the name without its numbers

  /// Zeros for a process that does not run.
  [[nodiscard]] static ProcessUsage of(pid_t pid);
  [[nodiscard]] int descriptorCount() const;
};

}  // namespace sentrel::test
