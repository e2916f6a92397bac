// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

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
    posted_.push_back(std::move(task));
  }

  Registration after(std::int64_t delayMs, Task task) override {
    return schedule(delayMs, 0, std::move(task));
  }
  Registration every(std::int64_t intervalMs, Task task) override {
    return schedule(intervalMs, intervalMs, std::move(task));
  }

  /// Runs posted tasks, and those that they post, until none is left.
  void runPosted() {
    for (;;) {
      std::vector<Task> batch;
      {
        const std::lock_guard lock(mutex_);
        batch.swap(posted_);
      }
      if (batch.empty()) return;
      for (auto& task : batch) task();
    }
  }

  /// Moves time on, running what falls due at its own moment, in the order of time and then of scheduling.
  void advance(std::int64_t ms) {
    runPosted();
    const std::int64_t end = nowMs_ + ms;
    for (;;) {
      const auto next = std::min_element(timers_.begin(), timers_.end(), [](const auto& a, const auto& b) {
        return std::pair(a->dueMs, a->order) < std::pair(b->dueMs, b->order);
      });
      if (next == timers_.end() || (*next)->dueMs > end) break;
      const std::shared_ptr<Timer> timer = *next;
      nowMs_ = std::max(nowMs_, timer->dueMs);
      if (timer->intervalMs > 0) {
        timer->dueMs += timer->intervalMs;
        timer->order = nextOrder_++;
      } else {
        std::erase(timers_, timer);
      }
      timer->task();
      runPosted();
    }
    nowMs_ = end;
  }

  [[nodiscard]] std::size_t timerCount() const { return timers_.size(); }

 private:
  struct Timer {
    std::int64_t dueMs;
    std::int64_t intervalMs;
    std::uint64_t order;
    Task task;
  };

  Registration schedule(std::int64_t delayMs, std::int64_t intervalMs, Task task) {
    auto timer = std::make_shared<Timer>(Timer{nowMs_ + delayMs, intervalMs, nextOrder_++, std::move(task)});
    timers_.push_back(timer);
    return Registration([this, timer = std::weak_ptr(timer)] {
      if (const auto live = timer.lock()) std::erase(timers_, live);
    });
  }

  std::int64_t nowMs_ = startMs;
  std::uint64_t nextOrder_ = 0;
  std::mutex mutex_;
  std::vector<Task> posted_;
  std::vector<std::shared_ptr<Timer>> timers_;
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
