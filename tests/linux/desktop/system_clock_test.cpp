// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/system_clock.h"

#include <gmock/gmock.h>

#include <chrono>

namespace sentrel {
namespace {

TEST(SystemClock, IgnoresASteppedWallClock) {
  constexpr std::int64_t hourMs = 3'600'000;
  std::int64_t wall = 1'700'000'000'000;
  std::int64_t boot = 5'000;
  const SystemClock clock([&] { return wall; }, [&] { return boot; });
  EXPECT_EQ(clock.nowMs(), 1'700'000'000'000);
  wall -= hourMs;
  boot += 7;
  EXPECT_EQ(clock.nowMs(), 1'700'000'000'007);
  wall += 5 * hourMs;
  EXPECT_EQ(clock.nowMs(), 1'700'000'000'007);
}

TEST(SystemClock, StartsAtTheWallClock) {
  const auto wall = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::system_clock::now().time_since_epoch());
  EXPECT_NEAR(static_cast<double>(SystemClock().nowMs()), static_cast<double>(wall.count()), 60'000);
}

}  // namespace
}  // namespace sentrel
