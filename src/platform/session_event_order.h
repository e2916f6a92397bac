// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/session_events.h"
#include "support/main_loop.h"
#include "support/published.h"

namespace sentrel {

/// Merges the reports of the desktop's sources into ordered session events. Main thread.
///
/// Four *absences* exist: locked, session inactive, system asleep, displays off. Each is true while any of
/// its sources says so. One that begins delivers its going-away event; one that ends delivers its
/// coming-back event only when no other absence is left and the person was away at all. Sources repeat
/// reports and lose some; a report of what is known already delivers nothing.
///
/// A request to lock counts as going away too before a source confirms it, but holds no coming-back event
/// back: the end of any absence ends it, and without a confirmation it ends after `requestLifeMs`.
class SessionEventOrder {
 public:
  enum class Source {
    lockedHint,
    freedesktopScreenSaver,
    gnomeScreenSaver,
    xfceScreenSaver,
    mateScreenSaver,
    lockerProgram,
    sessionInactive,
    systemSleep,
    x11Displays,
    waylandDisplays,
    gnomeDisplays,
  };
  static constexpr std::size_t sourceCount = 11;

  /// A lock that shows within this time after its request is the requested one.
  static constexpr std::int64_t confirmationMs = 10'000;
  static constexpr std::int64_t requestLifeMs = 60'000;
  /// How long the last report of a source that has gone counts: long enough for a service to restart.
  static constexpr std::int64_t lostSourceMs = 5'000;

  /// The references outlive this object.
  SessionEventOrder(MainLoop& mainLoop, const Clock& clock, SessionEvents::Observer deliver);

  /// The source saw its absence begin or end.
  void changed(Source source, bool absent);
  /// The source was asked and reports its present state. An absence that is found, not seen to begin,
  /// delivers nothing when the person is known to be away already: several answers make one event.
  void found(Source source, bool absent);
  /// The source can no longer tell.
  void lost(Source source);

  /// The source does not exist, or gives no answer.
  void silent(Source source);

  void lockRequested();
  void unlockRequested();

  /// Delivers one going-away event when an absence is known: to be called for an observer that comes later.
  void repeatForNewObserver();

  /// Emitted after each report and each timeout, once its events are delivered.
  Signal<> settled;
  /// A request to lock has ended by itself.
  Signal<> requestUnconfirmed;

  /// Whether everybody who knows of a lock has been heard.
  [[nodiscard]] bool isKnown() const;
  [[nodiscard]] bool isLocked() const { return isAbsent(Absence::locked); }
  /// Whether anything but `source` keeps the person away.
  [[nodiscard]] bool isAwayWithout(Source source) const;

 private:
  enum class Absence { locked, inactive, asleep, displaysOff };
  enum class Seen { beginning, found };

  static constexpr std::size_t indexOf(Source source) { return static_cast<std::size_t>(source); }
  static Absence absenceOf(std::size_t source);
  static SessionEvent goingAway(Absence absence);
  static SessionEvent comingBack(Absence absence);

  [[nodiscard]] bool isAbsent(Absence absence) const;
  void update(Source source, bool absent, Seen seen);
  void requestRanOut();
  void began(Absence absence, Seen seen);
  void comeBack(SessionEvent event);
  void goAway(SessionEvent event);
  void endRequest();

  MainLoop& mainLoop_;
  const Clock& clock_;
  SessionEvents::Observer deliver_;
  std::array<bool, sourceCount> says_{};
  std::array<bool, sourceCount> heard_{};  // has answered, or never will
  std::array<Registration, sourceCount> forgetting_;
  std::optional<std::int64_t> requestedAtMs_;
  Registration requestEnd_;
  bool away_ = false;  // the last delivered event
};

}  // namespace sentrel
