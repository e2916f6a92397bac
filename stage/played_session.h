// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include "stage/bus_doubles.h"
#include "stage/headless_desktop.h"

namespace sentrel::test {

/// A person's session on a private desktop: the login manager, GNOME's screen locker and the battery, played
/// in processes of their own. Whoever asks belongs to this session.
class PlayedSession {
 public:
  /// Ready when it returns: active, unlocked, 80 % charged and discharging. Needs both buses.
  explicit PlayedSession(HeadlessDesktop& desktop);

  void setLockedHint(bool locked) const;
  /// The login manager asks the session to lock or unlock; nobody confirms it.
  void requestLock(bool lock) const;
  void setActive(bool active) const;
  void prepareForSleep(bool begins) const;
  void setLockerActive(bool covers) const;
  void setBattery(double percent, bool charging) const;
  /// How many programs delay the sleep of the machine.
  [[nodiscard]] std::size_t sleepDelays() const;

  [[nodiscard]] const BusClient& sessionBus() const { return sessionBus_; }

 private:
  BusClient sessionBus_;
  BusClient systemBus_;
  BusMock logind_;
  BusMock locker_;
  BusMock upower_;
};

}  // namespace sentrel::test
