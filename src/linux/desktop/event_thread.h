// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <thread>

#include "support/task.h"

namespace sentrel {

/// A thread with a Qt event loop, for what may wait for others: the main thread never does. Needs the Qt
/// application.
class EventThread {
 public:
  /// `name` has at most 15 characters.
  explicit EventThread(std::string name);
  /// Runs what is already posted, and waits for it; a thread that is stuck is left behind instead.
  ~EventThread();
  EventThread(const EventThread&) = delete;
  EventThread& operator=(const EventThread&) = delete;

  /// Runs `task` on the thread, in the order of posting. Any thread; never waits.
  void post(Task task);

 private:
  struct State;
  std::shared_ptr<State> state_;
  std::thread thread_;
};

}  // namespace sentrel
