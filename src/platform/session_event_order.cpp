// SPDX-License-Identifier: Apache-2.0
#include "platform/session_event_order.h"

#include <utility>

#include "support/checked.h"

namespace sentrel {

namespace {

constexpr std::array absenceOrder{
    SessionEventOrder::Witness::lockedHint, SessionEventOrder::Witness::sessionInactive,
    SessionEventOrder::Witness::systemSleep, SessionEventOrder::Witness::x11Displays};

std::size_t indexOf(SessionEventOrder::Witness witness) {
  return static_cast<std::size_t>(witness);
}

}  // namespace

SessionEventOrder::SessionEventOrder(MainLoop& mainLoop, const Clock& clock, SessionEvents::Observer deliver,
                                     std::function<void(std::string_view)> warn)
    : mainLoop_(mainLoop), clock_(clock), deliver_(std::move(deliver)), warn_(std::move(warn)) {}

SessionEventOrder::Absence SessionEventOrder::absenceOf(Witness witness) {
  switch (witness) {
    case Witness::lockedHint:
    case Witness::freedesktopScreenSaver:
    case Witness::gnomeScreenSaver:
      return Absence::locked;
    case Witness::sessionInactive:
      return Absence::inactive;
    case Witness::systemSleep:
      return Absence::asleep;
    case Witness::x11Displays:
    case Witness::wlrDisplays:
    case Witness::gnomeDisplays:
      break;
  }
  return Absence::displaysOff;
}

SessionEvent SessionEventOrder::goingAway(Absence absence) {
  switch (absence) {
    case Absence::locked:
      return SessionEvent::screenIsLocked;
    case Absence::inactive:
      return SessionEvent::sessionDidResignActive;
    case Absence::asleep:
    case Absence::displaysOff:
      break;
  }
  return SessionEvent::screensDidSleep;
}

SessionEvent SessionEventOrder::comingBack(Absence absence) {
  switch (absence) {
    case Absence::locked:
      return SessionEvent::screenIsUnlocked;
    case Absence::inactive:
      return SessionEvent::sessionDidBecomeActive;
    case Absence::asleep:
    case Absence::displaysOff:
      break;
  }
  return SessionEvent::screensDidWake;
}

bool SessionEventOrder::isAbsent(Absence absence) const {
  for (std::size_t i = 0; i < witnessCount; ++i) {
    if (says_[i] && absenceOf(static_cast<Witness>(i)) == absence) return true;
  }
  return false;
}

bool SessionEventOrder::isAnyAbsent() const {
  for (const bool absent : says_) {
    if (absent) return true;
  }
  return false;
}

bool SessionEventOrder::isAwayWithout(Witness witness) const {
  if (requestedAtMs_) return true;
  for (std::size_t i = 0; i < witnessCount; ++i) {
    if (says_[i] && i != indexOf(witness)) return true;
  }
  return false;
}

void SessionEventOrder::changed(Witness witness, bool absent) {
  update(witness, absent, Seen::beginning);
  settled.emit();
}

void SessionEventOrder::found(Witness witness, bool absent) {
  update(witness, absent, Seen::found);
  settled.emit();
}

void SessionEventOrder::silent(Witness witness) {
  heard_[indexOf(witness)] = true;
  settled.emit();
}

bool SessionEventOrder::isKnown() const {
  return heard_[indexOf(Witness::lockedHint)] && heard_[indexOf(Witness::freedesktopScreenSaver)] &&
         heard_[indexOf(Witness::gnomeScreenSaver)];
}

void SessionEventOrder::lost(Witness witness) {
  if (!says_[indexOf(witness)]) return;
  forgetting_[indexOf(witness)] =
      mainLoop_.after(lostWitnessMs, [this, witness] { changed(witness, false); });
}

void SessionEventOrder::update(Witness witness, bool absent, Seen seen) {
  forgetting_[indexOf(witness)].reset();
  heard_[indexOf(witness)] = true;
  const Absence absence = absenceOf(witness);
  const bool before = isAbsent(absence);
  says_[indexOf(witness)] = absent;
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
  warn_("the screen was asked to lock, but nobody confirmed it within 60 s; protection goes on");
  comeBack(SessionEvent::screenIsUnlocked);
  settled.emit();
}

void SessionEventOrder::unlockRequested() {
  if (!requestedAtMs_) return;  // a confirmed lock ends when its witnesses say so
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
  if (!away_ || isAnyAbsent()) return;
  away_ = false;
  deliver_(event);
}

void SessionEventOrder::repeatForNewObserver() {
  for (const Witness witness : absenceOrder) {
    if (!isAbsent(absenceOf(witness))) continue;
    goAway(goingAway(absenceOf(witness)));
    return;
  }
}

}  // namespace sentrel
