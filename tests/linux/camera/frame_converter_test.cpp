// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/frame_converter.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "stage/virtual_camera.h"

namespace sentrel::test {
namespace {

/// Left half blue, right half red.
std::vector<std::uint8_t> jpegOf(int width, int height) {
  std::vector<std::uint8_t> picture;
  for (int i = 0; i < width * height; ++i) {
    const bool left = i % width < width / 2;
    for (const int value : {left ? 200 : 40, 40, left ? 40 : 200, 255})
      picture.push_back(static_cast<std::uint8_t>(value));
  }
  std::vector<std::uint8_t> bytes(encodedCapacity(PixelFormat::mjpeg, width, height));
  bytes.resize(encodePicture(PixelFormat::mjpeg, picture.data(), width, height, bytes));
  return bytes;
}

TEST(FrameConverter, ReadsWhatCamerasSendAndOutlivesWhatIsDamaged) {
  const std::vector<std::uint8_t> good = jpegOf(640, 480);
  FrameConverter converter;
  Frame frame;
  frame.resize(640, 480);
  const auto reads = [&](const std::vector<std::uint8_t>& bytes) {
    RawFrame picture;
    picture.format = {PixelFormat::mjpeg, 640, 480};
    picture.planes[0] = {bytes.data(), 0, bytes.size()};
    return converter.convert(picture, frame);
  };
  for (const std::size_t length : {std::size_t{1}, std::size_t{2}, std::size_t{200}, good.size() / 2}) {
    EXPECT_FALSE(reads({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length)})) << length;
    EXPECT_TRUE(reads(good));
  }
  EXPECT_FALSE(reads(jpegOf(320, 240))) << "a picture of another size than agreed";
  EXPECT_TRUE(reads({good.begin(), good.end() - 2})) << "cameras forget the end mark";

  // Whatever the bytes say, it neither crashes nor stays broken.
  std::minstd_rand random(3);
  for (int round = 0; round < 300; ++round) {
    auto spoilt = good;
    for (int i = 0; i <= round % 8; ++i)
      spoilt.at(random() % spoilt.size()) = static_cast<std::uint8_t>(random());
    static_cast<void>(reads(spoilt));
  }

  // The Huffman tables of the standard need not be sent with each picture of a stream.
  auto bare = good;
  for (auto at = bare.begin() + 2; at[1] != 0xDA;) {
    const auto next = at + 2 + at[2] * 256 + at[3];
    at = at[1] == 0xC4 ? bare.erase(at, next) : next;
  }
  ASSERT_LT(bare.size(), good.size());
  ASSERT_TRUE(reads(bare));
  for (const bool left : {true, false}) {
    const std::uint8_t* pixel = frame.row(240) + (left ? 310 : 330) * 4;
    EXPECT_NEAR(pixel[0], left ? 200 : 40, 50);
    EXPECT_NEAR(pixel[2], left ? 40 : 200, 50);
    EXPECT_EQ(pixel[3], 255);
  }
}

}  // namespace
}  // namespace sentrel::test
