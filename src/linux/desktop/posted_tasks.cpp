// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/posted_tasks.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstddef>
#include <utility>

#include "support/fatal.h"

namespace sentrel {

PostedTasks::PostedTasks(QThread* thread)
    : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), posted_(descriptor_, QSocketNotifier::Read) {
  if (descriptor_ < 0) fatal("no event descriptor for an event loop");
  QObject::connect(&posted_, &QSocketNotifier::activated, &posted_, [this]() noexcept { runTurn(); });
  posted_.moveToThread(thread);
}

PostedTasks::~PostedTasks() {
  posted_.setEnabled(false);
  close(descriptor_);
  // Orders what the last turn did, on a thread that has ended, before the end of what it used.
  const std::lock_guard lastTurn(mutex_);
}

void PostedTasks::post(Task task) {
  {
    const std::lock_guard lock(mutex_);
    tasks_.push(std::move(task));
    if (tasks_.size() > 1) return;
  }
  // Not under the lock, which would be the first thing that the woken thread waits for.
  eventfd_write(descriptor_, 1);
}

bool PostedTasks::idle() const {
  const std::lock_guard lock(mutex_);
  return tasks_.empty();
}

/// Runs what was posted before this turn; what those tasks post waits for the next one, so that timers and
/// windows get theirs.
void PostedTasks::runTurn() {
  const auto stopWaking = [this] {
    eventfd_t ignored = 0;
    eventfd_read(descriptor_, &ignored);
  };
  std::unique_lock lock(mutex_);
  if (tasks_.empty()) stopWaking();  // a task came, and was run, before it was told
  for (std::size_t left = tasks_.size(); left > 0 && !tasks_.empty(); --left) {
    Task task = tasks_.pop();
    if (tasks_.empty()) stopWaking();
    lock.unlock();
    task();
    task = Task();  // what the task holds is released outside the lock
    lock.lock();
  }
}

}  // namespace sentrel
