// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "support/task.h"

namespace sentrel {

/// A first-in first-out store of tasks that keeps its room: it allocates only when it holds more than ever
/// before. Not synchronised.
class TaskRing {
 public:
  [[nodiscard]] bool empty() const { return count_ == 0; }
  [[nodiscard]] std::size_t size() const { return count_; }

  void push(Task task) {
    if (count_ == slots_.size()) grow();
    slots_[(first_ + count_) % slots_.size()] = std::move(task);
    ++count_;
  }

  Task pop() {
    Task task = std::move(slots_[first_]);
    first_ = (first_ + 1) % slots_.size();
    --count_;
    return task;
  }

 private:
  void grow() {
    std::vector<Task> larger(slots_.empty() ? 16 : slots_.size() * 2);
    for (std::size_t i = 0; i < count_; ++i) larger[i] = std::move(slots_[(first_ + i) % slots_.size()]);
    slots_ = std::move(larger);
    first_ = 0;
  }

  std::vector<Task> slots_;
  std::size_t first_ = 0;
  std::size_t count_ = 0;
};

}  // namespace sentrel
