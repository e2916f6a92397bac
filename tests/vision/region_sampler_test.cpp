// SPDX-License-Identifier: Apache-2.0
#include "vision/region_sampler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sentrel::vision {
namespace {

constexpr ValueRange bytes{0.0F, 255.0F};

/// Red counts the columns, green the rows, blue is constant.
std::unique_ptr<Frame> ramp(int width, int height) {
  auto frame = std::make_unique<Frame>();
  frame->resize(width, height);
  for (int i = 0; i < width * height; ++i) {
    std::uint8_t* pixel = frame->data() + static_cast<std::ptrdiff_t>(i) * 4;
    pixel[0] = 77;
    pixel[1] = static_cast<std::uint8_t>(i / width);
    pixel[2] = static_cast<std::uint8_t>(i % width);
    pixel[3] = 255;
  }
  return frame;
}

/// What was sampled of a frame.
struct Sampled {
  Sampled(const Frame& frame, const Region& region, int columns, int rows, ValueRange range = bytes)
      : width(columns), values(static_cast<std::size_t>(columns * rows) * 3, -1000) {
    RegionSampler().sample(frame, region, columns, rows, range, values);
  }
  Sampled(const Frame& frame, const TurnedSquare& square, int side)
      : width(side), values(static_cast<std::size_t>(side * side) * 3, -1000) {
    RegionSampler::sample(frame, square, side, bytes, values);
  }
  void expect(int x, int y, std::array<double, 3> colours) const {
    for (std::size_t c = 0; c < 3; ++c)
      EXPECT_NEAR(values[static_cast<std::size_t>(y * width + x) * 3 + c], colours.at(c), 1e-3)
          << x << " " << y;
  }
  void expectBlack() const {
    for (const float value : values) EXPECT_EQ(value, 0);
  }

  int width;
  std::vector<float> values;
};

TEST(RegionSampler, takesPixelsMeansAndInterpolatedValues) {
  const auto frame = ramp(64, 48);
  Sampled(*frame, Region{10, 20, 16, 8}, 16, 8).expect(3, 2, {13, 22, 77});
  // Shrunk: the mean over what the output pixel covers, columns 0..2.5 and rows 0..3 for the first.
  const Sampled small(*frame, Region{0, 0, 40, 48}, 16, 16);
  small.expect(0, 0, {(0 + 1 + 2 * 0.5) / 2.5, 1, 77});
  small.expect(15, 15, {(37 * 0.5 + 38 + 39) / 2.5, 46, 77});
  // Enlarged: linear between pixel centres.
  Sampled(*frame, Region{10, 10, 8, 8}, 32, 32)
      .expect(16, 16, {10 + 16.5 / 4 - 0.5, 10 + 16.5 / 4 - 0.5, 77});
}

TEST(RegionSampler, readsWhatIsEnlargedInTheLargerImage) {
  const auto frame = ramp(64, 48);
  Frame& larger = frame->resizeLarger(96, 72);
  std::copy_n(ramp(96, 72)->data(), larger.stride() * larger.height(), larger.data());
  // Half a pixel of the frame is three quarters of one there.
  const Sampled enlarged(*frame, Region{10, 20, 16, 8}, 24, 12);
  enlarged.expect(0, 0, {15, 30, 77});
  enlarged.expect(23, 11, {38, 41, 77});
  Sampled(*frame, TurnedSquare{20, 30, 14, 0}, 21).expect(10, 10, {29.5, 44.5, 77});
  // What is not enlarged needs no more pixels than the frame's.
  Sampled(*frame, Region{10, 20, 16, 8}, 16, 8).expect(3, 2, {13, 22, 77});
  frame->resize(64, 48);
  EXPECT_EQ(frame->larger(), nullptr) << "it belonged to the picture before";
}

TEST(RegionSampler, isBlackBeyondTheFrame) {
  const auto frame = ramp(64, 48);
  const Sampled sampled(*frame, Region{-32, -24, 128, 96}, 64, 48, {-1, 1});
  for (const auto& [x, y] : {std::pair{0, 0}, {63, 47}, {15, 30}}) sampled.expect(x, y, {-1, -1, -1});
  EXPECT_NEAR(sampled.values[(12 * 64 + 16) * 3 + 2], 77 / 127.5 - 1, 1e-5);
  Sampled(*frame, Region{1e6, 1e6, 10, 10}, 8, 8).expectBlack();
  Sampled(*ramp(1, 1), Region{-4, -4, 9, 9}, 9, 9).expect(4, 4, {0, 0, 77});
}

TEST(RegionSampler, turnsSquares) {
  const auto frame = ramp(100, 100);
  const Sampled upright(*frame, TurnedSquare{50.5, 40.5, 21, 0}, 21);
  upright.expect(10, 10, {50, 40, 77});
  upright.expect(20, 0, {60, 30, 77});
  // A quarter turn clockwise: the square's right side is the frame's lower side.
  Sampled(*frame, TurnedSquare{50.5, 40.5, 21, std::numbers::pi / 2}, 21).expect(20, 10, {50, 50, 77});
  Sampled(*frame, TurnedSquare{1e9, -1e9, 21, 1}, 21).expectBlack();
  Sampled(*frame, TurnedSquare{std::nan(""), 5, 21, 0}, 21).expectBlack();
}

}  // namespace
}  // namespace sentrel::vision
