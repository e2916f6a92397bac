// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "support/registration.h"
#include "support/signal.h"

namespace sentrel {

/// The global shortcut: Super+Shift and the key that carries C. Keys are only observed, never taken away from
/// the program that has the focus. Main thread.
class KeyMonitor {
 public:
  virtual ~KeyMonitor() = default;

  /// Whether the shortcut can be observed on this desktop. It may take a moment after the start, and a
  /// decision of the person, until this becomes true.
  [[nodiscard]] virtual bool canObserve() const = 0;
  Signal<> canObserveChanged;

  /// Calls `pressed` for each press until the registration ends, except while the screen is locked or a
  /// window of ours has the focus. There is one observer: a new one replaces the former, whose registration
  /// then ends nothing.
  [[nodiscard]] virtual Registration observe(std::function<void()> pressed) = 0;
};

}  // namespace sentrel
