// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "detection/filter_fsm.h"
#include "platform/face_detector.h"
#include "support/geometry.h"
#include "support/published.h"

namespace sentrel {

/// Which other faces the person wants to be warned of.
struct OnlookerRules {
  static constexpr std::int64_t mostGuests = 3;

  std::int64_t guests = 0;          ///< faces beside the person's own that are welcome, 0..mostGuests
  std::int64_t farthestCm = 0;      ///< a face farther away is no onlooker; 0 is no limit
  std::int64_t alertAfterMs = 500;  ///< how long one must be there; less than 500 counts as 500
  bool onlyFacing = false;          ///< a face that is turned away from the screen is no onlooker

  bool operator==(const OnlookerRules&) const = default;
};

/// What a face in the picture is taken for.
enum class FaceRole {
  person,      ///< the widest face: the person at the screen
  onlooker,    ///< alerts
  guest,       ///< welcome
  tooFar,      ///< farther away than the person wants to be warned of
  turnedAway,  ///< does not face the screen
  ignored,     ///< the person said that it is nobody, and it is as still as paper
};

/// A place in the camera's picture at which a face is nobody: the centre and the width of its box, as shares
/// of the picture's width, and `y` of its height, from the bottom left.
struct IgnoredPlace {
  double x = 0;
  double y = 0;
  double width = 0;
  std::int64_t sinceMs = 0;  ///< when the person said so, on the time base of the frames
  bool isPaper = false;      ///< it has been as still as paper for long enough; what is not yet known alerts
  bool operator==(const IgnoredPlace&) const = default;
};

/// The viewing distance in centimetres of a face whose box is `width` (> 0) of the image wide.
double distanceOf(double width);

/// Tells the machine only of the faces that the person wants to be warned of. Every rule can only take other
/// faces away: the person's own face and the moment at which nobody is there are passed on as they are. Main
/// thread.
class OnlookerFilter {
 public:
  struct Frame {
    DetectionInput input;                              ///< for the machine
    std::array<FaceRole, FaceList::capacity> roles{};  ///< of the faces, in their order
    std::optional<NormalizedRect> onlooker;            ///< the face that alerts, the widest of several
  };

  /// Places that can be ignored at the same time.
  static constexpr std::size_t mostIgnored = 3;
  /// A face narrower than this share of the picture is never nobody: one that reads moves too little to see.
  static constexpr double narrowestPaper = 0.05;
  /// For how long a face must have been still before it is nobody. Nothing may have moved there in the
  /// picture for so long, either: somebody who sits and reads can keep a head that still, but not for long
  /// without anything to see.
  static constexpr std::int64_t stillMs = 10'000;
  /// What has not been still for so long when this has passed is somebody.
  static constexpr std::int64_t proofMs = 30'000;

  OnlookerRules rules;

  /// Judges `faces`, which are those that `input` counts; empty will do where that is one at most. In an
  /// alert an onlooker counts at once.
  Frame apply(const DetectionInput& input, const FaceList& faces, bool isAlert);

  /// The wait before an alert, as of the newest frame; none while no onlooker is there.
  [[nodiscard]] std::optional<FilterFsm::Timer> timer() const;

  /// The face that alerts is a picture on the wall: what stands at this place is ignored once it has been
  /// as still as paper for 10 s, until it moves, or was not seen for 10 minutes, or the camera was moved.
  /// What does not show within half a minute that it is paper is forgotten, too.
  /// False where there is no such face, where it is too narrow, or `mostIgnored` places are ignored already.
  /// Once more for the same face changes nothing.
  bool ignoreOnlooker();
  /// Whether the face that alerts is too narrow for it to be seen whether it is still.
  [[nodiscard]] bool isTooFarToIgnore() const;
  void forget(const IgnoredPlace& place);
  void forgetIgnored() { setPlaces({}); }
  /// What was seen so far is nothing to go by: nobody has looked, or another camera comes.
  void beginAnew();

  /// How many places are ignored, or will be once they have been still for long enough.
  [[nodiscard]] const Published<std::int64_t>& ignoredCount() const { return ignoredCount_; }
  /// These places, the oldest first; each becomes paper, or is forgotten within `proofMs`.
  [[nodiscard]] const Published<std::vector<IgnoredPlace>>& ignored() const { return ignored_; }

 private:
  /// A place in the picture: the centre and the width of a face's box, as shares of the image's width.
  struct Place {
    double x = 0;
    double y = 0;
    double width = 0;
  };
  /// Where a face is, and where it turns in degrees, as far as that is known.
  struct Pose {
    Place place;
    std::optional<double> yaw;
  };
  /// A place that is ignored while what stands there is still.
  struct Ignored {
    IgnoredPlace said;  // as the person called it nobody
    Pose pose;          // the mean of what was seen before it was known for paper
    std::int64_t frames = 0;
    Pose now;  // averaged over the last seconds
    std::int64_t seenMs = 0;
    std::optional<Place> person;  // where the person's face was then
  };

  static Place placeOf(const FaceObservation& face);
  static double distanceFrom(const Ignored& ignored, const Place& place);
  static void follow(Pose& average, const FaceObservation& face, double share);
  static bool isStill(const Ignored& ignored);
  [[nodiscard]] FaceRole judge(const FaceObservation& face) const;
  void forgetUnseen();
  void followIgnored(const FaceList& faces, std::size_t person, Frame& frame);
  void setPlaces(std::vector<Ignored> places);

  std::vector<Ignored> places_;
  Published<std::int64_t> ignoredCount_{0};
  Published<std::vector<IgnoredPlace>> ignored_;
  std::optional<FaceObservation> onlooker_;  // of the newest frame
  std::int64_t newestMs_ = 0;
  std::int64_t onlookerSinceMs_ = 0;  // 0: none is there
};

}  // namespace sentrel
