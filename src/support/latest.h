// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>
#include <optional>
#include <utility>

namespace sentrel {

/// Room for one value between two threads: putting a value replaces the one that waits, so the newest wins
/// and nothing piles up in front of a slow reader. Any thread.
template <class T>
class Latest {
 public:
  /// Returns true when the room was empty, that is when the reader has to be woken.
  bool put(T value) {
    std::optional<T> replaced;  // released after the lock
    const std::lock_guard lock(mutex_);
    replaced = std::exchange(value_, std::optional<T>(std::move(value)));
    return !replaced.has_value();
  }

  std::optional<T> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(value_, std::nullopt);
  }

 private:
  std::mutex mutex_;
  std::optional<T> value_;
};

}  // namespace sentrel
