// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/frame_converter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "linux/camera/frame_memory.h"
#include "stage/picture_encoder.h"

namespace sentrel::test {
namespace {

using Format = VirtualCamera::Format;

/// Left half blue, right half red, a green band of an eighth at both sides.
std::vector<std::uint8_t> scene(int width, int height) {
  std::vector<std::uint8_t> pixels;
  for (int i = 0; i < width * height; ++i) {
    const int x = i % width;
    const bool edge = x < width / 8 || x >= width - width / 8;
    const bool left = x < width / 2;
    pixels.push_back(!edge && left ? 200 : 40);
    pixels.push_back(edge ? 200 : 40);
    pixels.push_back(!edge && !left ? 200 : 40);
    pixels.push_back(255);
  }
  return pixels;
}

std::vector<std::uint8_t> jpegOf(int width, int height) {
  std::vector<std::uint8_t> bytes(encodedCapacity(Format::mjpeg, width, height));
  const auto picture = scene(width, height);
  bytes.resize(encodePicture(Format::mjpeg, picture.data(), width, height, bytes));
  return bytes;
}

RawPicture raw(PixelFormat pixels, int width, int height, const std::vector<std::uint8_t>& bytes,
               int stride) {
  RawPicture picture;
  picture.format = {pixels, width, height};
  picture.planes[0] = {bytes.data(), stride, bytes.size()};
  return picture;
}

/// Whether the pixel's strongest channel (0 blue, 1 green, 2 red) is this one.
bool is(const Frame& frame, int x, int y, int channel) {
  const std::uint8_t* pixel = frame.row(y) + static_cast<std::ptrdiff_t>(x) * 4;
  return std::max_element(pixel, pixel + 3) - pixel == channel && pixel[channel] > 150 && pixel[3] > 250;
}

TEST(FrameConverter, AnotherShapeIsCutAboutItsCentre) {
  struct Case {
    int width;
    int height;
    bool edgeSeen;
  };
  // 640x480 shows three quarters of a 16:9 picture, so its eighths at both sides are gone.
  for (const Case& one :
       {Case{640, 480, true}, Case{320, 240, true}, Case{1280, 960, true}, Case{1280, 720, false},
        Case{640, 360, false}, Case{1920, 1080, false}, Case{480, 640, true}}) {
    for (const bool compressed : {false, true}) {
      SCOPED_TRACE(testing::Message() << one.width << "x" << one.height << (compressed ? " JPEG" : " YUY2"));
      std::vector<std::uint8_t> bytes = jpegOf(one.width, one.height);
      RawPicture picture = raw(PixelFormat::mjpeg, one.width, one.height, bytes, 0);
      if (!compressed) {
        bytes.resize(encodedCapacity(Format::yuy2, one.width, one.height));
        encodePicture(Format::yuy2, scene(one.width, one.height).data(), one.width, one.height, bytes);
        picture = raw(PixelFormat::yuy2, one.width, one.height, bytes, one.width * 2);
      }
      FrameConverter converter;
      Frame frame(frameMemory());
      frame.resize(640, 480);
      ASSERT_TRUE(converter.convert(picture, frame));
      EXPECT_TRUE(is(frame, 310, 240, 0));
      EXPECT_TRUE(is(frame, 330, 240, 2));
      EXPECT_EQ(is(frame, 4, 3, 1), one.edgeSeen);
      EXPECT_EQ(is(frame, 635, 476, 1), one.edgeSeen);
    }
  }
}

TEST(FrameConverter, DamagedPicturesAreRefusedAndTheNextOneIsRead) {
  const auto good = jpegOf(640, 480);
  FrameConverter converter;
  Frame frame(frameMemory());
  frame.resize(640, 480);
  const auto reads = [&](const std::vector<std::uint8_t>& bytes) {
    return converter.convert(raw(PixelFormat::mjpeg, 640, 480, bytes, 0), frame);
  };
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
  EXPECT_TRUE(is(frame, 310, 240, 0));
}

TEST(FrameConverter, MotionJpegMayLeaveOutItsUsualTables) {
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
  FrameConverter converter;
  Frame frame(frameMemory());
  frame.resize(640, 480);
  ASSERT_TRUE(converter.convert(raw(PixelFormat::mjpeg, 640, 480, bytes, 0), frame));
  EXPECT_TRUE(is(frame, 310, 240, 0));
}

}  // namespace
}  // namespace sentrel::test
