// SPDX-License-Identifier: Apache-2.0
#include "platform/session_event_order.h"

#include <algorithm>
#include <utility>

#include "support/fatal.h"

namespace sentrel {

SessionEventOrder::SessionEventOrder(MainLoop& mainLoop, const Clock& clock, SessionEvents::Observer deliver)
    : mainLoop_(mainLoop), clock_(clock), deliver_(std::move(deliver)) {}

SessionEventOrder::Absence SessionEventOrder::absenceOf(std::size_t source) {
  // In the order of the sources.
  static constexpr std::array<Absence, sourceCount> absences{
      Absence::locked,      Absence::locked,      Absence::locked,     Absence::locked,
      Absence::locked,      Absence::locked,      Absence::inactive,   Absence::asleep,
      Absence::displaysOff, Absence::displaysOff, Absence::displaysOff};
  return absences[source];
}

SessionEvent SessionEventOrder::goingAway(Absence absence) {
  if (absence == Absence::locked) return SessionEvent::screenIsLocked;
  return absence == Absence::inactive ? SessionEvent::sessionDidResignActive : SessionEvent::screensDidSleep;
}

SessionEvent SessionEventOrder::comingBack(Absence absence) {
  if (absence == Absence::locked) return SessionEvent::screenIsUnlocked;
  return absence == Absence::inactive ? SessionEvent::sessionDidBecomeActive : SessionEvent::screensDidWake;
}

bool SessionEventOrder::isAbsent(Absence absence) const {
  for (std::size_t i = 0; i < sourceCount; ++i) {
    if (says_[i] && absenceOf(i) == absence) return true;
  }
  return false;
}

bool SessionEventOrder::isAwayWithout(Source source) const {
  auto others = says_;
  others[indexOf(source)] = false;
  return requestedAtMs_ || std::ranges::count(others, true) > 0;
}

void SessionEventOrder::changed(Source source, bool absent) {
  update(source, absent, Seen::beginning);
  settled.emit();
}

void SessionEventOrder::found(Source source, bool absent) {
  update(source, absent, Seen::found);
  settled.emit();
}

void SessionEventOrder::silent(Source source) {
  heard_[indexOf(source)] = true;
  settled.emit();
}

bool SessionEventOrder::isKnown() const {
  for (std::size_t i = 0; i < sourceCount; ++i) {
    if (!heard_[i] && absenceOf(i) == Absence::locked) return false;
  }
  return true;
}

void SessionEventOrder::lost(Source source) {
  if (!says_[indexOf(source)]) return;
  forgetting_[indexOf(source)] = mainLoop_.after(lostSourceMs, [this, source] { changed(source, false); });
}

void SessionEventOrder::update(Source source, bool absent, Seen seen) {
  forgetting_[indexOf(source)].reset();
  heard_[indexOf(source)] = true;
  const Absence absence = absenceOf(indexOf(source));
  const bool before = isAbsent(absence);
  says_[indexOf(source)] = absent;
  const bool after = isAbsent(absence);
  if (after) {
    if (!before) began(absence, seen);
    return;
  }
  // An end whose beginning was never seen still ends a request.
  if (!before && seen == Seen::found) return;
  endRequest();
  comeBack(comingBack(absence));
}

void SessionEventOrder::began(Absence absence, Seen seen) {
  if (absence == Absence::locked && requestedAtMs_) {
    const bool confirms = checkedSubtract(clock_.nowMs(), *requestedAtMs_) <= confirmationMs;
    endRequest();
    if (confirms) return;  // the request went out as the going-away event
  }
  if (seen == Seen::found && away_) return;
  goAway(goingAway(absence));
}

void SessionEventOrder::lockRequested() {
  if (isLocked()) return;
  const bool repeated = requestedAtMs_.has_value();
  requestedAtMs_ = clock_.nowMs();
  requestEnd_ = mainLoop_.after(requestLifeMs, [this] { requestRanOut(); });
  if (!repeated) goAway(SessionEvent::screenIsLocked);
  settled.emit();
}

void SessionEventOrder::requestRanOut() {
  endRequest();
  requestUnconfirmed.emit();
  comeBack(SessionEvent::screenIsUnlocked);
  settled.emit();
}

void SessionEventOrder::unlockRequested() {
  if (!requestedAtMs_) return;  // a confirmed lock ends when its sources say so
  endRequest();
  comeBack(SessionEvent::screenIsUnlocked);
  settled.emit();
}

void SessionEventOrder::endRequest() {
  requestedAtMs_.reset();
  requestEnd_.reset();
}

void SessionEventOrder::goAway(SessionEvent event) {
  away_ = true;
  deliver_(event);
}

void SessionEventOrder::comeBack(SessionEvent event) {
  if (!away_ || std::ranges::count(says_, true) > 0) return;
  away_ = false;
  deliver_(event);
}

void SessionEventOrder::repeatForNewObserver() {
  for (const Absence absence : {Absence::locked, Absence::inactive, Absence::asleep, Absence::displaysOff}) {
    if (isAbsent(absence)) return goAway(goingAway(absence));
  }
}

}  // namespace sentrel
