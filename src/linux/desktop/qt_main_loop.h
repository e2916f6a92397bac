// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <cstdint>
#include <memory>

#include "support/main_loop.h"

namespace sentrel {

/// The main loop on Qt's event loop. To be created on the main thread, after the Qt application; tasks that
/// are still posted when it goes are let go unrun.
class QtMainLoop final : public MainLoop {
 public:
  QtMainLoop();
  ~QtMainLoop() override;
  QtMainLoop(const QtMainLoop&) = delete;
  QtMainLoop& operator=(const QtMainLoop&) = delete;

  /// Allocates only when more tasks wait than ever before.
  void post(Task task) override;
  Registration after(std::int64_t delayMs, Task task) override;
  Registration every(std::int64_t intervalMs, Task task) override;

  /// Whether posted tasks wait. Main thread.
  [[nodiscard]] bool idle() const;

 private:
  class Turns;

  Registration start(std::int64_t delayMs, bool repeats, Task task);

  std::unique_ptr<Turns> turns_;
  std::unique_ptr<QObject> timers_;  // the parent of all timers that run
};

}  // namespace sentrel
