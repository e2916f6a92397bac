// SPDX-License-Identifier: Apache-2.0
#include "vision/motion_gate.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <set>

namespace sentrel::vision {
namespace {

class MotionGateTest : public ::testing::Test {
 protected:
  void SetUp() override { resize(640, 480); }

  void resize(int width, int height) {
    frame_->resize(width, height);
    frame_->clear();
  }

  void paint(int x, int y, int side, std::uint8_t level) {
    for (int row = y; row < y + side; ++row) {
      std::uint8_t* line = frame_->data() + static_cast<std::ptrdiff_t>(row) * frame_->stride();
      std::fill_n(line + x * 4, side * 4, level);
    }
  }

  std::optional<std::size_t> next() {
    gate_->observe(*frame_, now_ += 100);
    return gate_->takeTile();
  }

  /// Scans every tile once.
  void settle() {
    std::set<std::size_t> scanned;
    for (std::size_t i = 0; i < tiles.size(); ++i) {
      const auto tile = next();
      ASSERT_TRUE(tile);
      scanned.insert(*tile);
    }
    ASSERT_EQ(scanned.size(), tiles.size());
  }

  std::unique_ptr<Frame> frame_ = std::make_unique<Frame>();
  std::unique_ptr<MotionGate> gate_ = std::make_unique<MotionGate>();
  std::int64_t now_ = 5000;
};

TEST_F(MotionGateTest, scansEveryTileOnceAndStillOnesAgainAfterAWhile) {
  settle();
  for (int i = 0; i < 10; ++i) EXPECT_FALSE(next());
  now_ += 5000;
  settle();
  EXPECT_FALSE(next());
}

TEST_F(MotionGateTest, scansWhereSomethingOfAFacesSizeChanged) {
  settle();
  paint(600, 20, 13, 4);  // a little light in the dark, in the tile at the top right alone
  EXPECT_EQ(next(), std::size_t{2});
  EXPECT_FALSE(next());
  paint(300, 160, 13, 60);  // in the middle one and in the one above it
  std::set<std::size_t> scanned{next().value(), next().value()};
  EXPECT_EQ(scanned, (std::set<std::size_t>{1, 4}));
  EXPECT_FALSE(next());
}

TEST_F(MotionGateTest, isNotMovedByNoiseNorBySlowChange) {
  std::mt19937 random(1);
  std::normal_distribution<double> noise(128, 12);
  const auto noisy = [&] {
    for (int i = 0; i < 640 * 480 * 4; ++i) frame_->data()[i] = static_cast<std::uint8_t>(noise(random));
  };
  noisy();
  settle();
  for (int i = 0; i < 10; ++i) {
    noisy();
    EXPECT_FALSE(next());
  }
}

TEST_F(MotionGateTest, scansTheWholeOnChangeOrWhenAskedOrAfterAWhile) {
  const auto whole = [&](bool wanted) {
    gate_->observe(*frame_, now_ += 100);
    return gate_->takeWhole(wanted);
  };
  EXPECT_TRUE(whole(false));
  EXPECT_FALSE(whole(false));
  EXPECT_TRUE(whole(true));
  paint(300, 160, 13, 60);
  EXPECT_TRUE(whole(false));
  for (int i = 0; i < 9; ++i) EXPECT_FALSE(whole(false));
  EXPECT_TRUE(whole(false));
}

TEST_F(MotionGateTest, motionComesBeforeWhatWasNeverScanned) {
  EXPECT_TRUE(next());  // the first tile
  paint(20, 20, 20, 200);
  EXPECT_EQ(next(), std::size_t{0});
}

TEST_F(MotionGateTest, aPlaceThatAlwaysMovesDoesNotKeepTheOthersFromTheirTurn) {
  std::set<std::size_t> scanned;
  int moving = 0;
  for (int i = 0; i < 40; ++i) {
    paint(20, 20, 20, i % 2 == 0 ? 200 : 50);  // in the first tile alone
    const auto tile = next();
    ASSERT_TRUE(tile);
    if (i >= 20) scanned.insert(*tile);  // everything was scanned once before
    moving += *tile == 0 ? 1 : 0;
  }
  EXPECT_EQ(scanned.size(), tiles.size());
  EXPECT_GE(moving, 15);
}

}  // namespace
}  // namespace sentrel::vision
