// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "stage/pictures.h"

namespace sentrel::bench {

/// What the virtual camera shows to the measured program: a user, with the noise of a camera in every frame.
class CameraFilm {
 public:
  enum class Scene { still, moving, onlooker };

  CameraFilm();

  /// From the next frame on. With an onlooker, each time at another place.
  void show(Scene scene);

  /// When the first frame with the onlooker was handed on, or nothing yet.
  [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> onlookerShownAt() const;

  /// The picture of a frame, 640 x 480 BGRA. On the camera's thread.
  [[nodiscard]] const std::uint8_t* frame(std::int64_t index);

  /// Of the onlooker's face, as a share of the frame's width.
  static constexpr double onlookerWidth = 0.08;

 private:
  using Pictures = std::vector<QImage>;  // played in turns

  Pictures still_;
  Pictures moving_;
  std::vector<Pictures> onlookers_;
  std::atomic<const Pictures*> shown_;
  std::atomic<std::int64_t> onlookerNs_ = 0;  // of the steady clock; 0 while not shown
  std::size_t nextPlace_ = 0;
};

}  // namespace sentrel::bench
