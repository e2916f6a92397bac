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
using testing::ElementsAreArray;

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

  /// Shows the film for so long, ten frames a second; its time begins anew.
  void play(const std::function<Shot(std::int64_t)>& film, std::int64_t ms) {
    for (std::int64_t at = 0; at < ms; at += 100) {
      const Shot shot = film(at);
      const auto frame = machine.pool.acquire(FrameMeter::leastWidth, FrameMeter::leastHeight);
      shot.paint(*frame, random);
      machine.detector->next = shot.detections();
      if (machine.session->delivers()) machine.session->request->onFrame(frame);
      machine.settle();
      machine.loop->advance(100);
    }
  }
  void play(const Shot& shot, std::int64_t ms) {
    play([&shot](std::int64_t) { return shot; }, ms);
  }
  [[nodiscard]] const std::optional<CameraCondition>& now() const { return service->cameraCondition(); }

  std::minstd_rand random{1};
  std::vector<Condition> told;
  Registration observed;
};

constexpr Shot room{};
constexpr Shot covered{.brightness = 6, .texture = 0, .noise = 4, .face = {}};

TEST_F(CameraConditionTest, TellsTheFirstThatHolds) {
  const auto always = [](Shot shot) { return [shot](std::int64_t) { return shot; }; };
  const auto empty = Shot{.face = {}};
  const struct {
    const char* what;
    std::function<Shot(std::int64_t ms)> film;
    std::vector<Condition> expected;
  } films[] = {
      {"an ordinary room", always(room), {}},
      {"a photograph of somebody", always({.noise = 1}), {}},
      {"a shutter, with the noise of the dark",
       always({.brightness = 4, .texture = 0, .noise = 8, .face = {}}),
       {Condition::covered}},
      {"a finger that lets light through",
       always({.brightness = 32, .texture = 1, .face = {}}),
       {Condition::covered}},
      {"a shutter without any noise",
       always({.brightness = 0, .texture = 0, .noise = 0, .face = {}}),
       {Condition::covered}},
      {"a wall", always({.brightness = 120, .texture = 0, .face = {}}), {Condition::nobody}},
      {"a wall in the evening", always({.brightness = 50, .texture = 0, .face = {}}), {Condition::nobody}},
      {"a room at night",
       always({.brightness = 12, .texture = 10, .noise = 3, .face = {}}),
       {Condition::tooDark}},
      {"somebody at night, and seen", always({.brightness = 13, .texture = 8, .noise = 3, .face = 14}), {}},
      {"somebody hardly seen", always({.brightness = 5, .texture = 3, .face = 5}), {Condition::tooDark}},
      {"the same bytes", always({.noise = 0}), {Condition::frozen}},
      {"the same bytes of an empty room", always({.noise = 0, .face = {}}), {Condition::frozen}},
      {"a window behind", always({.brightness = 215, .face = 45}), {Condition::backlight}},
      {"a bright room", always({.brightness = 190, .face = 150}), {}},
      {"a dark face in an ordinary room", always({.brightness = 120, .face = 60}), {}},
      {"a light that flickers",
       [](std::int64_t ms) { return ms % 200 == 0 ? room : Shot{.brightness = 5, .texture = 1, .face = {}}; },
       {}},
      {"a cover that slips for half a second now and then",
       [](std::int64_t ms) { return ms % 4000 >= 3500 ? room : covered; },
       {Condition::covered}},
      {"a hand for a moment", [](std::int64_t ms) { return ms < 2900 ? covered : room; }, {}},
      {"somebody away for a moment",
       [&](std::int64_t ms) { return ms > 3000 && ms < 10'500 ? empty : room; },
       {}},
  };
  for (const auto& [what, film, expected] : films) {
    SCOPED_TRACE(what);
    stop();
    EXPECT_EQ(now(), std::nullopt);
    start();
    told.clear();
    play(film, 14'000);
    EXPECT_THAT(told, ElementsAreArray(expected));
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

TEST(FrameMeterTest, TheSameIsTheSameInEveryByte) {
  Frame frame;
  frame.resize(640, 480);
  std::fill_n(frame.data(), 640 * 480 * 4, std::uint8_t{100});
  FrameMeter meter;
  const auto isSame = [&] { return meter.measure(frame, nullptr)->isSameAsBefore; };
  EXPECT_FALSE(isSame());
  EXPECT_FALSE(isSame()) << "the sum of all is computed from here on";
  EXPECT_TRUE(isSame());
  frame.data()[frame.stride() * 479 + 3] = 99;  // a byte that is hardly ever looked at
  EXPECT_FALSE(isSame());
  EXPECT_TRUE(isSame());

  Frame small;
  for (const auto& [width, height] : {std::pair{0, 0}, {1, 1}, {159, 400}, {400, 119}}) {
    small.resize(width, height);
    EXPECT_EQ(meter.measure(small, nullptr), std::nullopt) << width << " x " << height;
  }
  const NormalizedRect strange[] = {{0, 0, 0, 0}, {-3, -3, 9, 9}, {0.99, 0.99, 0.001, 0.001}, {2, 2, 1, 1}};
  for (const auto& box : strange) EXPECT_EQ(meter.measure(frame, &box)->contrast, std::nullopt);
}

}  // namespace
}  // namespace sentrel
