// SPDX-License-Identifier: Apache-2.0
#include "vision/region_sampler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>

namespace sentrel::vision {
namespace {

constexpr ValueRange bytes{0.0F, 255.0F};

/// Red counts the columns, green the rows, blue is constant.
std::unique_ptr<Frame> ramp(int width, int height) {
  auto frame = std::make_unique<Frame>();
  frame->resize(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      std::uint8_t* pixel = frame->data() + static_cast<std::ptrdiff_t>(y) * frame->stride() + x * 4;
      pixel[0] = 77;
      pixel[1] = static_cast<std::uint8_t>(y);
      pixel[2] = static_cast<std::uint8_t>(x);
      pixel[3] = 255;
    }
  }
  return frame;
}

struct Pixel {
  float red, green, blue;
};

Pixel pixel(const std::vector<float>& values, int width, int x, int y) {
  const std::size_t at = static_cast<std::size_t>(y * width + x) * 3;
  return {values[at], values[at + 1], values[at + 2]};
}

std::vector<float> cut(const Frame& frame, const Region& region, int width, int height,
                       ValueRange range = bytes) {
  std::vector<float> output(static_cast<std::size_t>(width * height) * 3, -1000);
  RegionSampler sampler;
  sampler.sample(frame, region, width, height, range, output);
  return output;
}

TEST(RegionSampler, takesPixelsMeansAndInterpolatedValues) {
  const auto frame = ramp(64, 48);
  // One to one: the very pixels, red first.
  const auto same = cut(*frame, {10, 20, 16, 8}, 16, 8);
  EXPECT_FLOAT_EQ(pixel(same, 16, 3, 2).red, 13);
  EXPECT_FLOAT_EQ(pixel(same, 16, 3, 2).green, 22);
  EXPECT_FLOAT_EQ(pixel(same, 16, 3, 2).blue, 77);
  // Shrunk: the mean over what the output pixel covers, columns 0..2.5 and rows 0..3 for the first.
  const auto small = cut(*frame, {0, 0, 40, 48}, 16, 16);
  EXPECT_NEAR(pixel(small, 16, 0, 0).red, (0 + 1 + 2 * 0.5) / 2.5, 1e-4);
  EXPECT_NEAR(pixel(small, 16, 0, 0).green, 1, 1e-4);
  EXPECT_NEAR(pixel(small, 16, 15, 15).green, 46, 1e-4);
  // Enlarged: linear between pixel centres.
  const auto large = cut(*frame, {10, 10, 8, 8}, 32, 32);
  EXPECT_NEAR(pixel(large, 32, 16, 0).red, 10 + 16.5 / 4 - 0.5, 1e-4);
  EXPECT_NEAR(pixel(large, 32, 0, 16).green, 10 + 16.5 / 4 - 0.5, 1e-4);
}

TEST(RegionSampler, isBlackBeyondTheFrame) {
  const auto frame = ramp(64, 48);
  const auto values = cut(*frame, {-32, -24, 128, 96}, 64, 48, {-1, 1});
  EXPECT_FLOAT_EQ(pixel(values, 64, 0, 0).blue, -1);
  EXPECT_FLOAT_EQ(pixel(values, 64, 63, 47).blue, -1);
  EXPECT_FLOAT_EQ(pixel(values, 64, 15, 30).blue, -1);
  EXPECT_NEAR(pixel(values, 64, 16, 12).blue, 77 / 127.5 - 1, 1e-5);
  // Nowhere near the frame, and frames of a single pixel.
  for (const float value : cut(*frame, {1e6, 1e6, 10, 10}, 8, 8)) EXPECT_FLOAT_EQ(value, 0);
  const auto dot = ramp(1, 1);
  EXPECT_FLOAT_EQ(pixel(cut(*dot, {-4, -4, 9, 9}, 9, 9), 9, 4, 4).blue, 77);
}

TEST(RegionSampler, turnsSquares) {
  const auto frame = ramp(100, 100);
  constexpr int side = 21;
  std::vector<float> output(side * side * 3);
  RegionSampler::sample(*frame, {50.5, 40.5, 21, 0}, side, bytes, output);
  EXPECT_NEAR(pixel(output, side, 10, 10).red, 50, 1e-3);
  EXPECT_NEAR(pixel(output, side, 20, 0).red, 60, 1e-3);
  EXPECT_NEAR(pixel(output, side, 20, 0).green, 30, 1e-3);
  // A quarter turn clockwise: the square's right side is the frame's lower side.
  RegionSampler::sample(*frame, {50.5, 40.5, 21, std::numbers::pi / 2}, side, bytes, output);
  EXPECT_NEAR(pixel(output, side, 20, 10).red, 50, 1e-3);
  EXPECT_NEAR(pixel(output, side, 20, 10).green, 50, 1e-3);
  // Far outside, and values that are no numbers.
  RegionSampler::sample(*frame, {1e9, -1e9, 21, 1}, side, bytes, output);
  EXPECT_TRUE(std::all_of(output.begin(), output.end(), [](float value) { return value == 0; }));
  RegionSampler::sample(*frame, {std::nan(""), 5, 21, 0}, side, bytes, output);
  EXPECT_TRUE(std::all_of(output.begin(), output.end(), [](float value) { return value == 0; }));
}

}  // namespace
}  // namespace sentrel::vision
