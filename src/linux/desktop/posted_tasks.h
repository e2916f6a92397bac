// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QSocketNotifier>
#include <QThread>
#include <mutex>

#include "support/serial_queue.h"
#include "support/task.h"

namespace sentrel {

/// Tasks of any thread for the Qt event loop of one. Those that still wait when this goes are let go unrun.
class PostedTasks {
 public:
  /// `thread` runs the tasks. It is the present one, or has not started yet; then it has ended before this
  /// goes. Needs the Qt application.
  explicit PostedTasks(QThread* thread = QThread::currentThread());
  ~PostedTasks();
  PostedTasks(const PostedTasks&) = delete;
  PostedTasks& operator=(const PostedTasks&) = delete;

  /// Runs `task` in a later turn, in the order of posting. Allocates only when more wait than ever before.
  /// Any thread; never waits.
  void post(Task task);
  /// Whether tasks wait. Any thread.
  [[nodiscard]] bool idle() const;

 private:
  void runTurn();

  mutable std::mutex mutex_;
  TaskRing tasks_;
  // An event descriptor wakes the loop: unlike a posted Qt event it costs no allocation, and it stays
  // readable until the ring is empty, so that a nested event loop goes on where the outer one stopped.
  const int descriptor_;
  QSocketNotifier posted_;
};

}  // namespace sentrel
