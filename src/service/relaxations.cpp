// SPDX-License-Identifier: Apache-2.0
#include "service/relaxations.h"

#include <string_view>
#include <utility>
#include <variant>

#include "support/fatal.h"

namespace sentrel {

namespace {

/// Milliseconds since 1970; only while a pause lasts.
constexpr std::string_view storedPauseEnd = "pause_until_ms";

constexpr const char* sharingNotification = "sentrel.shared";

bool isAllowed(std::int64_t durationMs) {
  return durationMs >= 1 && durationMs <= Relaxations::longestMs;
}

}  // namespace

// The pause.

bool Relaxations::pause(std::int64_t durationMs) {
  if (!isAllowed(durationMs)) return false;
  setPauseEnd(checkedAdd(uses_.platform.clock->nowMs(), durationMs));
  return true;
}

void Relaxations::setPauseEnd(std::optional<std::int64_t> endMs) {
  pauseTimer_.reset();
  if (endMs) {
    const std::int64_t left = checkedSubtract(*endMs, uses_.platform.clock->nowMs());
    pauseTimer_ = uses_.platform.mainLoop->after(left, [this] { resume(); });
    uses_.platform.userDefaults->set(storedPauseEnd, *endMs);
  }
  pauseEndMs_.assignIfChanged(endMs);
  uses_.cameraControl->setRest(CameraControl::Rest::userPaused, endMs.has_value());
}

void Relaxations::resume() {
  forgetPause();
  setPauseEnd(std::nullopt);
}

void Relaxations::forgetPause() {
  uses_.platform.userDefaults->remove(storedPauseEnd);
}

// Guests.

bool Relaxations::refusesGuests() const {
  const auto rest = uses_.cameraControl->rest();
  return rest && rest != CameraControl::Rest::sessionUnknown;  // which is how every start begins
}

bool Relaxations::welcome(std::int64_t guests, std::optional<std::int64_t> durationMs) {
  if (guests < 1 || guests > OnlookerRules::mostGuests || (durationMs && !isAllowed(*durationMs)))
    return false;
  if (refusesGuests()) return false;
  Stay stay{guests, std::nullopt};
  stayTimer_.reset();
  if (durationMs) {
    stay.untilMs = checkedAdd(uses_.platform.clock->nowMs(), *durationMs);
    stayTimer_ = uses_.platform.mainLoop->after(*durationMs, [this] { sendGuestsAway(); });
  }
  filter.rules.guests = guests;
  stay_.assignIfChanged(stay);
  return true;
}

void Relaxations::sendGuestsAway() {
  stayTimer_.reset();
  filter.rules.guests = 0;
  stay_.assignIfChanged(std::nullopt);
}

// Protection goes on and off, the camera opens and closes.

void Relaxations::begin() {
  observed_.push_back(uses_.platform.screenSharing->isShared().subscribe([this](bool) { applySharing(); }));
  observed_.push_back(uses_.settingsRepo->options.subscribe([this](const auto& options) {
    filter.rules.farthestCm = options.watchUpToCm;
    filter.rules.alertAfterMs = options.alertAfterMs;
    filter.rules.onlyFacing = options.onlyFacing;
    applySharing();
  }));
  watchSharing();
  // Another camera sees other places.
  cameraID_ = uses_.settingsRepo->settings.get().selectedCameraID;
  observed_.push_back(uses_.settingsRepo->settings.onChange([this](const FilterSettings& settings) {
    if (cameraID_ == settings.selectedCameraID) return;
    cameraID_ = settings.selectedCameraID;
    filter.beginAnew();
  }));
  const auto stored = uses_.platform.userDefaults->value(storedPauseEnd);
  if (!stored) return;
  const auto* endMs = std::get_if<std::int64_t>(&*stored);
  const std::int64_t nowMs = uses_.platform.clock->nowMs();
  const bool lasts = endMs != nullptr && *endMs > nowMs && *endMs - nowMs <= longestMs;
  if (lasts) {
    setPauseEnd(*endMs);
  } else {
    forgetPause();
  }
}

void Relaxations::applySharing() {
  const bool isShared = uses_.platform.screenSharing->isShared();
  const WhenShared wanted = whenShared();
  uses_.cameraControl->setRest(CameraControl::Rest::screenShared, isShared && wanted == WhenShared::pause);
  isScreenShared_.assignIfChanged(isShared);
  if (!isShared) {
    toldSharing_ = false;
    uses_.platform.notifications->remove(sharingNotification);
  } else if (wanted != WhenShared::changeNothing && !std::exchange(toldSharing_, true)) {
    tellSharing();
  }
  watchSharing();
}

/// While the person is away no sharing is looked for; one that goes on is followed to its end.
void Relaxations::watchSharing() {
  ScreenSharing& sharing = *uses_.platform.screenSharing;
  const bool isAway = uses_.cameraControl->rest() == CameraControl::Rest::away;
  if (observed_.empty() || (isAway && !sharing.isShared())) {
    sharing_.reset();
  } else if (!sharing_) {
    sharing_ = sharing.observe();
  }
}

void Relaxations::tellSharing() {
  const bool isPaused = whenShared() == WhenShared::pause;
  const char* body = isPaused ? textId("notif_shared_paused") : textId("notif_shared_hidden");
  uses_.platform.notifications->add(sharingNotification,
                                    {.title = uses_.platform.localizedText(textId("notif_shared_title")),
                                     .body = uses_.platform.localizedText(body),
                                     .silent = true});
}

void Relaxations::follow(const CameraControl::Status& status) {
  using Kind = CameraControl::Status::Kind;
  using Rest = CameraControl::Rest;
  const bool rests = status.kind == Kind::resting;
  watchSharing();
  if (refusesGuests()) sendGuestsAway();
  // What was seen before may have been seen by another camera.
  if (status.kind != Kind::seeing) filter.beginAnew();
  // Whoever comes back ends every pause.
  const bool isKept = rests && (status.rest == Rest::away || status.rest == Rest::userPaused ||
                                status.rest == Rest::sessionUnknown || status.rest == Rest::quitting);
  if (pauseEndMs_.get() && !isKept) resume();
}

void Relaxations::end() {
  observed_.clear();
  sharing_.reset();
  toldSharing_ = false;
  isScreenShared_.assignIfChanged(false);
  uses_.platform.notifications->remove(sharingNotification);
  sendGuestsAway();
  filter.beginAnew();
  pauseTimer_.reset();
  if (uses_.cameraControl->rest() != CameraControl::Rest::quitting) forgetPause();
  pauseEndMs_.assignIfChanged(std::nullopt);
  for (const auto rest : {CameraControl::Rest::userPaused, CameraControl::Rest::screenShared})
    uses_.cameraControl->setRest(rest, false);
}

}  // namespace sentrel
