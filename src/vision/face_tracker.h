// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "support/frame.h"
#include "vision/face_search.h"

namespace sentrel::vision {

/// A confirmed face. `face.box` is as the last close look saw it, wider than the face's tight box.
struct TrackedFace {
  std::uint64_t id = 0;  ///< the same as long as the face is followed
  Candidate face;
  int misses = 0;  ///< looks in a row that did not see it
};

/// Keeps the list of confirmed faces. It looks closely at single places: at the square about a box, twice as
/// wide, at the size at which the network sees faces best. That scores a real face of any size higher than a
/// pass over a larger region does, and what only looked like one lower.
///
/// A candidate is confirmed when the mean of its own score and that of a close look is high enough; from then
/// on the face is looked at again every frame and stays with a lower score, so that it does not flicker at
/// the threshold. Work in one frame is bounded: the widest faces are looked at every time, the others in
/// turns. Allocates nothing per frame. One thread.
class FaceTracker {
 public:
  static constexpr InputSize inputSize{96, 96};

  /// `search` has the input size above.
  explicit FaceTracker(FaceSearch search);

  /// Follows the faces into a new frame.
  void follow(const Frame& frame);

  /// Confirms new faces among `candidates`, which are sorted and free of overlaps. Those that are too many
  /// for one frame wait for the next ones. In the dark, where much looks like a face, it takes more.
  void confirm(const Frame& frame, std::span<const Candidate> candidates, bool dark);

  /// Whether a face was not seen where it is expected: it has gone, or must be found again.
  [[nodiscard]] bool unsure() const;

  /// Whether candidates wait.
  [[nodiscard]] bool hasBacklog() const { return !waiting_.empty(); }

  /// Widest first.
  [[nodiscard]] std::span<const TrackedFace> faces() const { return faces_; }

  void restart();

 private:
  /// The best face that stands where `box` is, with its score in a close look, or none.
  [[nodiscard]] std::optional<Candidate> lookClosely(const Frame& frame, const Region& box);
  void lookAgain(const Frame& frame, TrackedFace& tracked);
  [[nodiscard]] bool isKnown(const Candidate& candidate) const;
  void confirmOne(const Frame& frame, const Candidate& candidate, double enterScore);
  [[nodiscard]] TrackedFace* movedFrom(const Candidate& candidate);
  void tidy();

  FaceSearch search_;
  std::vector<Candidate> seen_;
  std::vector<TrackedFace> faces_;
  std::vector<Candidate> waiting_;
  std::uint64_t lastId_ = 0;
  std::size_t turn_ = 0;
};

}  // namespace sentrel::vision
