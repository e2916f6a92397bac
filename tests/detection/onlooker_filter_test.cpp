// SPDX-License-Identifier: Apache-2.0
#include "detection/onlooker_filter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <string>

namespace sentrel {
namespace {

/// One about which nothing has moved for a minute.
FaceObservation faceAt(double x, double y, double width, double yaw = 0) {
  FaceObservation face;
  face.boundingBox = {x, y, width, width * 4 / 3};
  face.yaw = yaw * std::numbers::pi / 180;
  face.stillMs = 60'000;
  return face;
}

const FaceObservation person = faceAt(0.35, 0.3, 0.3);

class Filter : public OnlookerFilter {
 public:
  /// The frame `ms` after the beginning with the person's face and these.
  Frame frame(std::int64_t ms, std::initializer_list<FaceObservation> others, bool isAlert = false) {
    FaceList faces;
    for (const FaceObservation& face : others) faces.push(face);
    faces.push(person);
    const auto count = static_cast<std::int64_t>(faces.size());
    return apply({1'000'000 + ms, count, FaceData{0, 0, 0.3F}}, faces, isAlert);
  }
  /// The number of faces that the machine hears of.
  std::int64_t heard(std::int64_t ms, std::initializer_list<FaceObservation> others, bool isAlert = false) {
    return frame(ms, others, isAlert).input.faceCount;
  }
};

TEST(OnlookerFilterTest, RulesTakeOtherFacesAway) {
  // A face of 0.098 of the width is a metre away.
  const FaceObservation near = faceAt(0.7, 0.5, 0.1);
  const FaceObservation middle = faceAt(0.1, 0.5, 0.05);
  const FaceObservation far = faceAt(0.8, 0.8, 0.03);
  const FaceObservation turned = faceAt(0.05, 0.2, 0.06, -46);
  const struct {
    const char* name;
    OnlookerRules rules;
    std::string roles;  // of near, middle, far, turned
    std::int64_t heard;
  } cases[] = {
      {"as it comes", {}, "oooo", 5},
      {"up to 3.5 m", {.farthestCm = 350}, "oooo", 5},
      {"up to 2.5 m", {.farthestCm = 250}, "oo.o", 4},
      {"up to 1.5 m", {.farthestCm = 150}, "o...", 2},
      {"facing only", {.onlyFacing = true}, "ooot", 4},
      {"the widest is the guest", {.guests = 1}, "gooo", 4},
      {"three guests", {.guests = 3}, "ggog", 2},
      {"more guests than there may be", {.guests = 9}, "ggog", 2},
      {"guests are not counted among those who are too far", {.guests = 1, .farthestCm = 150}, "g...", 1},
      {"all of it", {.guests = 2, .farthestCm = 250, .onlyFacing = true}, "gg.t", 1},
  };
  for (const auto& each : cases) {
    Filter filter;
    filter.rules = each.rules;
    const auto frame = filter.frame(0, {near, middle, far, turned});
    std::string roles;
    for (std::size_t i = 0; i < 4; ++i) {
      constexpr const char* letters = "pog.ti";
      roles += letters[static_cast<std::size_t>(frame.roles[i])];
    }
    EXPECT_EQ(roles, each.roles) << each.name;
    EXPECT_EQ(frame.roles[4], FaceRole::person) << each.name;
    EXPECT_EQ(frame.input.faceCount, each.heard) << each.name;
    EXPECT_EQ(frame.onlooker.has_value(), each.heard > 1) << each.name;
  }
}

TEST(OnlookerFilterTest, AnOnlookerMustBeThereForTheChosenTime) {
  const FaceObservation other = faceAt(0.7, 0.5, 0.1);
  Filter filter;
  filter.rules.alertAfterMs = 2000;
  EXPECT_EQ(filter.heard(0, {other}), 1);
  EXPECT_EQ(filter.heard(1499, {other}), 1);
  EXPECT_EQ(filter.heard(1500, {other}), 2) << "the machine waits for the rest";
  EXPECT_EQ(filter.heard(1600, {}), 1);
  EXPECT_EQ(filter.heard(1700, {other}), 1) << "somebody new";
  EXPECT_EQ(filter.heard(1800, {other}, true), 2) << "an alert goes on";
  // Nobody there is passed on at once: out of inattention that is an alert.
  EXPECT_EQ(filter.apply({1'001'900, 0, std::nullopt}, {}, false).input, (DetectionInput{1'001'900, 0, {}}));
}

TEST(OnlookerFilterTest, ADirectionIsWaitedForWhereItMatters) {
  FaceObservation unread = faceAt(0.7, 0.5, 0.1);
  unread.yaw.reset();
  const FaceObservation facing = faceAt(0.7, 0.5, 0.1, 10);
  const FaceObservation turned = faceAt(0.7, 0.5, 0.1, 60);
  Filter filter;
  EXPECT_EQ(filter.heard(0, {unread}), 2) << "it does not matter";
  EXPECT_EQ(filter.heard(100, {}), 1);
  filter.rules.onlyFacing = true;
  EXPECT_EQ(filter.heard(200, {unread}), 1);
  EXPECT_EQ(filter.heard(300, {facing}), 2) << "at once";
  EXPECT_EQ(filter.heard(400, {turned}), 1);
  EXPECT_EQ(filter.heard(500, {unread}), 1);
  EXPECT_EQ(filter.heard(1499, {unread}), 1);
  EXPECT_EQ(filter.heard(1500, {unread}), 2) << "never unseen";
  EXPECT_EQ(filter.heard(1600, {}), 1);
  EXPECT_EQ(filter.heard(1700, {unread}, true), 2) << "an alert goes on";
}

/// A face that moves by `sway` of its width and turns by `turn` degrees, slowly, from frame to frame, with
/// the trembling of a detector, and in whose picture something moves every `blinkSeconds`. Tells after how
/// many seconds it first did not count, or -1.
double secondsUntilIgnored(Filter& filter, double sway, double turn, int blinkSeconds, int seconds) {
  std::mt19937 random(7);
  std::normal_distribution<double> noise(0, 1);
  filter.frame(0, {faceAt(0.7, 0.5, 0.1)});
  EXPECT_TRUE(filter.ignoreOnlooker());
  for (int i = 1; i <= seconds * 10; ++i) {
    const double phase = std::sin(i / 50.0 * 2 * std::numbers::pi);
    const double width = 0.1 * (1 + 0.01 * noise(random));
    auto face = faceAt(0.7 + 0.1 * (sway * phase + 0.01 * noise(random)), 0.5, width, turn * phase);
    face.stillMs = i * 100 % (blinkSeconds * 1000);
    if (filter.heard(i * 100, {face}) == 1) return i / 10.0;
  }
  return -1;
}

TEST(OnlookerFilterTest, OnlyWhatIsAsStillAsPaperIsNobody) {
  const struct {
    double sway;
    double turn;
    int blinkSeconds;
    double paperAfter;  // seconds; -1 is never
  } cases[] = {{0, 0, 1000, 10}, {0.02, 0, 1000, 10}, {0.08, 0, 8, -1},
               {0, 8, 8, -1},    {0, 0, 9, -1},       {0, 0, 17, 10}};
  for (const auto& each : cases) {
    Filter filter;
    EXPECT_EQ(secondsUntilIgnored(filter, each.sway, each.turn, each.blinkSeconds, 60), each.paperAfter)
        << each.sway << ' ' << each.turn << ' ' << each.blinkSeconds;
    EXPECT_EQ(filter.ignoredCount().get(), each.paperAfter > 0 ? 1 : 0) << "what moves is forgotten";
  }
}

TEST(OnlookerFilterTest, PaperThatMovesIsSomebody) {
  // It is measured elsewhere after a minute, and something moves in the picture or does not.
  for (const bool moves : {false, true}) {
    Filter filter;
    EXPECT_EQ(secondsUntilIgnored(filter, 0, 0, 1000, 60), 10);
    auto face = faceAt(0.71, 0.5, 0.1);
    if (moves) face.stillMs = 0;
    std::int64_t heard = 0;
    for (int ms = 60'100; ms <= 63'000; ms += 100) heard = filter.heard(ms, {face});
    EXPECT_EQ(heard, moves ? 2 : 1);
  }
  // One whose direction or stillness nobody knows.
  for (const bool knowsYaw : {false, true}) {
    Filter filter;
    auto face = faceAt(0.7, 0.5, 0.1);
    if (!knowsYaw) face.yaw.reset();
    if (knowsYaw) face.stillMs = 0;
    filter.frame(0, {face});
    EXPECT_TRUE(filter.ignoreOnlooker());
    for (int ms = 100; ms < 40'000; ms += 100) EXPECT_EQ(filter.heard(ms, {face}), 2);
    EXPECT_EQ(filter.ignoredCount().get(), 0);
  }
}

TEST(OnlookerFilterTest, PlacesAreForgotten) {
  const FaceObservation poster = faceAt(0.7, 0.5, 0.1);
  const auto ignored = [&](Filter& filter) {
    filter.frame(0, {poster});
    EXPECT_TRUE(filter.ignoreOnlooker());
    for (int ms = 100; ms <= 11'000; ms += 100) filter.frame(ms, {poster});
    EXPECT_EQ(filter.heard(11'100, {poster}), 1);
  };
  Filter hidden;
  ignored(hidden);
  EXPECT_EQ(hidden.heard(300'000, {}), 1);
  EXPECT_EQ(hidden.heard(611'000, {poster}), 1) << "not seen for less than ten minutes";
  EXPECT_EQ(hidden.heard(1'300'000, {}), 1);
  EXPECT_EQ(hidden.ignoredCount().get(), 0) << "not seen for longer";

  Filter carried;
  ignored(carried);
  FaceList faces;
  faces.push(faceAt(0.05, 0.3, 0.3));
  faces.push(faceAt(0.4, 0.5, 0.1));
  EXPECT_EQ(carried.apply({1'011'200, 2, {}}, faces, false).input.faceCount, 2);
  EXPECT_EQ(carried.ignoredCount().get(), 0) << "everything is elsewhere";

  Filter many;
  for (const double x : {0.1, 0.3, 0.7, 0.9}) {
    many.frame(0, {faceAt(x, 0.8, 0.1)});
    EXPECT_EQ(many.ignoreOnlooker(), x < 0.9) << "three places at most";
    EXPECT_EQ(many.ignoreOnlooker(), x < 0.9) << "once more for the same";
  }
  const auto places = many.ignored().get();
  ASSERT_EQ(places.size(), 3);
  EXPECT_NEAR(places[1].x, 0.35, 1e-9);
  EXPECT_NEAR(places[1].y, 0.8 + 0.1 * 2 / 3, 1e-9);
  EXPECT_EQ(places[1].sinceMs, 1'000'000);
  many.forget(places[1]);
  EXPECT_EQ(many.ignored().get(), (std::vector{places[0], places[2]}));
  many.forgetIgnored();
  EXPECT_EQ(many.ignoredCount().get(), 0);
  many.frame(100, {});
  EXPECT_FALSE(many.ignoreOnlooker()) << "the person's own face never";
}

}  // namespace
}  // namespace sentrel
