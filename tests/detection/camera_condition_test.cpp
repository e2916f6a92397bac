// SPDX-License-Identifier: Apache-2.0
//
// What keeps the camera from seeing well, on films that are made here, through the whole core.
#include <random>

#include "detection/camera_condition.h"
#include "support/test_core.h"

namespace sentrel {
namespace {

using Condition = CameraCondition::Kind;
using test::detectionsOf;
using test::faceOf;

/// One frame of a film.
struct Shot {
  double brightness = 110;  ///< around the face
  double texture = 30;      ///< how far the parts of the room differ from that
  double noise = 2;         ///< standard deviation, new in every frame
  std::optional<double> face = 100;

  [[nodiscard]] FaceDetections detections() const {
    return face ? detectionsOf({box()}, {box()}) : FaceDetections{};
  }
  [[nodiscard]] static FaceObservation box() { return {{0.4, 0.3, 0.2, 0.3}, 0.0, std::nullopt}; }

  void paint(Frame& frame, std::minstd_rand& random) const {
    std::normal_distribution<double> grain(0, noise > 0 ? noise : 1);
    for (int y = 0; y < frame.height(); ++y) {
      for (int x = 0; x < frame.width(); ++x) {
        const double across = (x + 0.5) / frame.width();
        const double down = (y + 0.5) / frame.height();
        const bool inFace = face && across > 0.4 && across < 0.6 && down > 0.4 && down < 0.7;
        const double wall = brightness + ((x / 40 + y / 40) % 2 == 0 ? texture : -texture);
        const double value = (inFace ? *face : wall) + (noise > 0 ? grain(random) : 0);
        std::fill_n(frame.data() + y * frame.stride() + std::ptrdiff_t{x} * 4, 4,
                    static_cast<std::uint8_t>(std::clamp(value, 0.0, 255.0)));
      }
    }
  }
};

struct CameraConditionTest : testing::Test, test::TestCore {
  CameraConditionTest() {
    observed = service->cameraCondition().onChange([this](const auto& condition) {
      if (!condition) return;
      if (told.empty() || told.back() != condition->kind) told.push_back(condition->kind);
    });
    start();
  }

  /// Shows it for so long, ten frames a second.
  void play(const Shot& shot, std::int64_t ms) {
    for (; ms > 0; ms -= 100) {
      const auto frame = machine.pool.acquire(FrameMeter::leastWidth, FrameMeter::leastHeight);
      shot.paint(*frame, random);
      machine.detector->next = shot.detections();
      if (machine.session->delivers()) machine.session->request->onFrame(frame);
      machine.settle();
      machine.loop->advance(100);
    }
  }
  [[nodiscard]] const std::optional<CameraCondition>& now() const { return service->cameraCondition(); }

  std::minstd_rand random{1};
  std::vector<Condition> told;
  Registration observed;
};

constexpr Shot room{};
constexpr Shot covered{.brightness = 6, .texture = 0, .noise = 4, .face = {}};

TEST_F(CameraConditionTest, TellsTheFirstThatHolds) {
  using Expected = std::vector<Condition>;
  const Expected shut{Condition::covered}, dark{Condition::tooDark}, frozen{Condition::frozen};
  const Expected nobody{Condition::nobody}, backlight{Condition::backlight}, none;
  const Shot wall{.brightness = 120, .texture = 0, .face = {}};
  const struct {
    const char* what;
    Expected expected;
    Shot shot;
    bool (*isOther)(std::int64_t ms) = nullptr;  ///< when the other one is shown
    Shot other = {};
  } films[] = {
      {"an ordinary room", none, room},
      {"a photograph of somebody", none, {.noise = 1}},
      {"a shutter, in the noise of the dark", shut, {.brightness = 4, .texture = 0, .noise = 8, .face = {}}},
      {"a finger that lets light through", shut, {.brightness = 32, .texture = 1, .face = {}}},
      {"a shutter without any noise", shut, {.brightness = 0, .texture = 0, .noise = 0, .face = {}}},
      {"a wall", nobody, wall},
      {"a wall in the evening", nobody, {.brightness = 50, .texture = 0, .face = {}}},
      {"a room at night", dark, {.brightness = 12, .texture = 10, .noise = 3, .face = {}}},
      {"somebody at night, and seen", none, {.brightness = 13, .texture = 8, .noise = 3, .face = 14}},
      {"somebody hardly seen", dark, {.brightness = 5, .texture = 3, .face = 5}},
      {"the same bytes", frozen, {.noise = 0}},
      {"the same bytes of an empty room", frozen, {.noise = 0, .face = {}}},
      {"a window behind", backlight, {.brightness = 215, .face = 45}},
      {"a bright room", none, {.brightness = 190, .face = 150}},
      {"a dark face in an ordinary room", none, {.brightness = 120, .face = 60}},
      {"a flickering light", none, covered, [](auto ms) { return ms % 200 == 0; }, room},
      {"a cover that slips now and then", shut, covered, [](auto ms) { return ms % 4000 >= 3500; }, room},
      {"a hand for a moment", none, room, [](auto ms) { return ms < 2900; }, covered},
      {"away for a moment", none, room, [](auto ms) { return ms > 3000 && ms < 10'500; }, {.face = {}}},
  };
  for (const auto& [what, expected, shot, isOther, other] : films) {
    SCOPED_TRACE(what);
    stop();
    EXPECT_EQ(now(), std::nullopt);
    start();
    told.clear();
    for (std::int64_t ms = 0; ms < 14'000; ms += 100) play(isOther && isOther(ms) ? other : shot, 100);
    EXPECT_EQ(told, expected);
  }
}

TEST_F(CameraConditionTest, IsToldAfterThreeSecondsAndForgottenSoon) {
  play(room, 1000);
  play(covered, 3000);
  EXPECT_EQ(now(), std::nullopt);
  play(covered, 100);
  EXPECT_EQ(now(), CameraCondition{});
  play(covered, 6900);
  EXPECT_EQ(now(), CameraCondition{});
  play(covered, 100);
  EXPECT_EQ(now(), (CameraCondition{.isSerious = true})) << "for 10 s";
  EXPECT_EQ(state(), FilterState::Kind::nominal) << "the state is another thing";
  EXPECT_TRUE(desktop.notifications->shown.empty()) << "never";
  play(room, 1500);
  EXPECT_TRUE(now().has_value());
  play(room, 100);
  EXPECT_EQ(now(), std::nullopt);

  play(covered, 4000);
  ASSERT_TRUE(now().has_value());
  service->relaxations().pause(60'000);
  machine.settle();
  EXPECT_EQ(now(), std::nullopt) << "the camera is meant to be closed";
}

TEST_F(CameraConditionTest, ACameraWithoutPicturesSaysWhoHasIt) {
  play(room, 1000);
  machine.session->interrupt(CaptureError::Kind::deviceUnavailable);
  machine.advance(2900);
  EXPECT_EQ(now(), std::nullopt);
  machine.advance(1100);
  EXPECT_EQ(now(), (CameraCondition{.kind = Condition::noPicture, .seconds = 4}));
  machine.session->user = "meeting";
  machine.advance(8000);
  EXPECT_EQ(now(), (CameraCondition{.kind = Condition::usedBy, .user = "meeting"}));
  machine.session->user.clear();
  machine.advance(150'000);
  EXPECT_EQ(now(), (CameraCondition{.kind = Condition::noPicture, .seconds = 120})) << "in whole minutes";
  machine.session->cause.reset();
  machine.session->interruptionEnded.emit();
  EXPECT_EQ(now(), std::nullopt) << "at once";

  machine.session->plug(false);
  machine.session->interrupt(CaptureError::Kind::deviceUnavailable);
  machine.advance(9000);
  EXPECT_EQ(now(), std::nullopt) << "that none is there says more";
  machine.session->plug(true);
  machine.session->interrupt(CaptureError::Kind::accessDenied);
  machine.advance(9000);
  EXPECT_EQ(now(), std::nullopt) << "that it is denied says more";
}

TEST(FrameMeterTest, BearsFramesAndFacesOfAnySize) {
  FrameMeter meter;
  Frame small;
  for (const auto& [width, height] : {std::pair{0, 0}, {1, 1}, {159, 400}, {400, 119}}) {
    small.resize(width, height);
    EXPECT_EQ(meter.measure(small, nullptr), std::nullopt) << width << " x " << height;
  }
  Frame frame;
  frame.resize(640, 480);
  frame.clear();
  const NormalizedRect strange[] = {{0, 0, 0, 0}, {-3, -3, 9, 9}, {0.99, 0.99, 0.001, 0.001}, {2, 2, 1, 1}};
  for (const auto& box : strange) EXPECT_EQ(meter.measure(frame, &box)->contrast, std::nullopt);
}

}  // namespace
}  // namespace sentrel
