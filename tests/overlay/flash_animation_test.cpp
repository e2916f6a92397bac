// SPDX-License-Identifier: Apache-2.0
#include "overlay/flash_animation.h"

#include <gmock/gmock.h>

namespace sentrel {
namespace {

TEST(FlashAnimation, FollowsTheCurveAndGoesOnFromWhereItIs) {
  FlashAnimation flash;
  flash.start(1000);
  // Heights of the cubic Bezier (0.42,0)-(0.58,1): 0.12916 at a quarter, one half in the middle.
  const struct {
    std::int64_t ms;
    double alpha;
  } cases[] = {{0, 0},     {100, 0.3 * 0.12916}, {200, 0.15}, {300, 0.3 * 0.87084},
               {400, 0.3}, {600, 0.15},          {1200, 0.3}, {80'000'200, 0.15}};
  for (const auto& [ms, alpha] : cases) EXPECT_NEAR(flash.alphaAt(1000 + ms), alpha, 1e-4) << ms;
  flash.stop(1400);
  // (0,0)-(0.58,1): 0.6846 in the middle.
  const double left = flash.alphaAt(1550);
  EXPECT_NEAR(left, 0.3 * (1 - 0.6846), 1e-3);
  EXPECT_EQ(flash.alphaAt(1700), 0);
  flash.start(1550);
  EXPECT_DOUBLE_EQ(flash.alphaAt(1550), left);
  EXPECT_GT(flash.alphaAt(1570), left);
  EXPECT_NEAR(flash.alphaAt(1950), 0.3, 1e-6);
  EXPECT_LT(flash.alphaAt(2360), left) << "only the first rise begins there";
}

}  // namespace
}  // namespace sentrel
