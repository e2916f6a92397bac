// SPDX-License-Identifier: Apache-2.0
#include "vision/noise_filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <tuple>

namespace sentrel::vision {
namespace {

constexpr int width = 96;
constexpr int height = 62;  // no whole number of blocks

class NoiseFilterTest : public ::testing::Test {
 protected:
  /// A flat picture of `level` with new noise; the square from (16, 16) to (48, 48) is `square`.
  const Frame& shown(int level, int square, double noise) {
    frame_.resize(width, height);
    std::normal_distribution<double> error(0, 1);
    for (int i = 0; i < width * height * 4; ++i) {
      const int x = i / 4 % width;
      const int y = i / 4 / width;
      const bool inside = x >= 16 && x < 48 && y >= 16 && y < 48;
      const double value = (inside ? square : level) + noise * error(random_);
      frame_.data()[i] = static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
    }
    return frame_;
  }
  /// Of what is below the square.
  static double deviation(const Frame& frame, int level) {
    double sum = 0;
    for (int y = 49; y < height; ++y) {
      for (int x = 0; x < width; ++x) sum += std::pow(frame.row(y)[x * 4 + 1] - level, 2);
    }
    return std::sqrt(sum / ((height - 49) * width));
  }

  Frame frame_;
  std::mt19937 random_{1};
  NoiseFilter filter_;
};

TEST_F(NoiseFilterTest, averagesStrongNoiseAndNothingElse) {
  for (const auto& [level, noise, filtered] : {std::tuple{110, 16.0, true},
                                               {110, 4.0, false},
                                               {14, 2.0, true},
                                               {14, 0.3, false},
                                               {14, 0.0, false}}) {
    SCOPED_TRACE(testing::Message() << level << " with noise " << noise);
    filter_.restart();
    const Frame* seen = nullptr;
    for (int i = 0; i < 6; ++i) seen = &filter_.steady(shown(level, level, noise));
    EXPECT_EQ(seen != &frame_, filtered);
    if (filtered) {
      EXPECT_LT(deviation(*seen, level), 0.75 * deviation(frame_, level));
    }
  }
}

TEST_F(NoiseFilterTest, showsWhatMovesAtOnceAndBearsFramesOfAnySize) {
  for (int i = 0; i < 6; ++i) (void)filter_.steady(shown(14, 14, 2));
  const Frame& seen = filter_.steady(shown(14, 28, 2));
  ASSERT_NE(&seen, &frame_);
  for (int x = 16; x < 48; ++x) EXPECT_EQ(seen.row(30)[x * 4], frame_.row(30)[x * 4]);
  for (const auto& [other, rows] : {std::pair{3, 1}, {200, 7}}) {
    frame_.resize(other, rows);
    EXPECT_EQ(filter_.steady(frame_).width(), other);
  }
}

}  // namespace
}  // namespace sentrel::vision
