// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

#include "support/registration.h"

namespace sentrel {

/// The person goes away from this session, or comes back to it. A system sleep counts as one of the screens.
enum class SessionEvent {
  screensDidSleep,
  screensDidWake,
  sessionDidResignActive,
  sessionDidBecomeActive,
  screenIsLocked,
  screenIsUnlocked,
};

[[nodiscard]] constexpr bool isGoingAway(SessionEvent event) {
  return event == SessionEvent::screensDidSleep || event == SessionEvent::sessionDidResignActive ||
         event == SessionEvent::screenIsLocked;
}

/// What the desktop tells about this session, in order: the last delivered event is the truth. While the
/// session is known to be locked, inactive or asleep, no coming-back event is delivered; the last of these to
/// end delivers one. Main thread; nothing here waits for anybody.
class SessionEvents {
 public:
  using Observer = std::function<void(SessionEvent)>;

  virtual ~SessionEvents() = default;

  /// Observes until the registration ends; before and after that nothing is listened to. A session that is
  /// already away gives one going-away event as soon as that is known, never before this call returns. There
  /// is one observer: a new one replaces the former, whose registration then ends nothing.
  [[nodiscard]] virtual Registration install(Observer observer) = 0;

  /// Calls back once, in a later turn, when those who were asked by `install` have answered, so that a
  /// session that is away has delivered its event; without an answer after half a second.
  virtual void whenKnown(std::function<void()> known) = 0;

  /// Whether the screen is known to be locked; false while nobody listens. While it is, nothing may be
  /// mapped or raised, and the shortcut is not for us.
  [[nodiscard]] virtual bool isLocked() const = 0;

  /// Calls back with whether the screen is locked, until the registration ends: for the first time once that
  /// is known, in a later turn and after half a second at the latest, then with each change. Listens as an
  /// observer does; there may be several beside it.
  [[nodiscard]] virtual Registration followLock(std::function<void(bool locked)> follower) = 0;

  /// To be told after each going-away event, once the camera's device is closed: a system sleep waits for
  /// this, at most as long as the system allows.
  virtual void cameraIsClosed() = 0;

  /// Whether the program is paused for a reason that is not one of these events (the battery): nothing is
  /// polled meanwhile.
  virtual void setResting(bool resting) = 0;
};

}  // namespace sentrel
