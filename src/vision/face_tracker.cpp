// SPDX-License-Identifier: Apache-2.0
#include "vision/face_tracker.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace sentrel::vision {
namespace {

// A close look: the side of its square over the box's width, the lowest score of interest (below it nothing
// can pass any threshold), and how far the box it sees must overlap the one it looks for.
constexpr double cropPerFace = 2.0;
constexpr double lowestScore = 0.1;
constexpr double seenPlaceOverlap = 0.25;
constexpr std::size_t maxSeen = 64;

constexpr double enterScoreInLight = 0.50;
constexpr double enterScoreInTheDark = 0.55;
constexpr double stayScore = 0.40;
// A face is given up at this many misses in a row: an alert needs it in every frame for half a second.
constexpr int dropAfter = 3;
constexpr std::size_t maxFaces = 64;
// Close looks in one frame, 1 ms each: at the widest faces, at the others in turns, and at candidates.
constexpr std::size_t alwaysLooked = 4;
constexpr std::size_t lookedInTurns = 4;
constexpr std::size_t newLooks = 5;
constexpr std::size_t maxWaiting = 128;

}  // namespace

FaceTracker::FaceTracker(FaceSearch search) : search_(std::move(search)) {
  seen_.reserve(maxSeen);
  faces_.reserve(maxFaces);
  waiting_.reserve(maxWaiting);
}

void FaceTracker::restart() {
  faces_.clear();
  waiting_.clear();
}

std::optional<Candidate> FaceTracker::lookClosely(const Frame& frame, const Region& box) {
  const double side = box.width * cropPerFace;
  const Region crop{box.x + (box.width - side) / 2, box.y + (box.height - side) / 2, side, side};
  seen_.clear();
  search_.find(frame, crop, lowestScore, seen_);
  std::optional<Candidate> best;
  for (const Candidate& candidate : seen_) {
    if (best && candidate.score <= best->score) continue;
    if (intersectionOverUnion(candidate.box, box) >= seenPlaceOverlap) best = candidate;
  }
  return best;
}

void FaceTracker::lookAgain(const Frame& frame, TrackedFace& tracked) {
  const auto seen = lookClosely(frame, tracked.face.box);
  if (!seen || seen->score < stayScore) {
    ++tracked.misses;
    return;
  }
  tracked.face = *seen;
  tracked.misses = 0;
}

void FaceTracker::follow(const Frame& frame) {
  std::size_t looked = 0;
  for (; looked < std::min(alwaysLooked, faces_.size()); ++looked) lookAgain(frame, faces_[looked]);
  const std::size_t others = faces_.size() - looked;
  for (std::size_t i = 0; i < std::min(lookedInTurns, others); ++i) {
    lookAgain(frame, faces_[looked + (turn_ + i) % others]);
  }
  turn_ += lookedInTurns;
  tidy();
}

bool FaceTracker::unsure() const {
  return std::any_of(faces_.begin(), faces_.end(),
                     [](const TrackedFace& tracked) { return tracked.misses > 0; });
}

TrackedFace* FaceTracker::movedFrom(const Candidate& candidate) {
  const double x = candidate.box.x + candidate.box.width / 2;
  const double y = candidate.box.y + candidate.box.height / 2;
  for (TrackedFace& tracked : faces_) {
    const Region& box = tracked.face.box;
    const double ratio = candidate.box.width / box.width;
    const double distance = std::hypot(x - box.x - box.width / 2, y - box.y - box.height / 2);
    if (tracked.misses > 0 && ratio > 0.66 && ratio < 1.5 && distance < 2 * box.width) return &tracked;
  }
  return nullptr;
}

bool FaceTracker::isKnown(const Candidate& candidate) const {
  return std::any_of(faces_.begin(), faces_.end(), [&](const TrackedFace& tracked) {
    return tracked.misses == 0 && samePlace(candidate.box, tracked.face.box);
  });
}

void FaceTracker::confirmOne(const Frame& frame, const Candidate& candidate, double enterScore) {
  const auto seen = lookClosely(frame, candidate.box);
  if (!seen || (seen->score + candidate.score) / 2 < enterScore) return;
  if (TrackedFace* moved = movedFrom(*seen)) {
    // A face that moved faster than its look could follow.
    moved->face = *seen;
    moved->misses = 0;
  } else if (faces_.size() < maxFaces) {
    faces_.push_back({++lastId_, *seen, 0});
  }
}

void FaceTracker::confirm(const Frame& frame, std::span<const Candidate> candidates, bool dark) {
  const double enterScore = dark ? enterScoreInTheDark : enterScoreInLight;
  std::size_t looks = 0;
  for (const Candidate& candidate : candidates) {
    if (isKnown(candidate)) continue;
    if (looks < newLooks) {
      confirmOne(frame, candidate, enterScore);
      ++looks;
    } else if (waiting_.size() < maxWaiting) {
      waiting_.push_back(candidate);
    }
  }
  for (; looks < newLooks && !waiting_.empty(); waiting_.pop_back()) {
    if (isKnown(waiting_.back())) continue;
    confirmOne(frame, waiting_.back(), enterScore);
    ++looks;
  }
  tidy();
}

void FaceTracker::tidy() {
  std::erase_if(faces_, [](const TrackedFace& tracked) { return tracked.misses >= dropAfter; });
  std::sort(faces_.begin(), faces_.end(), [](const TrackedFace& a, const TrackedFace& b) {
    return a.face.box.width != b.face.box.width ? a.face.box.width > b.face.box.width : a.id < b.id;
  });
  // Two that ended up on one face: the one that is seen stays, then the surer one.
  for (std::size_t i = 0; i < faces_.size(); ++i) {
    for (std::size_t k = i + 1; k < faces_.size();) {
      if (!samePlace(faces_[i].face.box, faces_[k].face.box)) {
        ++k;
        continue;
      }
      const auto rank = [](const TrackedFace& tracked) {
        return std::pair(-tracked.misses, tracked.face.score);
      };
      if (rank(faces_[k]) > rank(faces_[i])) {
        const std::uint64_t id = faces_[i].id;
        faces_[i] = faces_[k];
        faces_[i].id = id;
      }
      faces_.erase(faces_.begin() + static_cast<std::ptrdiff_t>(k));
    }
  }
}

}  // namespace sentrel::vision
