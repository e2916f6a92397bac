// SPDX-License-Identifier: Apache-2.0
#include "vision/motion_gate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace sentrel::vision {
namespace {

using Places = std::set<std::pair<int, int>>;

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
  std::optional<Tile> next(int ms = 100) {
    gate_->observe(*frame_, now_ += ms, user_);
    return gate_->takeTile();
  }
  /// Those of the next frames, as long as there are any.
  std::vector<Tile> scanned() {
    std::vector<Tile> all;
    while (const auto tile = next(20)) all.push_back(*tile);
    return all;
  }
  static bool holds(const Tile& tile, int x, int y) {
    return x >= tile.x && x < tile.x + tile.width && y >= tile.y && y < tile.y + tile.height;
  }

  std::unique_ptr<Frame> frame_ = std::make_unique<Frame>();
  std::unique_ptr<MotionGate> gate_ = std::make_unique<MotionGate>();
  std::optional<Region> user_;
  std::int64_t now_ = 5000;
};

TEST_F(MotionGateTest, scansEveryTileOnceAndThenWhereSomethingOfAFacesSizeChanged) {
  Places places;
  for (int i = 0; i < 60; ++i) {
    if (const auto tile = next(5)) places.emplace(tile->x * 1000 + tile->y, tile->width);
  }
  EXPECT_EQ(places.size(), tiles.size());
  paint(600, 20, 13, 4);  // a little light in the dark
  auto few = scanned();
  EXPECT_LE(few.size(), 3U);
  EXPECT_TRUE(holds(few.at(0), 600, 20) && holds(few[0], 612, 32));
  paint(250, 100, 150, 60);
  few = scanned();
  for (const int corner : {250, 399}) {
    EXPECT_TRUE(std::ranges::any_of(few, [&](const Tile& tile) { return holds(tile, corner, 150); }))
        << corner;
  }
  now_ += 7000;
  EXPECT_EQ(scanned().size(), fullTiles) << "still ones again after a while";
}

TEST_F(MotionGateTest, enlargesOnceWhatHasComeToRest) {
  for (int i = 0; i < 80; ++i) (void)next(5);
  EXPECT_FALSE(gate_->hasBacklog());
  now_ += 20'000;
  for (int i = 0; i < 10; ++i) {
    paint(300, 160, 150, i % 2 == 0 ? 100 : 50);
    const auto tile = next(20);
    ASSERT_TRUE(tile);
    EXPECT_EQ(tile->width, Tile::fullWidth) << "not while it moves";
  }
  int enlarged = 0;
  for (int i = 0; i < 80; ++i) {
    const auto tile = next(20);
    enlarged += tile && tile->width < Tile::fullWidth ? 1 : 0;
  }
  EXPECT_GE(enlarged, 4);
  EXPECT_LE(enlarged, 12) << "only there";
}

TEST_F(MotionGateTest, aPlaceThatMovesComesFirstAndKeepsNoOtherFromItsTurn) {
  EXPECT_TRUE(next());
  Places others;
  int moving = 0;
  for (int i = 0; i < 40; ++i) {
    paint(20, 20, 20, i % 2 == 0 ? 200 : 50);  // in the first tile alone
    const auto tile = next();
    ASSERT_TRUE(tile);
    const bool there = holds(*tile, 30, 30);
    if (i == 0) {
      EXPECT_TRUE(there) << "before what was never scanned";
    }
    if (!there && tile->width == Tile::fullWidth) others.emplace(tile->x, tile->y);
    moving += there ? 1 : 0;
  }
  EXPECT_EQ(others.size(), fullTiles - 1);
  EXPECT_GE(moving, 12);
}

TEST_F(MotionGateTest, theUsersHabitsAreNoNewsButWhoComesThereIs) {
  user_ = Region{240, 120, 160, 160};
  paint(0, 0, 480, 60);
  // Hands on a keyboard, for half a minute.
  int scans = 0;
  for (int i = 0; i < 300; ++i) {
    paint(280, 400, 60, i % 7 < 4 ? 150 : 60);
    gate_->observe(*frame_, now_ += 100, user_);
    const bool coarse = gate_->takeWhole(false);
    const bool fine = gate_->takeTile().has_value();
    if (i >= 200) scans += (coarse ? 1 : 0) + (fine ? 1 : 0);
  }
  EXPECT_LE(scans, 40);
  EXPECT_GE(scans, 10) << "they are not forgotten";
  while (next()) {
  }
  paint(410, 300, 30, 200);  // over the shoulder
  const auto tile = next();
  ASSERT_TRUE(tile);
  EXPECT_TRUE(holds(*tile, 410, 300) && holds(*tile, 439, 329));
}

}  // namespace
}  // namespace sentrel::vision
