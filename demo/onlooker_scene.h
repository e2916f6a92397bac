// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "stage/pictures.h"

namespace sentrel::test {

/// A film for a virtual camera: the user alone and looking; the head turns away and is held so; looking
/// again; a second face comes in behind and leaves; calm for good. It says what is seen, never what should
/// follow.
class OnlookerScene {
 public:
  static constexpr int fps = 30;

  // Moments of the scene in milliseconds since its beginning; each movement takes `movementMs`.
  static constexpr std::int64_t movementMs = 800;
  static constexpr std::int64_t turnAwayMs = 6'000;
  static constexpr std::int64_t turnBackMs = turnAwayMs + movementMs + 10'000;
  static constexpr std::int64_t enterMs = turnBackMs + movementMs + 4'000;
  static constexpr std::int64_t leaveMs = enterMs + movementMs + 5'000;
  static constexpr std::int64_t calmMs = leaveMs + movementMs;

  struct Event {
    std::int64_t atMs;
    const char* words;
  };

  /// Renders every different frame beforehand; takes about a second.
  explicit OnlookerScene(const PortraitScene& portrait);

  /// The picture of a frame, 640 x 480 BGRA without padding, as long as the scene lives; the last one stays
  /// after the end. Any thread.
  [[nodiscard]] const std::uint8_t* frame(std::int64_t index) const;

  /// What happens when, in words for a person.
  [[nodiscard]] static const std::vector<Event>& events();

 private:
  std::vector<QImage> pictures_;
  std::vector<std::size_t> pictureOfFrame_;
};

}  // namespace sentrel::test
