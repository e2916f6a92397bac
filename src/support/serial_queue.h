// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/task.h"

namespace sentrel {

/// A slot for one value between two threads. A new value replaces the one that waits: the newest wins, and
/// nothing piles up in front of a slow reader. Any thread.
template <class T>
class Latest {
 public:
  /// Returns true when the slot was empty, that is when the reader has to be woken.
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

/// A first-in first-out buffer of tasks that never shrinks: it allocates only when it holds more than ever
/// before. Not synchronised.
class TaskRing {
 public:
  [[nodiscard]] bool empty() const { return count_ == 0; }
  [[nodiscard]] std::size_t size() const { return count_; }
  void push(Task task);
  /// Not when it is empty.
  Task pop();

 private:
  std::vector<Task> slots_;
  std::size_t first_ = 0;
  std::size_t count_ = 0;
};

/// Runs tasks one after the other in the order of their arrival, on a thread of its own or on that of another
/// queue. Destroying the queue runs what is already queued and waits for it; when the last owner lets go on
/// the queue's own thread it is left to finish by itself.
class SerialQueue {
 public:
  /// The last 15 characters of `label` name the thread.
  explicit SerialQueue(const std::string& label);
  /// Shares the thread of `other`, which is renamed: a task that hands its work on from one queue to the
  /// other as the last thing it does wakes nobody. The tasks of either wait for those of both.
  SerialQueue(const std::string& label, const SerialQueue& other);
  virtual ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  /// Any thread. Allocates only when more tasks wait than ever before.
  virtual void async(Task task);

  /// Runs `task` at a moment or soon after it, in the order of the moments; a thread that ends before
  /// drops it. On the queue itself this wakes nobody. Any thread.
  void asyncAt(std::chrono::steady_clock::time_point moment, Task task);

  /// Runs `task` on the queue and waits for it. Any thread but the one that runs the queue.
  virtual void sync(Task task);

 protected:
  /// A queue without a thread, for one that runs its tasks in its own way.
  SerialQueue() = default;

 private:
  struct State;
  struct Thread;
  std::shared_ptr<Thread> thread_;
};

}  // namespace sentrel
