// SPDX-License-Identifier: Apache-2.0
#include "service/alert_recorder.h"

#include <algorithm>
#include <utility>

#include "support/fatal.h"

namespace sentrel {

void AlertRecorder::follow(const OnlookerFilter::Frame& frame) {
  faces_ = frame.input.faceCount;
  widest_ = frame.onlooker ? frame.onlooker->width : 0;
  if (!record_) return;
  record_->faces = std::max(record_->faces, faces_);
  record_->widestFace = std::max(record_->widestFace, widest_);
}

void AlertRecorder::alertStarted(bool darkens, bool notifies) {
  const auto camera = uses_.platform.captureSession->currentDevice();
  before_ = answers();
  record_ = AlertRecord{.beganMs = uses_.platform.clock->nowMs(),
                        .faces = faces_,
                        .widestFace = widest_,
                        .camera = camera ? camera->localizedName : std::string(),
                        .darkened = darkens,
                        .notified = notifies};
}

void AlertRecorder::alertEnded(const FilterState& state) {
  auto record = std::exchange(record_, std::nullopt);
  if (!record || uses_.settingsRepo->options.get().journal != JournalWish::kept) return;
  record->lengthMs = checkedSubtract(uses_.platform.clock->nowMs(), record->beganMs);
  record->end = endBy(state);
  uses_.platform.alertJournal->add(std::move(*record));
}

AlertRecorder::Answers AlertRecorder::answers() const {
  const auto& stay = relaxations_.stay().get();
  return {relaxations_.filter.ignoredCount(), stay ? stay->guests : 0};
}

AlertEnd AlertRecorder::endBy(const FilterState& state) const {
  using Kind = FilterState::Kind;
  if (state.is(Kind::inactive)) return AlertEnd::off;
  if (state.is(Kind::cameraBusy)) return AlertEnd::blind;
  if (state.is(Kind::autoPaused)) {
    const auto reason = state.reason().kind;
    return reason == PauseReason::Kind::userPaused   ? AlertEnd::paused
           : reason == PauseReason::Kind::lowBattery ? AlertEnd::lowBattery
                                                     : AlertEnd::away;
  }
  const Answers now = answers();
  if (now.ignored > before_.ignored) return AlertEnd::nobody;
  return now.guests > before_.guests ? AlertEnd::welcomed : AlertEnd::gone;
}

}  // namespace sentrel
