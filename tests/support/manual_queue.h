// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

#include "support/serial_queue.h"

namespace sentrel::test {

/// A queue whose tasks run when a test says so, on the test's own thread: every order of things that threads
/// could bring about can be played, and played again.
class ManualQueue final : public SerialQueue {
 public:
  void async(Task task) override { tasks_.push(std::move(task)); }
  void sync(Task task) override {
    drain();
    task();
  }
  bool runOne() {
    if (tasks_.empty()) return false;
    tasks_.pop()();
    return true;
  }
  void drain() {
    while (runOne()) {
    }
  }

 private:
  TaskRing tasks_;
};

}  // namespace sentrel::test
