// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string_view>

#include "support/frame.h"
#include "vision/region_sampler.h"

namespace sentrel::bench {

/// What bad light and a cheap camera do to a picture.
struct Degradation {
  double gain = 1;        ///< of every channel
  double noiseLevel = 0;  ///< standard deviation in steps of 1/255, new in every frame

  /// "plain", "dark" (an eighth of the light, with the noise that comes with it), "noisy", or a gain and a
  /// level of noise as "0.4:6".
  [[nodiscard]] static std::optional<Degradation> named(std::string_view name);

  /// `to` becomes the degraded `from`.
  void apply(const Frame& from, Frame& to, std::mt19937& random) const;
};

/// What a camera shows of a person for a while, made from one picture, with new noise in every frame.
class Film {
 public:
  enum class Scene {
    still,    ///< nothing moves
    working,  ///< the room is still; the head sways and turns a little, blinks, and hands move below it
    moving,   ///< the camera is carried: everything moves
  };

  /// `face` is the person's face in `picture`, which outlives the film.
  Film(const Frame& picture, const vision::Region& face, const Degradation& camera = {1, 2})
      : picture_(&picture), face_(face), camera_(camera) {}

  /// `to` becomes the picture at a time in seconds.
  void show(Scene scene, double time, Frame& to);

 private:
  void swing(double time);
  void work(double time);
  void closeEyes();
  void paintDisc(double centreX, double centreY, double radius, const std::uint8_t* colour);

  const Frame* picture_;
  vision::Region face_;
  Frame shown_;
  Degradation camera_;
  std::mt19937 random_{1};
};

}  // namespace sentrel::bench
