// SPDX-License-Identifier: Apache-2.0
#include "vision/motion_gate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>

namespace sentrel::vision {
namespace {

using Tiles = std::set<std::size_t>;

class MotionGateTest : public ::testing::Test {
 protected:
  MotionGateTest() {
    frame_->resize(640, 480);
    frame_->clear();
  }

  void paint(int x, int y, int side, std::uint8_t level) {
    for (int row = y; row < y + side; ++row) {
      std::uint8_t* line = frame_->data() + static_cast<std::ptrdiff_t>(row) * frame_->stride();
      std::fill_n(line + x * 4, side * 4, level);
    }
  }
  /// The tile that is scanned in the next frame.
  std::optional<std::size_t> next() {
    gate_->observe(*frame_, now_ += 100);
    return gate_->takeTile();
  }
  /// Those of the next frames, as long as there are any.
  Tiles scanned() {
    Tiles tiles;
    while (const auto tile = next()) EXPECT_TRUE(tiles.insert(*tile).second) << *tile << " twice";
    return tiles;
  }

  std::unique_ptr<Frame> frame_ = std::make_unique<Frame>();
  std::unique_ptr<MotionGate> gate_ = std::make_unique<MotionGate>();
  std::int64_t now_ = 5000;
};

TEST_F(MotionGateTest, scansEveryTileOnceAndThenWhereSomethingOfAFacesSizeChanged) {
  EXPECT_EQ(scanned().size(), tiles.size());
  EXPECT_FALSE(next());
  paint(600, 20, 13, 4);  // a little light in the dark, in the tile at the top right alone
  EXPECT_EQ(scanned(), (Tiles{2}));
  paint(300, 160, 13, 60);  // in the middle one and in the one above it
  EXPECT_EQ(scanned(), (Tiles{1, 4}));
  now_ += 5000;
  EXPECT_EQ(scanned().size(), tiles.size()) << "still ones again after a while";
}

TEST_F(MotionGateTest, isNotMovedByNoise) {
  std::mt19937 random(1);
  std::normal_distribution<double> noise(128, 12);
  Tiles scanned;
  for (std::size_t i = 0; i < tiles.size() + 10; ++i) {
    std::generate_n(frame_->data(), 640 * 480 * 4, [&] { return static_cast<std::uint8_t>(noise(random)); });
    const auto tile = next();
    ASSERT_EQ(tile.has_value(), i < tiles.size());
    if (tile) scanned.insert(*tile);
  }
  EXPECT_EQ(scanned.size(), tiles.size());
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

TEST_F(MotionGateTest, aPlaceThatMovesComesFirstAndKeepsNoOtherFromItsTurn) {
  EXPECT_TRUE(next());
  Tiles scanned;
  int moving = 0;
  for (int i = 0; i < 40; ++i) {
    paint(20, 20, 20, i % 2 == 0 ? 200 : 50);  // in the first tile alone
    const auto tile = next();
    ASSERT_TRUE(tile);
    if (i == 0) {
      EXPECT_EQ(*tile, 0U) << "before what was never scanned";
    }
    if (i >= 20) scanned.insert(*tile);  // everything was scanned once before
    moving += *tile == 0 ? 1 : 0;
  }
  EXPECT_EQ(scanned.size(), tiles.size());
  EXPECT_GE(moving, 15);
}

}  // namespace
}  // namespace sentrel::vision
