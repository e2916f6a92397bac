// SPDX-License-Identifier: Apache-2.0
#include "detection/camera_condition.h"

#include <utility>

#include "support/fatal.h"

namespace sentrel {

namespace {

using Facts = CameraConditions::Facts;
using Kind = CameraCondition::Kind;
using StatusKind = CameraControl::Status::Kind;

constexpr std::int64_t tickMs = 1000;

// Brightness in steps of 1/255.
constexpr float coveredBrightness = 40;
constexpr float coveredUnevenness = 5;
constexpr float darkBrightness = 20;
// A face that is found in the dark is seen well enough until there is nearly no light at all.
constexpr float darkWithFace = 8;
constexpr int backlitFace = 80;
constexpr int backlitDifference = 80;

struct Rule {
  Kind kind = Kind::covered;
  bool (*holds)(const Facts& facts) = nullptr;
  bool becomesSerious = false;
};

// The first that holds is told: a cause before what follows from it.
constexpr std::array<Rule, CameraConditions::kinds> rules{{
    {Kind::covered,
     [](const Facts& facts) {
       return facts.look && !facts.hasFace && facts.look->brightness < coveredBrightness &&
              facts.look->unevenness < coveredUnevenness;
     },
     true},
    {Kind::tooDark,
     [](const Facts& facts) {
       return facts.look && facts.look->brightness < (facts.hasFace ? darkWithFace : darkBrightness);
     }},
    {Kind::frozen, [](const Facts& facts) { return facts.sameForMs >= CameraConditions::frozenMs; }, true},
    {Kind::nobody, [](const Facts& facts) { return facts.nobodyForMs >= CameraConditions::nobodyMs; }},
    {Kind::backlight,
     [](const Facts& facts) {
       if (!facts.look || !facts.look->contrast) return false;
       const auto& [face, around] = *facts.look->contrast;
       return face < backlitFace && around - face > backlitDifference;
     }},
    {Kind::usedBy, [](const Facts& facts) { return facts.isSilent && !facts.user.empty(); }},
    {Kind::noPicture, [](const Facts& facts) { return facts.isSilent; }},
}};

/// Whether the failure is that a camera which is there gives nothing; any other says more than that.
bool isSilence(const std::optional<CameraFailure>& failure) {
  return failure &&
         (failure->kind == CameraFailure::Kind::noCamera || failure->kind == CameraFailure::Kind::cameraBusy);
}

}  // namespace

CameraConditions::CameraConditions(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<Clock> clock,
                                   std::shared_ptr<CameraControl> control)
    : mainLoop_(std::move(mainLoop)), clock_(std::move(clock)), control_(std::move(control)) {}

void CameraConditions::follow(const CameraControl::Status& status) {
  if (status == status_) return;
  const auto isOpen = [](StatusKind kind) { return kind == StatusKind::seeing || kind == StatusKind::blind; };
  const bool wasOpen = isOpen(status_.kind);
  status_ = status;
  // What was found out of pictures says nothing of their absence, and the other way round.
  facts_ = {};
  held_ = {};
  ticks_.reset();
  const std::int64_t now = clock_->nowMs();
  if (!wasOpen) pictureMs_ = now;
  if (status.kind == StatusKind::seeing) changedMs_ = faceMs_ = now;
  if (status.kind == StatusKind::blind) ticks_ = mainLoop_->every(tickMs, [this] { look(); });
  if (isOpen(status.kind)) return look();
  condition_.assignIfChanged(std::nullopt);
}

void CameraConditions::frame(std::int64_t timestampMs, std::int64_t faces,
                             const std::optional<FrameLook>& look) {
  if (status_.kind != StatusKind::seeing) return;
  if (faces > 0) faceMs_ = timestampMs;
  if (!look || !look->isSameAsBefore) changedMs_ = timestampMs;
  pictureMs_ = timestampMs;
  facts_.look = look;
  facts_.hasFace = faces > 0;
  facts_.sameForMs = checkedSubtract(timestampMs, changedMs_);
  facts_.nobodyForMs = checkedSubtract(timestampMs, faceMs_);
  judge(timestampMs);
}

/// While no frame says what is so.
void CameraConditions::look() {
  facts_.isSilent =
      status_.kind == StatusKind::blind && isSilence(control_->failure()) && control_->hasCamera();
  if (facts_.isSilent) facts_.user = control_->otherUser();
  judge(clock_->nowMs());
}

void CameraConditions::judge(std::int64_t nowMs) {
  std::optional<CameraCondition> told;
  for (std::size_t i = 0; i < rules.size(); ++i) {
    const Rule& rule = rules.at(i);
    Held& held = held_.at(i);
    if (rule.holds(facts_)) {
      held.brokenMs.reset();
      if (!held.sinceMs) held.sinceMs = nowMs;
    } else if (held.isTold) {
      if (!held.brokenMs) held.brokenMs = nowMs;
      if (checkedSubtract(nowMs, *held.brokenMs) >= forgetAfterMs) held = {};
    } else {
      held.sinceMs.reset();
    }
    const std::int64_t lasted = held.sinceMs ? checkedSubtract(nowMs, *held.sinceMs) : 0;
    held.isTold = held.isTold || (held.sinceMs && lasted >= tellAfterMs);
    if (!told && held.isTold) told = {rule.kind, rule.becomesSerious && lasted >= seriousAfterMs, {}, 0};
  }
  if (told && told->kind == Kind::usedBy) {
    const auto& before = condition_.get();
    told->user = facts_.user.empty() && before ? before->user : facts_.user;
  }
  if (told && told->kind == Kind::noPicture) {
    constexpr std::int64_t minute = 60;
    const std::int64_t seconds = checkedSubtract(nowMs, pictureMs_) / 1000;
    told->seconds = seconds < minute ? seconds : seconds / minute * minute;
  }
  condition_.assignIfChanged(std::move(told));
}

}  // namespace sentrel
