// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <map>

#include "support/main_loop.h"
#include "support/serial_queue.h"

namespace sentrel::test {

/// A main loop and a clock that move only when a test says so: hours pass in microseconds, in one defined
/// order.
class ManualMainLoop final : public MainLoop, public Clock {
 public:
  static constexpr std::int64_t startMs = 1'700'000'000'000;

  [[nodiscard]] std::int64_t nowMs() const override { return nowMs_; }

  void post(Task task) override {
    const std::lock_guard lock(mutex_);
    posted_.push(std::move(task));
  }

  Registration after(std::int64_t delayMs, Task task) override {
    return schedule(delayMs, 0, std::move(task));
  }
  Registration every(std::int64_t intervalMs, Task task) override {
    return schedule(intervalMs, intervalMs, std::move(task));
  }

  /// Runs posted tasks, and those that they post, until none is left.
  void runPosted() {
    for (std::unique_lock lock(mutex_); !posted_.empty(); lock.lock()) {
      Task task = posted_.pop();
      lock.unlock();
      task();
    }
  }

  /// Moves time on, running what falls due at its own moment, in the order of time and then of scheduling.
  void advance(std::int64_t ms) {
    runPosted();
    const std::int64_t end = nowMs_ + ms;
    while (!timers_.empty() && timers_.begin()->first <= end) {
      const auto [dueMs, timer] = *timers_.begin();
      timers_.erase(timers_.begin());
      nowMs_ = std::max(nowMs_, dueMs);
      if (timer->intervalMs > 0) timers_.emplace(dueMs + timer->intervalMs, timer);
      timer->task();
      runPosted();
    }
    nowMs_ = end;
  }

  [[nodiscard]] std::size_t timerCount() const { return timers_.size(); }

 private:
  struct Timer {
    std::int64_t intervalMs;  ///< or 0
    Task task;
  };

  Registration schedule(std::int64_t delayMs, std::int64_t intervalMs, Task task) {
    const auto timer = std::make_shared<Timer>(Timer{intervalMs, std::move(task)});
    timers_.emplace(nowMs_ + delayMs, timer);
    return Registration([this, weak = std::weak_ptr(timer)] {
      if (const auto live = weak.lock())
        std::erase_if(timers_, [&](const auto& each) { return each.second == live; });
    });
  }

  std::int64_t nowMs_ = startMs;
  std::mutex mutex_;
  TaskRing posted_;
  std::multimap<std::int64_t, std::shared_ptr<Timer>> timers_;  // by when they are due, then in order
};

/// A queue whose tasks run when a test says so, on the test's own thread: every order of things that threads
/// could bring about can be played, and played again.
class ManualQueue final : public SerialQueue {
 public:
  void async(Task task) override { tasks_.push(std::move(task)); }
  void sync(Task task) override {
    drain();
    task();
  }
  void runOne() {
    if (!tasks_.empty()) tasks_.pop()();
  }
  void drain() {
    while (!tasks_.empty()) tasks_.pop()();
  }

 private:
  TaskRing tasks_;
};

}  // namespace sentrel::test
