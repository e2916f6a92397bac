// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "support/frame.h"
#include "vision/face_mesh.h"
#include "vision/face_search.h"
#include "vision/motion_gate.h"

namespace sentrel::vision {

/// The scores of close looks at one place, by how far they enlarge.
struct CloseLooks {
  std::array<double, 5> scores{};
  std::size_t made = 0;

  [[nodiscard]] bool isComplete() const { return made == scores.size(); }
  /// The mean of the best three, where those that were not made yet would score `hoped`.
  [[nodiscard]] double best(double hoped = 0) const;
};

/// A confirmed face. `face.box` is as the last close look saw it, wider than the face's tight box.
struct TrackedFace {
  std::uint64_t id = 0;  ///< the same as long as the face is followed
  Candidate face;
  Point speed;                ///< of its middle, in pixels a millisecond
  int misses = 0;             ///< looks in a row that did not see it
  std::size_t zoom = 0;       ///< of the close look that sees it well
  std::int64_t seenMs = 0;    ///< when it was last seen, by a look or by whoever called `carry`
  std::int64_t lookedMs = 0;  ///< when a close look last saw it
  CloseLooks trial;           ///< the looks after it was confirmed, which it must pass to stay
};

/// Keeps the list of confirmed faces. It looks closely at single places: at a square about a box, enlarged as
/// far as the network sees faces well. That scores a real face of any size higher than a pass over a larger
/// region does, and what only looked like one lower.
///
/// A candidate is confirmed when what the scans and some close looks of different sizes say of it is sure
/// enough together; where nothing moves, scans at different times add to each other. From then on the face
/// stays with a lower score, so that it does not flicker at the threshold, and is looked at again in every
/// frame in which something near it moved, and now and then. One that was not sure at the first look is on
/// trial for at most half a second: what only looked like a face by chance goes before anything comes of it.
/// It is missing in a frame at least before it can be on trial again, so that two trials do not add up.
///
/// Work in one frame is bounded: the widest faces come first, the others in turns. Allocates nothing per
/// frame. One thread.
class FaceTracker {
 public:
  static constexpr InputSize inputSize{96, 96};
  /// How long a face that does not move is taken for the same without another look.
  static constexpr std::int64_t holdMs = 500;

  /// `search` has the input size above. `mesh` has the last word on what is large and looks little like a
  /// face.
  FaceTracker(FaceSearch search, MeshFinder& mesh);

  /// Follows the faces into a new frame, that of `gate`.
  void follow(const Frame& frame, const MotionGate& gate, std::int64_t timestampMs);

  /// The widest face was seen in this frame by other means, where `face` says; a close look can wait.
  void carry(const Candidate& face, std::int64_t timestampMs);

  /// Confirms new faces among `candidates`, which are sorted and free of overlaps. In strong noise,
  /// where close looks see little, the scans count for more.
  void confirm(const Frame& frame, const MotionGate& gate, std::int64_t timestampMs,
               std::span<const Candidate> candidates, bool noisy);

  /// Whether a face was not seen where it is expected: it has gone, or must be found again.
  [[nodiscard]] bool unsure() const;

  /// Whether candidates wait for a look, or faces are on trial.
  [[nodiscard]] bool hasBacklog() const;

  /// Widest first.
  [[nodiscard]] std::span<const TrackedFace> faces() const { return faces_; }

  void restart();

  /// Whether nothing moved about a face since it was last seen.
  [[nodiscard]] static bool isCalm(const TrackedFace& tracked, const MotionGate& gate);

 private:
  /// A candidate that is not confirmed.
  struct Suspect {
    Candidate candidate;
    double scanSum = 0;  // of the scores of all scans that showed it
    int scans = 0;
    CloseLooks looks;  // since the last scan
    std::int64_t checkedMs = 0;
  };

  /// The best face in a square about a box that scores at least so much and of which `is` says so, or none.
  template <class Is>
  [[nodiscard]] std::optional<Candidate> bestIn(const Frame& frame, const Region& box, double side,
                                                double least, Is is);
  /// The best face that stands where `box` is, with its score in a close look, or none.
  [[nodiscard]] std::optional<Candidate> lookClosely(const Frame& frame, const Region& box, std::size_t zoom,
                                                     double least);
  /// The face that moved away from `box` beyond what a close look shows, or none: as sure as a new one.
  [[nodiscard]] std::optional<Candidate> lookAround(const Frame& frame, const Region& box);
  /// A close look at the zoom that comes next in `looks`, which takes the score in.
  [[nodiscard]] std::optional<Candidate> lookNext(const Frame& frame, const Region& box, CloseLooks& looks);
  void lookAgain(const Frame& frame, TrackedFace& tracked, const MotionGate& gate, std::int64_t timestampMs);
  [[nodiscard]] bool isKnown(const Candidate& candidate) const;
  void suspect(const Candidate& candidate, const MotionGate& gate, std::int64_t timestampMs);
  [[nodiscard]] bool lookAtSuspect(const Frame& frame, Suspect& suspect, std::int64_t timestampMs,
                                   bool noisy);
  void enter(const TrackedFace& entering);
  /// Goes on with the trial of a face that is expected in a box. None while the face has moved elsewhere, or
  /// once the trial has failed, which `failed_` notes.
  [[nodiscard]] std::optional<Candidate> tryOut(const Frame& frame, const Region& box, TrackedFace& tracked,
                                                const MotionGate& gate);
  void tidy(const MotionGate& gate);

  FaceSearch search_;
  MeshFinder* mesh_;
  std::vector<Candidate> seen_;
  std::vector<TrackedFace> faces_;
  std::vector<Suspect> suspects_;
  std::vector<Region> failed_;  // where trials have failed in this frame
  std::int64_t followedMs_ = 0;
  std::int64_t intervalMs_ = 0;  // between the last two frames
  std::uint64_t lastId_ = 0;
  std::size_t turn_ = 0;
};

}  // namespace sentrel::vision
