// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "vision/neutral_pitch.h"
#include "vision/time_smoother.h"

namespace sentrel::vision {
namespace {

constexpr double degree = std::numbers::pi / 180;

class NeutralPitchTest : public ::testing::Test {
 protected:
  /// Lets `seconds` pass at ten frames a second; the neutral pitch at their end, in degrees.
  double look(double seconds, double yaw, double pitch) {
    double neutral = 0;
    for (int i = 0; i < seconds * 10; ++i)
      neutral = pitch_.update({yaw * degree, pitch * degree}, now_ += 100) / degree;
    return neutral;
  }

  NeutralPitch pitch_;
  std::int64_t now_ = 1000000;
};

TEST_F(NeutralPitchTest, becomesWhatAPersonDoesMostOfAMinute) {
  EXPECT_EQ(look(25, 0, -10), 0);
  EXPECT_NEAR(look(10, 0, -10), -10, 0.5);
  EXPECT_NEAR(look(20, 0, 5), -10, 0.5);  // the minute still holds more of the other
  EXPECT_NEAR(look(20, 0, 5), 5, 0.5);
  pitch_.restart();
  EXPECT_EQ(look(1, 0, -10), 0);
}

TEST_F(NeutralPitchTest, isBoundedAndBlindToLookingAway) {
  EXPECT_NEAR(look(70, 0, -19), -12, 1e-9);
  look(70, 0, 0);
  EXPECT_EQ(look(100, 40, -10), 0);
  EXPECT_EQ(look(100, 0, -30), 0);
}

TEST_F(NeutralPitchTest, countsTimeAndNotFrames) {
  for (int i = 0; i < 2000; ++i) (void)pitch_.update({0, -10 * degree}, now_ += 1);
  EXPECT_EQ(look(1, 0, -10), 0);
}

TEST(TimeSmoother, followsAStepInTimeWhateverTheRate) {
  const double expected[] = {1 - std::exp(-300.0 / 600), 1 - std::exp(-300.0 / 350),
                             1 - std::exp(-300.0 / 150), 1 - std::exp(-300.0 / 60), 1};
  for (int level = 1; level <= 5; ++level) {
    for (const int step : {10, 30, 100, 300}) {
      TimeSmoother smoother;
      EXPECT_EQ(smoother.update(0, 0, smoothingConstantMs(level)), 0);
      double value = 0;
      for (int now = step; now <= 300; now += step)
        value = smoother.update(1, now, smoothingConstantMs(level));
      EXPECT_NEAR(value, expected[level - 1], 1e-9) << level << " " << step;
    }
  }
  EXPECT_EQ(smoothingConstantMs(0), smoothingConstantMs(1));
  EXPECT_EQ(smoothingConstantMs(9), 0);
}

TEST(TimeSmoother, startsAnewWhenTimeRunsBackOrItIsTold) {
  TimeSmoother smoother;
  (void)smoother.update(10, 1000, 600);
  EXPECT_EQ(smoother.update(20, 500, 600), 20);
  smoother.restart();
  EXPECT_EQ(smoother.update(30, 600, 600), 30);
}

}  // namespace
}  // namespace sentrel::vision
