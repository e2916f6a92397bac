// SPDX-License-Identifier: Apache-2.0
#include "detection/onlooker_filter.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "support/fatal.h"

namespace sentrel {

namespace {

// What the machine itself waits before an alert.
constexpr std::int64_t machineConfirmMs = 500;

// A face one tenth of the image wide is about a metre away.
constexpr double widthTimesDistance = 12600.0 / 1280.0;

constexpr double facingYawDegrees = 45;
// Where it matters, a direction that is not known yet is waited for so long.
constexpr std::int64_t readDirectionMs = 1000;

// As still as paper: within this share of the face's width, and within this angle.
constexpr double paperShare = 0.03;
constexpr double paperDegrees = 3;
// The detector's boxes tremble: what is compared is the average over about this time with that of before.
constexpr double averageMs = 2000;
constexpr std::int64_t unseenMs = 600'000;
// A face this close to a place, as shares of its width, stands there or has just moved away from there.
constexpr double nearShare = 0.5;

// Frames are 4:3. Places are in units of the frame's width.
constexpr double heightOfFrame = 0.75;

std::optional<double> yawDegrees(const FaceObservation& face) {
  if (!face.yaw) return std::nullopt;
  return *face.yaw * 180 / std::numbers::pi;
}

}  // namespace

double distanceOf(double width) {
  return widthTimesDistance / width;
}

OnlookerFilter::Place OnlookerFilter::placeOf(const FaceObservation& face) {
  const NormalizedRect& box = face.boundingBox;
  return {box.x + box.width / 2, (box.y + box.height / 2) * heightOfFrame, box.width};
}

/// By the rules that look at one face alone. A face whose direction is not known may face the screen.
FaceRole OnlookerFilter::judge(const FaceObservation& face) const {
  if (rules.farthestCm > 0 && distanceOf(face.boundingBox.width) > static_cast<double>(rules.farthestCm))
    return FaceRole::tooFar;
  if (rules.onlyFacing && std::abs(yawDegrees(face).value_or(0)) >= facingYawDegrees)
    return FaceRole::turnedAway;
  return FaceRole::onlooker;
}

OnlookerFilter::Frame OnlookerFilter::apply(const DetectionInput& input, const FaceList& faces,
                                            bool isAlert) {
  Frame frame{input, {}, std::nullopt};
  newestMs_ = input.timestampMs;
  onlooker_.reset();
  forgetUnseen();
  if (faces.empty()) {
    onlookerSinceMs_ = 0;
    return frame;
  }
  // The widest first; the first of equals.
  std::array<std::size_t, FaceList::capacity> order{};
  const std::span sorted(order.data(), faces.size());
  for (std::size_t i = 0; i < sorted.size(); ++i) sorted[i] = i;
  std::ranges::stable_sort(sorted, std::greater{}, [&](std::size_t i) { return faces[i].boundingBox.width; });
  for (const std::size_t i : sorted) frame.roles[i] = judge(faces[i]);
  frame.roles[sorted.front()] = FaceRole::person;
  followIgnored(faces, sorted.front(), frame);

  bool isDirectionKnown = false;
  std::int64_t guestsLeft = std::clamp<std::int64_t>(rules.guests, 0, OnlookerRules::mostGuests);
  frame.input.faceCount = 1;
  for (const std::size_t i : sorted) {
    if (frame.roles[i] != FaceRole::onlooker) continue;
    if (guestsLeft-- > 0) {
      frame.roles[i] = FaceRole::guest;
      continue;
    }
    ++frame.input.faceCount;
    isDirectionKnown = isDirectionKnown || faces[i].yaw;
    if (!onlooker_) onlooker_ = faces[i];
  }
  if (!onlooker_) {
    onlookerSinceMs_ = 0;
    return frame;
  }
  frame.onlooker = onlooker_->boundingBox;
  if (onlookerSinceMs_ == 0) onlookerSinceMs_ = input.timestampMs;
  const std::int64_t here = checkedSubtract(input.timestampMs, onlookerSinceMs_);
  const std::int64_t waitsMs = std::max(rules.alertAfterMs - machineConfirmMs,
                                        rules.onlyFacing && !isDirectionKnown ? readDirectionMs : 0);
  if (!isAlert && here < waitsMs) frame.input.faceCount = 1;
  return frame;
}

void OnlookerFilter::beginAnew() {
  onlooker_.reset();
  onlookerSinceMs_ = 0;
  forgetIgnored();
}

std::optional<FilterFsm::Timer> OnlookerFilter::timer() const {
  if (onlookerSinceMs_ == 0) return std::nullopt;
  const std::int64_t lengthMs = std::max(rules.alertAfterMs, machineConfirmMs);
  return FilterFsm::Timer{FilterFsm::Timer::Kind::onlooker,
                          std::min(checkedSubtract(newestMs_, onlookerSinceMs_), lengthMs), lengthMs};
}

// What was said to be nobody.

/// As a share of the ignored face's width.
double OnlookerFilter::distanceFrom(const Ignored& ignored, const Place& place) {
  const Place& from = ignored.pose.place;
  return std::hypot(place.x - from.x, place.y - from.y) / from.width;
}

/// `average` takes in a share of what is seen now.
void OnlookerFilter::follow(Pose& average, const FaceObservation& face, double share) {
  const auto mix = [share](double& value, double now) { value += share * (now - value); };
  const Place seen = placeOf(face);
  mix(average.place.x, seen.x);
  mix(average.place.y, seen.y);
  mix(average.place.width, seen.width);
  const auto yaw = yawDegrees(face);
  if (yaw && average.yaw) {
    mix(*average.yaw, *yaw);
  } else if (yaw) {
    average.yaw = yaw;
  }
}

/// Whether what stands there is where it was.
bool OnlookerFilter::isStill(const Ignored& ignored) {
  const Place& was = ignored.pose.place;
  const Place& now = ignored.now.place;
  const double most = paperShare * was.width;
  return std::abs(now.x - was.x) <= most && std::abs(now.y - was.y) <= most &&
         std::abs(now.width - was.width) <= most &&
         std::abs(ignored.now.yaw.value_or(0) - ignored.pose.yaw.value_or(0)) <= paperDegrees;
}

bool OnlookerFilter::ignoreOnlooker() {
  if (!onlooker_) return false;
  const Place at = placeOf(*onlooker_);
  const auto isHere = [&at](const Ignored& each) { return distanceFrom(each, at) <= nearShare; };
  if (std::ranges::any_of(places_, isHere)) return true;  // it has yet to be still for long enough
  if (places_.size() >= mostIgnored || isTooFarToIgnore()) return false;
  Ignored ignored;
  ignored.said = {at.x, at.y / heightOfFrame, at.width, newestMs_};
  ignored.pose = ignored.now = {at, yawDegrees(*onlooker_)};
  ignored.frames = 1;
  ignored.seenMs = newestMs_;
  auto places = places_;
  places.push_back(ignored);
  setPlaces(std::move(places));
  return true;
}

bool OnlookerFilter::isTooFarToIgnore() const {
  return onlooker_ && onlooker_->boundingBox.width < narrowestPaper;
}

void OnlookerFilter::forget(const IgnoredPlace& place) {
  auto places = places_;
  std::erase_if(places, [&place](const Ignored& each) { return each.said == place; });
  setPlaces(std::move(places));
}

void OnlookerFilter::setPlaces(std::vector<Ignored> places) {
  places_ = std::move(places);
  std::vector<IgnoredPlace> now;
  for (const Ignored& each : places_) now.push_back(each.said);
  ignored_.assignIfChanged(std::move(now));
  ignoredCount_.assignIfChanged(static_cast<std::int64_t>(places_.size()));
}

void OnlookerFilter::forgetUnseen() {
  auto places = places_;
  std::erase_if(places, [this](const Ignored& each) {
    return checkedSubtract(newestMs_, each.seenMs) >= unseenMs ||
           (!each.said.isPaper && checkedSubtract(newestMs_, each.said.sinceMs) > proofMs);
  });
  if (places.size() < places_.size()) setPlaces(std::move(places));
}

void OnlookerFilter::followIgnored(const FaceList& faces, std::size_t person, Frame& frame) {
  if (places_.empty()) return;
  const Place personNow = placeOf(faces[person]);
  std::vector<Ignored> kept;
  for (Ignored each : places_) {
    const auto distance = [&](const Place& place) { return distanceFrom(each, place); };
    std::optional<std::size_t> nearest;
    for (std::size_t i = 0; i < faces.size(); ++i) {
      if (i == person || distance(placeOf(faces[i])) > nearShare) continue;
      if (!nearest || distance(placeOf(faces[i])) < distance(placeOf(faces[*nearest]))) nearest = i;
    }
    if (!nearest) {
      // The person is elsewhere in the picture, too: it was the camera that moved.
      const bool cameraMoved =
          each.person && std::hypot(personNow.x - each.person->x, personNow.y - each.person->y) >
                             each.person->width * nearShare;
      if (!cameraMoved) kept.push_back(each);
      continue;
    }
    const FaceObservation& face = faces[*nearest];
    const auto sinceSeen = static_cast<double>(checkedSubtract(newestMs_, each.seenMs));
    follow(each.now, face, 1 - std::exp(-sinceSeen / averageMs));
    if (!each.said.isPaper) follow(each.pose, face, 1.0 / static_cast<double>(++each.frames));
    each.seenMs = newestMs_;
    each.person = personNow;
    const std::int64_t age = checkedSubtract(newestMs_, each.said.sinceMs);
    if (age >= stillMs && face.stillMs >= stillMs && each.now.yaw) each.said.isPaper = true;
    // Where nothing moves in the picture, it is the measurement that does.
    const bool moved = face.stillMs < stillMs && !isStill(each);
    if (moved) continue;  // somebody: forgotten
    if (each.said.isPaper && frame.roles[*nearest] == FaceRole::onlooker)
      frame.roles[*nearest] = FaceRole::ignored;
    kept.push_back(each);
  }
  setPlaces(std::move(kept));
}

}  // namespace sentrel
