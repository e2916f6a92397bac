// SPDX-License-Identifier: Apache-2.0
#include "overlay/flash_animation.h"

#include <gmock/gmock.h>

namespace sentrel {
namespace {

TEST(FlashAnimation, FollowsTheCurve) {
  FlashAnimation flash;
  flash.start(1000);
  // Heights of the cubic Bezier (0.42,0)-(0.58,1): 0.12916 at a quarter, one half in the middle.
  const struct {
    std::int64_t ms;
    double alpha;
  } cases[] = {
      {0, 0},   {100, 0.3 * 0.12916}, {200, 0.15}, {300, 0.3 * 0.87084}, {400, 0.3}, {600, 0.15},
      {800, 0}, {1000, 0.15},         {1200, 0.3}, {80'000'200, 0.15},
  };
  for (const auto& [ms, alpha] : cases) EXPECT_NEAR(flash.alphaAt(1000 + ms), alpha, 1e-4) << ms;

  flash.stop(1200);
  // (0,0)-(0.58,1): 0.6846 in the middle.
  EXPECT_NEAR(flash.alphaAt(1350), 0.15 * (1 - 0.6846), 1e-3);
  EXPECT_EQ(flash.alphaAt(1500), 0);
  EXPECT_EQ(flash.alphaAt(900'000), 0);
}

TEST(FlashAnimation, RestartsFromWhereItIs) {
  FlashAnimation flash;
  flash.start(0);
  flash.stop(400);
  const double left = flash.alphaAt(500);
  flash.start(500);
  EXPECT_DOUBLE_EQ(flash.alphaAt(500), left);
  EXPECT_GT(flash.alphaAt(520), left);
  EXPECT_NEAR(flash.alphaAt(900), 0.3, 1e-6);
  EXPECT_NEAR(flash.alphaAt(1300), 0, 1e-6);
  EXPECT_LT(flash.alphaAt(1310), left) << "only the first rise begins there";
}

TEST(FlashAnimation, ReducedMotionRisesOnceToHalf) {
  FlashAnimation flash;
  flash.start(0, FlashAnimation::Motion::reduced);
  EXPECT_NEAR(flash.alphaAt(200), 0.075, 1e-6);
  EXPECT_FALSE(flash.isSettledAt(399));
  EXPECT_TRUE(flash.isSettledAt(400));
  EXPECT_NEAR(flash.alphaAt(90'000), 0.15, 1e-6);
  flash.stop(90'000);
  EXPECT_EQ(flash.alphaAt(90'300), 0);
}

}  // namespace
}  // namespace sentrel
