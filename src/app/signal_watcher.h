// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QSocketNotifier>
#include <functional>
#include <memory>

namespace sentrel {

/// Turns SIGTERM, SIGINT and SIGHUP into a call on the main thread, so that a session's end or Ctrl-C stops
/// protection as the menu would.
class SignalWatcher {
 public:
  /// Holds the signals back for this thread and those that it starts: to be made before any other thread.
  SignalWatcher();
  ~SignalWatcher();
  SignalWatcher(const SignalWatcher&) = delete;
  SignalWatcher& operator=(const SignalWatcher&) = delete;

  /// Calls `onSignal` for every signal from now on, also for those held back so far. Needs the Qt
  /// application.
  void watch(std::function<void()> onSignal);

 private:
  int descriptor_ = -1;
  std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace sentrel
