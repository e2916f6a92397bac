// SPDX-License-Identifier: Apache-2.0
#include "vision/face_verifier.h"

#include <utility>

namespace sentrel::vision {
namespace {

constexpr double cropPerFace = 2.0;
// Below this nothing can pass any threshold.
constexpr double lowestScore = 0.1;
constexpr double samePlaceOverlap = 0.25;
constexpr std::size_t maxFound = 64;

}  // namespace

FaceVerifier::FaceVerifier(FaceSearch search) : search_(std::move(search)) {
  found_.reserve(maxFound);
}

std::optional<Candidate> FaceVerifier::look(const Frame& frame, const Region& box) {
  const double side = box.width * cropPerFace;
  const Region crop{box.x + (box.width - side) / 2, box.y + (box.height - side) / 2, side, side};
  found_.clear();
  search_.find(frame, crop, lowestScore, found_);
  std::optional<Candidate> best;
  for (const Candidate& candidate : found_) {
    if (best && candidate.score <= best->score) continue;
    if (intersectionOverUnion(candidate.box, box) >= samePlaceOverlap) best = candidate;
  }
  return best;
}

}  // namespace sentrel::vision
