// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "detection/camera_control.h"
#include "detection/frame_look.h"
#include "support/main_loop.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// What keeps the camera from seeing well, for the person.
struct CameraCondition {
  enum class Kind {
    covered,    ///< by a shutter, a finger or a bag: dark and even
    tooDark,    ///< to find faces well
    frozen,     ///< the picture has not changed by a bit for 2 s
    nobody,     ///< no face for 5 s
    backlight,  ///< the person's face is dark before a bright ground
    usedBy,     ///< no pictures come, and another program gets them
    noPicture,  ///< no pictures come
  };

  Kind kind = Kind::covered;
  bool isSerious = false;    ///< covered or frozen for 10 s: nobody is watched
  std::string user = {};     ///< of `usedBy`: the name that the program gives itself, as it is
  std::int64_t seconds = 0;  ///< of `noPicture`: how long; whole minutes from the first one on
  bool operator==(const CameraCondition&) const = default;
};

/// Finds out which condition holds: the first of them, in their order, that has held for 3 s. One that is
/// told stays so until it has not held for 1.5 s, so that a picture that flickers changes nothing. Main
/// thread.
class CameraConditions {
 public:
  static constexpr std::int64_t tellAfterMs = 3000;
  static constexpr std::int64_t forgetAfterMs = 1500;
  static constexpr std::int64_t seriousAfterMs = 10'000;
  static constexpr std::int64_t frozenMs = 2000;
  static constexpr std::int64_t nobodyMs = 5000;
  static constexpr std::size_t kinds = 7;

  CameraConditions(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<Clock> clock,
                   std::shared_ptr<CameraControl> control);

  /// What became of the camera, while protection is switched on.
  void follow(const CameraControl::Status& status);
  /// A frame that was analysed, with the number of faces in it; `look` where it could be measured. Nothing
  /// unless the camera sees.
  void frame(std::int64_t timestampMs, std::int64_t faces, const std::optional<FrameLook>& look);
  /// Protection was switched off.
  void end() { follow({}); }

  /// None while all is well, and while the camera is meant to be closed.
  [[nodiscard]] const Published<std::optional<CameraCondition>>& condition() const { return condition_; }

  /// What the rules look at.
  struct Facts {
    std::optional<FrameLook> look;  ///< of the newest frame
    bool hasFace = false;
    std::int64_t sameForMs = 0;
    std::int64_t nobodyForMs = 0;
    bool isSilent = false;  ///< a camera is there, and gives no pictures
    std::string user;       ///< another program that gets its pictures, or empty
  };

 private:
  /// How long a rule has held.
  struct Held {
    std::optional<std::int64_t> sinceMs;
    std::optional<std::int64_t> brokenMs;  // it is told, and has not held since then
    bool isTold = false;
  };

  void look();
  void judge(std::int64_t nowMs);

  const std::shared_ptr<MainLoop> mainLoop_;
  const std::shared_ptr<Clock> clock_;
  const std::shared_ptr<CameraControl> control_;
  CameraControl::Status status_;
  Facts facts_;
  std::array<Held, kinds> held_;
  std::int64_t pictureMs_ = 0;  // the newest frame, or the opening
  std::int64_t changedMs_ = 0;  // the picture changed then
  std::int64_t faceMs_ = 0;     // a face was there then
  Published<std::optional<CameraCondition>> condition_;
  Registration ticks_;  // while no pictures come
};

}  // namespace sentrel
