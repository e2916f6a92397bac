// SPDX-License-Identifier: Apache-2.0
#include "onlooker_scene.h"

#include <algorithm>
#include <map>
#include <utility>

namespace sentrel::test {

namespace {

constexpr double awayDegrees = 60;
constexpr double onlookerWidth = 80;  // pixels, of the face
constexpr double onlookerY = 130;
constexpr double onlookerX = 535;
constexpr double outsideX = PortraitScene::width + 80;

/// 0 before, 1 after, and in between as a head moves: slowly off, quickly through, slowly in.
double moved(std::int64_t ms, std::int64_t beginMs) {
  const double t = std::clamp(
      static_cast<double>(ms - beginMs) / static_cast<double>(OnlookerScene::movementMs), 0.0, 1.0);
  return t * t * (3 - 2 * t);
}

SceneState stateAt(std::int64_t ms) {
  SceneState state;
  state.yawDegrees =
      awayDegrees * (moved(ms, OnlookerScene::turnAwayMs) - moved(ms, OnlookerScene::turnBackMs));
  const double inside = moved(ms, OnlookerScene::enterMs) - moved(ms, OnlookerScene::leaveMs);
  if (inside > 0) {
    state.secondFace =
        SecondFace{.x = outsideX + inside * (onlookerX - outsideX), .y = onlookerY, .width = onlookerWidth};
  }
  return state;
}

}  // namespace

OnlookerScene::OnlookerScene(const PortraitScene& portrait) {
  std::map<std::pair<double, double>, std::size_t> known;
  for (std::int64_t frame = 0; frame * 1000 / fps <= calmMs; ++frame) {
    const SceneState state = stateAt(frame * 1000 / fps);
    const std::pair key(state.yawDegrees, state.secondFace ? state.secondFace->x : outsideX);
    const auto [found, isNew] = known.try_emplace(key, pictures_.size());
    if (isNew) pictures_.push_back(portrait.frame(state).convertToFormat(QImage::Format_RGB32));
    pictureOfFrame_.push_back(found->second);
  }
}

const std::uint8_t* OnlookerScene::frame(std::int64_t index) const {
  const auto last = static_cast<std::int64_t>(pictureOfFrame_.size()) - 1;
  const auto at = static_cast<std::size_t>(std::clamp<std::int64_t>(index, 0, last));
  return pictures_[pictureOfFrame_[at]].constBits();
}

const std::vector<OnlookerScene::Event>& OnlookerScene::events() {
  static const std::vector<Event> list{
      {0, "the user is alone and looks at the screen"},
      {turnAwayMs, "the head turns away and is held so for 10 s"},
      {turnBackMs, "the head turns back"},
      {turnBackMs + movementMs, "the user looks at the screen again"},
      {enterMs, "a second face comes in behind"},
      {leaveMs, "the second face leaves"},
      {calmMs, "the user is alone again"},
  };
  return list;
}

}  // namespace sentrel::test
