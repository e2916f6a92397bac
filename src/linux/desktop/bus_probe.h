// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QSocketNotifier>
#include <functional>
#include <memory>

#include "support/main_loop.h"
#include "support/registration.h"

namespace sentrel {

enum class BusKind { session, system };

/// Finds out whether a bus answers, without waiting for it. The bus library has one thread for all its
/// connections, which stands still for half a minute while it connects to a bus that does not answer: it is
/// only sent to those that do. Lives on a thread with an event loop of Qt.
class BusProbe {
 public:
  /// `told` is called once, in a later turn of `loop`, unless this goes before.
  BusProbe(BusKind kind, MainLoop& loop, std::function<void(bool answers)> told);
  ~BusProbe();
  BusProbe(const BusProbe&) = delete;
  BusProbe& operator=(const BusProbe&) = delete;

 private:
  void readable();
  void settle(bool answers);

  std::function<void(bool answers)> told_;
  int socket_ = -1;
  std::unique_ptr<QSocketNotifier> notifier_;
  Registration end_;  // the limit, or the turn in which the outcome is told
  MainLoop& loop_;
};

}  // namespace sentrel
