// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/frame_converter.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "stage/virtual_camera.h"

namespace sentrel::test {
namespace {

using Format = VirtualCamera::Format;

/// Left half blue, right half red.
std::vector<std::uint8_t> jpegOf(int width, int height) {
  std::vector<std::uint8_t> picture;
  for (int i = 0; i < width * height; ++i) {
    const bool left = i % width < width / 2;
    for (const int value : {left ? 200 : 40, 40, left ? 40 : 200, 255})
      picture.push_back(static_cast<std::uint8_t>(value));
  }
  std::vector<std::uint8_t> bytes(encodedCapacity(VirtualCamera::Format::mjpeg, width, height));
  bytes.resize(encodePicture(VirtualCamera::Format::mjpeg, picture.data(), width, height, bytes));
  return bytes;
}

class FrameConverterTest : public testing::Test {
 protected:
  FrameConverterTest() { frame.resize(640, 480); }

  bool reads(const std::vector<std::uint8_t>& bytes) {
    RawFrame picture;
    picture.format = {PixelFormat::mjpeg, 640, 480};
    picture.planes[0] = {bytes.data(), 0, bytes.size()};
    return converter.convert(picture, frame);
  }
  void expectPicture() {
    const auto at = [&](int x, int channel) { return frame.row(240)[x * 4 + channel]; };
    EXPECT_GT(at(310, 0), 150);
    EXPECT_LT(at(310, 2), 90);
    EXPECT_GT(at(330, 2), 150);
    EXPECT_LT(at(330, 0), 90);
    EXPECT_GT(at(330, 3), 250);
  }

  FrameConverter converter;
  Frame frame;
};

TEST_F(FrameConverterTest, DamagedPicturesAreRefusedAndTheNextOneIsRead) {
  const auto good = jpegOf(640, 480);
  ASSERT_TRUE(reads(good));

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
  EXPECT_TRUE(reads(good));
  expectPicture();
}

TEST_F(FrameConverterTest, MotionJpegMayLeaveOutItsUsualTables) {
  // The Huffman tables of the standard need not be sent with each picture of a stream.
  auto bytes = jpegOf(640, 480);
  for (std::size_t at = 2; at + 4 <= bytes.size() && bytes[at] == 0xFF && bytes[at + 1] != 0xDA;) {
    const std::size_t length = 2 + std::size_t{bytes[at + 2]} * 256 + bytes[at + 3];
    if (bytes[at + 1] == 0xC4) {
      const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(at);
      bytes.erase(from, from + static_cast<std::ptrdiff_t>(length));
    } else {
      at += length;
    }
  }
  ASSERT_TRUE(reads(bytes));
  expectPicture();
}

}  // namespace
}  // namespace sentrel::test
