// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <thread>

namespace sentrel::test {

/// Looks at a condition of another process every few milliseconds until it holds; false when the time is
/// over. The time is a limit for a broken machine, never a measure: make it generous.
template <typename Condition>
[[nodiscard]] bool waitUntil(Condition&& condition,
                             std::chrono::milliseconds timeout = std::chrono::seconds(20),
                             std::chrono::milliseconds interval = std::chrono::milliseconds(4)) {
  const auto end = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(interval);
  }
  return true;
}

}  // namespace sentrel::test
