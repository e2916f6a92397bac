// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "support/task.h"

namespace sentrel {

/// One thread that runs tasks in the order of their arrival. Destroying the queue runs what is already queued
/// and waits for it; when the last owner lets go on the queue's own thread it is left to finish by itself.
class SerialQueue {
 public:
  /// `label` names the queue; its last 15 characters name the thread.
  explicit SerialQueue(std::string label);
  virtual ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  /// Any thread. Allocates only when more tasks wait than ever before.
  virtual void async(Task task);

  /// Runs `task` on the queue and waits for it. Any thread but the queue's own.
  virtual void sync(Task task);

  [[nodiscard]] bool isCurrent() const;
  [[nodiscard]] const std::string& label() const { return label_; }

 protected:
  /// A queue without a thread, for one that runs its tasks in its own way.
  SerialQueue() = default;

 private:
  struct State;
  std::string label_;
  std::shared_ptr<State> state_;
};

}  // namespace sentrel
