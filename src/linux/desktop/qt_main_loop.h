// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <cstdint>

#include "linux/desktop/posted_tasks.h"
#include "support/main_loop.h"

namespace sentrel {

/// The main loop on Qt's event loop. To be created on the main thread, after the Qt application; tasks that
/// are still posted when it goes are let go unrun.
class QtMainLoop final : public MainLoop {
 public:
  void post(Task task) override;
  Registration after(std::int64_t delayMs, Task task) override;
  Registration every(std::int64_t intervalMs, Task task) override;

  /// Whether posted tasks wait. Main thread.
  [[nodiscard]] bool idle() const { return posted_.idle(); }

 private:
  Registration start(std::int64_t delayMs, bool repeats, Task task);

  PostedTasks posted_;
  QObject timers_;  // the parent of all that run
};

/// The time base of the program: the wall clock read once, advanced by the kernel's boot-time clock, which
/// runs on through sleep and follows no correction. A wall clock that is set afterwards changes nothing.
class SystemClock final : public Clock {
 public:
  SystemClock();

  [[nodiscard]] std::int64_t nowMs() const override;

 private:
  const std::int64_t offsetMs_;  // from the time since the machine started
};

}  // namespace sentrel
