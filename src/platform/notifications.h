// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

#include "support/signal.h"

namespace sentrel {

/// A notification with the default sound, shown at once.
struct NotificationContent {
  std::string title;
  std::string body;
};

/// The desktop's notification centre. Main thread; nothing here waits for anybody, and what the desktop does
/// not answer is lost without a word.
class Notifications {
 public:
  virtual ~Notifications() = default;

  /// Asks for leave to show notifications: a yes lasts as long as the process, after a no the next request
  /// asks again. `answer` comes exactly once on the main thread, within 2 s, in a later turn.
  virtual void requestAuthorization(std::function<void(bool granted)> answer) = 0;

  /// Shows the notification; one of the same identifier that is still shown is replaced.
  virtual void add(const std::string& identifier, const NotificationContent& content) = 0;

  /// Takes the notification away, also one whose showing is still under way.
  virtual void remove(const std::string& identifier) = 0;

  /// The person chose the notification of this identifier.
  Signal<std::string> chosen;
};

}  // namespace sentrel
