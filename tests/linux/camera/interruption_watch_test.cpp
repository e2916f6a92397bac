// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/interruption_watch.h"

#include <gtest/gtest.h>

#include "linux/camera/frame_pacer.h"

namespace sentrel::test {
namespace {

using Time = InterruptionWatch::Time;
using std::chrono::milliseconds;

Time at(int ms) {
  return Time(std::chrono::seconds(100)) + milliseconds(ms);
}

TEST(InterruptionWatch, ReportsSilenceAndRepeats) {
  InterruptionWatch watch;
  EXPECT_FALSE(watch.nextTick());
  watch.open(at(0));
  EXPECT_EQ(watch.nextTick(), at(2000));
  EXPECT_FALSE(watch.goodFrame(at(1500)));
  EXPECT_FALSE(watch.tick(at(2000)));
  EXPECT_TRUE(watch.tick(at(3500)));
  EXPECT_FALSE(watch.tick(at(5499)));
  EXPECT_TRUE(watch.tick(at(5500)));
  EXPECT_TRUE(watch.goodFrame(at(5600)));
  EXPECT_FALSE(watch.goodFrame(at(5633)));
}

TEST(FramePacer, CountsFromTheHandOver) {
  FramePacer pacer;
  pacer.setPace(milliseconds(101));
  EXPECT_LE(pacer.due(), at(0));
  pacer.handedOn(at(7));
  EXPECT_EQ(pacer.due(), at(108));
  pacer.setPace(milliseconds(67));
  EXPECT_EQ(pacer.due(), at(74));
  pacer.reset();
  EXPECT_LE(pacer.due(), at(8));
}

}  // namespace
}  // namespace sentrel::test
