// SPDX-License-Identifier: Apache-2.0
#include "vision/face_tracker.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <utility>

namespace sentrel::vision {
namespace {

// The lowest score of interest in a close look (below it nothing can pass any threshold), and how far the box
// it sees must overlap the one it looks for.
constexpr double lowestScore = 0.1;
constexpr double seenPlaceOverlap = 0.25;
constexpr std::size_t maxSeen = 64;
// The square in which a face is looked for that moved quickly, in widths of the face.
constexpr double roomToMove = 3;

// In units of the field. Well below two hundredths of its width, as the boxes of small faces are uncertain.
constexpr double smallestFace = 11;

// By how much close looks enlarge the field: a small face that is enlarged too far is a blur, one that is not
// is too small. Which of these shows a face best differs from face to face. A large face needs no enlarging,
// and some room about it, less where the look is closer.
constexpr std::array<double, 5> enlargements{1.6, 1.3, 2.0, 1.0, 2.5};
constexpr double roomPerFace = 1.2;
constexpr double roomByZoom = 0.8;

// A suspect is sure by the mean of what scans say and of the best looks.
constexpr std::ptrdiff_t bestLooks = 3;
constexpr double enterScore = 0.5;
constexpr double enterScoreInNoise = 0.47;
constexpr double scansShareInNoise = 2.0 / 3;
// As sure as this, one look is enough.
constexpr double enterScoreAtOnce = 0.65;
constexpr double stayScore = 0.40;
// What a close look at best says of a face.
constexpr double bestLook = 0.95;
// So many scans of a place in which nothing moves add to each other.
constexpr int mostScans = 3;
constexpr std::int64_t forgetSuspectMs = 30'000;
constexpr std::int64_t goneSuspectMs = 1000;  // where something moved since
// A face that is seen by other means is looked at in this interval all the same.
constexpr std::int64_t carriedLookMs = 1000;
// The best looks of a trial must score so high at a face, the higher the wider it is, as small ones are a
// blur. Instead of that a face that is wide enough may have a mesh: users in bad light do, and dogs do not.
constexpr std::int64_t trialMs = 300;
constexpr std::int64_t trialWhenBusyMs = 500;
constexpr double smallFace = 16;
constexpr double wideFace = 30;
constexpr double passedSmall = 0.5;
constexpr double passedWide = 0.64;
constexpr float surePresence = 3.5;
// Surroundings of a face, over its box, in which motion is a reason to look again.
constexpr double surroundings = 1.3;

// A face is given up at this many misses in a row: an alert needs it in every frame for half a second. Where
// nothing moves it cannot have gone, and is given more.
constexpr int dropAfter = 3;
constexpr int dropCalmAfter = 6;
constexpr std::size_t maxFaces = 64;
// Close looks in one frame: at the widest faces, at the others in turns, and at suspects.
constexpr std::size_t knownLooks = 4;  // of each of the first two
constexpr std::size_t newLooks = 5;
constexpr std::size_t looksWhenBusy = 2;  // of each of the three, while everything moves
constexpr std::size_t maxSuspects = 128;

/// The width of the smallest faces is read with an error of a tenth, and a face that is read too narrow does
/// not count. So they are shown as wide as they may be; `width` in units of the field.
double generosity(double width) {
  constexpr double uncertain = 15.5;
  constexpr double certain = 19;
  constexpr double error = 0.16;
  return 1 + error * std::clamp((certain - width) / (certain - uncertain), 0.0, 1.0);
}

Point centre(const Region& box) {
  return {box.x + box.width / 2, box.y + box.height / 2};
}

/// Whether a face may be the one that was seen in the last frames.
bool couldHaveMoved(const Region& from, const Region& to) {
  const double ratio = to.width / from.width;
  const Point a = centre(from);
  const Point b = centre(to);
  return ratio > 0.66 && ratio < 1.5 && std::hypot(b.x - a.x, b.y - a.y) < 2 * from.width;
}

void moveTo(TrackedFace& tracked, const Candidate& seen, std::int64_t timestampMs) {
  const auto elapsed = static_cast<double>(std::max<std::int64_t>(1, timestampMs - tracked.seenMs));
  const Point from = centre(tracked.face.box);
  const Point to = centre(seen.box);
  tracked.speed = {(to.x - from.x) / elapsed, (to.y - from.y) / elapsed};
  tracked.face = seen;
  tracked.misses = 0;
  tracked.seenMs = tracked.lookedMs = timestampMs;
}

}  // namespace

double CloseLooks::best(double hoped) const {
  auto sorted = scores;
  std::fill(sorted.begin() + static_cast<std::ptrdiff_t>(made), sorted.end(), hoped);
  std::sort(sorted.begin(), sorted.end(), std::greater<>());
  return std::accumulate(sorted.begin(), sorted.begin() + bestLooks, 0.0) / bestLooks;
}

FaceTracker::FaceTracker(FaceSearch search, MeshFinder& mesh) : search_(std::move(search)), mesh_(&mesh) {
  seen_.reserve(maxSeen);
  faces_.reserve(maxFaces);
  suspects_.reserve(maxSuspects);
  failed_.reserve(maxFaces);
}

void FaceTracker::restart() {
  faces_.clear();
  suspects_.clear();
  failed_.clear();
}

bool FaceTracker::isCalm(const TrackedFace& tracked, const MotionGate& gate) {
  return tracked.misses == 0 &&
         gate.calmSince(scaledAboutCentre(tracked.face.box, surroundings), tracked.seenMs);
}

template <class Is>
std::optional<Candidate> FaceTracker::bestIn(const Frame& frame, const Region& box, double side, double least,
                                             Is is) {
  const Region crop{box.x + (box.width - side) / 2, box.y + (box.height - side) / 2, side, side};
  seen_.clear();
  search_.find(frame, crop, least, seen_);
  std::optional<Candidate> best;
  for (const Candidate& candidate : seen_) {
    if (candidate.box.width < smallestFace * fieldScale(frame)) continue;
    if (best && candidate.score <= best->score) continue;
    if (is(candidate.box)) best = candidate;
  }
  if (best) best->box = scaledAboutCentre(best->box, generosity(best->box.width / fieldScale(frame)));
  return best;
}

std::optional<Candidate> FaceTracker::lookClosely(const Frame& frame, const Region& box, std::size_t zoom,
                                                  double least) {
  const double enlargement = enlargements[zoom];
  const double side = std::max(fieldScale(frame) * inputSize.width / enlargement,
                               std::max(box.width, box.height) * (roomPerFace + roomByZoom / enlargement));
  return bestIn(frame, box, side, least,
                [&](const Region& seen) { return intersectionOverUnion(seen, box) >= seenPlaceOverlap; });
}

std::optional<Candidate> FaceTracker::lookAround(const Frame& frame, const Region& box) {
  const double side = std::max(fieldScale(frame) * inputSize.width, box.width * roomToMove);
  return bestIn(frame, box, side, enterScore, [&](const Region& seen) { return couldHaveMoved(box, seen); });
}

void FaceTracker::carry(const Candidate& face, std::int64_t timestampMs) {
  if (faces_.empty()) return;
  faces_.front().face = face;
  faces_.front().speed = {};
  faces_.front().seenMs = timestampMs;
}

std::optional<Candidate> FaceTracker::lookNext(const Frame& frame, const Region& box, CloseLooks& looks) {
  const auto seen = lookClosely(frame, box, looks.made, lowestScore);
  looks.scores[looks.made++] = seen ? seen->score : 0;
  return seen;
}

std::optional<Candidate> FaceTracker::tryOut(const Frame& frame, const Region& box, TrackedFace& tracked,
                                             const MotionGate& gate) {
  CloseLooks& trial = tracked.trial;
  const bool calm = gate.calmSince(scaledAboutCentre(box, surroundings), tracked.seenMs);
  Candidate latest = tracked.face;
  latest.box = box;
  // Enough in each frame to be done in time, whatever their rate is.
  const std::int64_t withinMs = gate.isBusy() ? trialWhenBusyMs : trialMs;
  const auto looks = static_cast<std::int64_t>(trial.scores.size());
  auto tries = std::max<std::int64_t>(1, (looks * intervalMs_ + withinMs * 9 / 10) / withinMs);
  for (; tries > 0 && !trial.isComplete(); --tries) {
    const auto seen = lookNext(frame, latest.box, trial);
    if (seen && seen->score >= stayScore) latest = *seen;
    if (seen || calm) continue;
    // It says nothing of a face that it has moved on.
    --trial.made;
    return std::nullopt;
  }
  if (!trial.isComplete()) return latest;
  const double width = latest.box.width / fieldScale(frame);
  const double share = std::clamp((width - smallFace) / (wideFace - smallFace), 0.0, 1.0);
  if (trial.best() >= std::lerp(passedSmall, passedWide, share) ||
      (width >= wideFace && mesh_->presence(frame, meshRegion(latest)) >= surePresence))
    return latest;
  tracked.misses = dropCalmAfter;
  failed_.push_back(latest.box);
  return std::nullopt;
}

void FaceTracker::lookAgain(const Frame& frame, TrackedFace& tracked, const MotionGate& gate,
                            std::int64_t timestampMs) {
  const bool onTrial = !tracked.trial.isComplete();
  const bool calm = isCalm(tracked, gate);
  const auto elapsed = static_cast<double>(timestampMs - tracked.seenMs);
  // Seen by other means, or as it was: a look now and then makes sure.
  const bool canWait =
      elapsed == 0 ? timestampMs - tracked.lookedMs < carriedLookMs : calm && elapsed < holdMs;
  if (!onTrial && canWait) return;
  Region expected = tracked.face.box;
  if (!calm) {
    expected.x += tracked.speed.x * elapsed;
    expected.y += tracked.speed.y * elapsed;
  }
  std::optional<Candidate> seen;
  if (onTrial) {
    seen = tryOut(frame, expected, tracked, gate);
  } else {
    seen = lookClosely(frame, expected, tracked.zoom, stayScore);
    if (!seen) tracked.zoom = (tracked.zoom + 1) % enlargements.size();
  }
  if (!seen && !calm && tracked.misses < dropAfter && faces_.size() <= knownLooks)
    seen = lookAround(frame, expected);
  if (seen) {
    moveTo(tracked, *seen, timestampMs);
  } else {
    ++tracked.misses;
  }
}

void FaceTracker::follow(const Frame& frame, const MotionGate& gate, std::int64_t timestampMs) {
  failed_.clear();
  intervalMs_ =
      std::clamp<std::int64_t>(timestampMs - std::exchange(followedMs_, timestampMs), 0, trialWhenBusyMs);
  const std::size_t looks = gate.isBusy() ? looksWhenBusy : knownLooks;
  const std::size_t widest = std::min(looks, faces_.size());
  for (std::size_t i = 0; i < widest; ++i) lookAgain(frame, faces_[i], gate, timestampMs);
  const std::size_t others = faces_.size() - widest;
  for (std::size_t i = 0; i < std::min(looks, others); ++i)
    lookAgain(frame, faces_[widest + turn_++ % others], gate, timestampMs);
  tidy(gate);
}

bool FaceTracker::unsure() const {
  return std::ranges::any_of(faces_, [](const TrackedFace& tracked) { return tracked.misses > 0; });
}

bool FaceTracker::hasBacklog() const {
  return std::ranges::any_of(faces_, [](const TrackedFace& face) { return !face.trial.isComplete(); }) ||
         std::ranges::any_of(suspects_, [](const Suspect& suspect) { return !suspect.looks.isComplete(); });
}

bool FaceTracker::isKnown(const Candidate& candidate) const {
  return std::ranges::any_of(faces_, [&](const TrackedFace& tracked) {
    return tracked.misses == 0 && samePlace(candidate.box, tracked.face.box);
  });
}

void FaceTracker::suspect(const Candidate& candidate, const MotionGate& gate, std::int64_t timestampMs) {
  const Suspect fresh{candidate, candidate.score, 1, {}, timestampMs};
  const auto same = std::ranges::find_if(
      suspects_, [&](const Suspect& known) { return samePlace(candidate.box, known.candidate.box); });
  if (same == suspects_.end()) {
    if (suspects_.size() == maxSuspects && suspects_.back().candidate.score < candidate.score)
      suspects_.pop_back();
    if (suspects_.size() < maxSuspects) suspects_.push_back(fresh);
    return;
  }
  if (!gate.calmSince(candidate.box, same->checkedMs)) {
    *same = fresh;
    return;
  }
  if (same->scans < mostScans) same->looks = {};
  same->scanSum += candidate.score;
  ++same->scans;
  if (candidate.score > same->candidate.score) same->candidate = candidate;
  same->checkedMs = timestampMs;
}

bool FaceTracker::lookAtSuspect(const Frame& frame, Suspect& suspect, std::int64_t timestampMs, bool noisy) {
  CloseLooks& looks = suspect.looks;
  const std::size_t zoom = looks.made;
  const auto seen = lookNext(frame, suspect.candidate.box, looks);
  const double scansShare = noisy ? scansShareInNoise : 0.5;
  const auto sureness = [&](double look) {
    return std::lerp(look, suspect.scanSum / suspect.scans, scansShare);
  };
  const double needed = noisy ? enterScoreInNoise : enterScore;
  // No more looks where even the best could not make it sure.
  if (suspect.scans == 1 && sureness(looks.best(bestLook)) < needed) looks.made = looks.scores.size();
  const bool sureAtOnce = zoom == 0 && sureness(looks.scores[0]) >= enterScoreAtOnce;
  if (!seen || (!sureAtOnce && sureness(looks.best()) < needed)) return false;
  enter({0, *seen, {}, 0, zoom, timestampMs, timestampMs, {}});
  return true;
}

void FaceTracker::enter(const TrackedFace& entering) {
  const auto moved = std::ranges::find_if(faces_, [&](const TrackedFace& tracked) {
    return tracked.misses > 0 && couldHaveMoved(tracked.face.box, entering.face.box);
  });
  if (moved != faces_.end()) {
    // A face that moved faster than its look could follow.
    moveTo(*moved, entering.face, entering.seenMs);
    moved->zoom = entering.zoom;
  } else if (faces_.size() < maxFaces) {
    faces_.push_back(entering);
    faces_.back().id = ++lastId_;
  }
}

void FaceTracker::confirm(const Frame& frame, const MotionGate& gate, std::int64_t timestampMs,
                          std::span<const Candidate> candidates, bool noisy) {
  std::erase_if(suspects_, [&](const Suspect& known) {
    const std::int64_t age = timestampMs - known.checkedMs;
    return age > forgetSuspectMs ||
           (age > goneSuspectMs && !gate.calmSince(known.candidate.box, known.checkedMs));
  });
  for (const Candidate& candidate : candidates) {
    if (candidate.box.width >= smallestFace * fieldScale(frame) && !isKnown(candidate))
      suspect(candidate, gate, timestampMs);
  }
  std::ranges::sort(suspects_, std::greater<>(), [](const Suspect& known) { return known.candidate.score; });
  std::size_t left = gate.isBusy() ? looksWhenBusy : newLooks;
  std::erase_if(suspects_, [&](Suspect& known) {
    bool done = isKnown(known.candidate);
    const auto isSame = [&](const Region& box) { return samePlace(known.candidate.box, box); };
    if (std::ranges::any_of(failed_, isSame)) return done;
    for (; !done && left > 0 && !known.looks.isComplete(); --left)
      done = lookAtSuspect(frame, known, timestampMs, noisy);
    return done;
  });
  tidy(gate);
}

void FaceTracker::tidy(const MotionGate& gate) {
  std::erase_if(faces_, [&](const TrackedFace& tracked) {
    if (tracked.misses < dropAfter) return false;
    return tracked.misses >= dropCalmAfter || !gate.calmSince(tracked.face.box, tracked.seenMs);
  });
  std::ranges::sort(faces_, std::greater<>(), [](const TrackedFace& tracked) {
    return std::pair(tracked.face.box.width, ~tracked.id);
  });
  // Two that ended up on one face: the one that is seen stays, then the surer one.
  const auto rank = [](const TrackedFace& tracked) { return std::pair(-tracked.misses, tracked.face.score); };
  for (std::size_t i = 0; i < faces_.size(); ++i) {
    for (std::size_t k = faces_.size() - 1; k > i; --k) {
      if (!samePlace(faces_[i].face.box, faces_[k].face.box)) continue;
      const std::uint64_t id = faces_[i].id;
      if (rank(faces_[k]) > rank(faces_[i])) faces_[i] = faces_[k];
      faces_[i].id = id;
      faces_.erase(faces_.begin() + static_cast<std::ptrdiff_t>(k));
    }
  }
}

}  // namespace sentrel::vision
