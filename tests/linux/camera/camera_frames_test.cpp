// SPDX-License-Identifier: Apache-2.0
//
// What is made of the buffers that a camera gives: how they are judged and read.
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "linux/camera/frame_converter.h"
#include "linux/camera/pipewire_headers.h"
#include "linux/camera/stream_format.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {
namespace {

constexpr int width = 64;
constexpr int height = 48;

/// A buffer with one block a plane, as PipeWire would hand it over, that a case then spoils.
struct TestBuffer {
  std::vector<std::uint8_t> memory = std::vector<std::uint8_t>(static_cast<std::size_t>(width) * height * 4);
  std::array<spa_chunk, 3> chunks{};
  std::array<spa_data, 3> datas{};
  spa_meta_header header{};
  spa_meta meta{.type = SPA_META_Header, .size = sizeof header, .data = &header};
  spa_buffer buffer{.n_metas = 1, .n_datas = 0, .metas = &meta, .datas = datas.data()};

  void addBlock(std::uint32_t size, std::int32_t stride) {
    const auto index = buffer.n_datas++;
    chunks.at(index) = {.offset = 0, .size = size, .stride = stride, .flags = 0};
    datas.at(index).maxsize = size;
    datas.at(index).data = memory.data();
    datas.at(index).chunk = &chunks.at(index);
  }
  void addChroma() {
    for (int i = 0; i < 2; ++i) addBlock(width * height / 4, width / 2);
  }
};

TEST(BufferCheck, FindsThePlanesOrRefuses) {
  constexpr std::uint32_t yuy2Bytes = width * height * 2;
  constexpr std::uint32_t planarBytes = width * height * 3 / 2;
  struct Case {
    const char* name;
    bool good;
    void (*spoil)(TestBuffer&) = [](TestBuffer&) {};
    PixelFormat pixels = PixelFormat::yuy2;
    std::uint32_t bytes = yuy2Bytes;
    std::int32_t stride = width * 2;
  };
  const auto intact = [](TestBuffer&) {};
  const Case cases[] = {
      {"packed", true},
      {"empty", false, [](TestBuffer& b) { b.chunks[0].size = 0; }},
      {"more than there is", false, [](TestBuffer& b) { b.chunks[0].size += 1; }},
      {"beyond the end", false, [](TestBuffer& b) { b.chunks[0].offset = 4; }},
      {"offset and size overflow", false, [](TestBuffer& b) { b.chunks[0].offset = 0xFFFFFFFF; }},
      {"chunk marked", false, [](TestBuffer& b) { b.chunks[0].flags = SPA_CHUNK_FLAG_CORRUPTED; }},
      {"header marked", false, [](TestBuffer& b) { b.header.flags = SPA_META_HEADER_FLAG_CORRUPTED; }},
      {"not mapped", false, [](TestBuffer& b) { b.datas[0].data = nullptr; }},
      {"no block at all", false, [](TestBuffer& b) { b.buffer.n_datas = 0; }},
      {"no header", true, [](TestBuffer& b) { b.buffer.n_metas = 0; }},
      {"no stride means packed", true, intact, PixelFormat::yuy2, yuy2Bytes, 0},
      {"unpadded last row", true, intact, PixelFormat::yuy2, (width * 2 + 16) * height - 16, width * 2 + 16},
      {"padding beyond the end", false, intact, PixelFormat::yuy2, yuy2Bytes, width * 2 + 4},
      {"rows overlap", false, intact, PixelFormat::yuy2, yuy2Bytes, width * 2 - 2},
      {"upside down", false, intact, PixelFormat::yuy2, yuy2Bytes, -width * 2},
      {"a byte of NV12 short", false, intact, PixelFormat::nv12, planarBytes - 1, width},
      {"a byte of I420 short", false, intact, PixelFormat::i420, planarBytes - 1, width},
      {"a byte of BGRx short", false, intact, PixelFormat::bgrx, width * height * 4 - 1, width * 4},
      {"RGB without a stride", true, intact, PixelFormat::rgb, width * height * 3, 0},
      {"padded RGB", true, intact, PixelFormat::rgb, (width * 3 + 4) * height - 4, width * 3 + 4},
      {"a byte of padded RGB short", false, intact, PixelFormat::rgb, (width * 3 + 4) * height - 5,
       width * 3 + 4},
      {"planes in blocks of their own", true, [](TestBuffer& b) { b.addChroma(); }, PixelFormat::i420,
       width * height, width},
      {"a byte of one short", false, [](TestBuffer& b) { b.addChroma(), b.chunks[2].size -= 1; },
       PixelFormat::i420, width * height, width},
      {"MJPEG of any size", true, intact, PixelFormat::mjpeg, 7, 0},
  };
  for (const Case& one : cases) {
    TestBuffer buffer;
    buffer.addBlock(one.bytes, one.stride);
    one.spoil(buffer);
    EXPECT_EQ(BufferCheck().check(buffer.buffer, {one.pixels, width, height}).has_value(), one.good)
        << one.name;
  }
}

TEST(BufferCheck, AClockThatIsSetBackCostsOneFrame) {
  TestBuffer buffer;
  buffer.addBlock(width * height * 2, width * 2);
  BufferCheck check;
  for (const auto& [nanoseconds, good] :
       {std::pair{200, true}, {200, true}, {100, false}, {101, true}, {0, true}}) {
    buffer.header.pts = nanoseconds;
    EXPECT_EQ(check.check(buffer.buffer, {PixelFormat::yuy2, width, height}).has_value(), good)
        << nanoseconds;
  }
}

/// Blue counts the columns and green the rows, from 0 to 250; each row has so many pixels more.
std::vector<std::uint8_t> encodedScene(const VideoFormat& format, int padding = 0) {
  const int columns = format.width + padding;
  std::vector<std::uint8_t> scene;
  for (int y = 0; y < format.height; ++y) {
    for (int x = 0; x < columns; ++x) {
      for (const int value : {x * 250 / format.width, y * 250 / format.height, 100, 255})
        scene.push_back(static_cast<std::uint8_t>(value));
    }
  }
  std::vector<std::uint8_t> bytes(encodedCapacity(format.pixels, columns, format.height));
  bytes.resize(encodePicture(format.pixels, scene.data(), columns, format.height, bytes));
  return bytes;
}

TEST(FrameConverter, KeepsWhatALargerPictureShowsInTheMiddle) {
  constexpr auto yuy2 = PixelFormat::yuy2;
  const struct {
    VideoFormat format;
    int padding;  // pixels from row to row beyond the picture
    int largerWidth;
    int largerHeight;  // 0: none
  } cases[] = {
      {{yuy2, 640, 480}, 0, 0, 0},
      {{yuy2, 848, 480}, 0, 0, 0},  // wider, and no larger
      {{yuy2, 320, 240}, 0, 0, 0},
      {{yuy2, 1280, 720}, 16, 960, 720},
      {{PixelFormat::nv12, 1280, 720}, 32, 960, 720},
      {{PixelFormat::i420, 1280, 720}, 32, 960, 720},
      {{PixelFormat::mjpeg, 1280, 720}, 0, 960, 720},
      {{PixelFormat::mjpeg, 1920, 1080}, 0, 720, 540},  // decoded at half its size
      {{PixelFormat::bgrx, 1280, 720}, 16, 960, 720},
      {{PixelFormat::rgbx, 640, 480}, 0, 0, 0},
      {{PixelFormat::bgr, 640, 480}, 2, 0, 0},
      {{PixelFormat::rgb, 1366, 768}, 2, 1024, 768},
      {{yuy2, 720, 1280}, 0, 720, 540},
      {{PixelFormat::nv12, 1366, 768}, 0, 1024, 768},  // begins at an odd column
      {{yuy2, 2560, 1440}, 0, 0, 0},                   // more than anybody needs
  };
  FrameConverter converter;
  Frame frame;
  frame.resize(640, 480);
  for (const auto& [format, padding, largerWidth, largerHeight] : cases) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(format.pixels) << " " << format.width << "x"
                                    << format.height << "+" << padding);
    const auto bytes = encodedScene(format, padding);
    RawFrame picture = encodedFrame({format.pixels, format.width + padding, format.height}, bytes);
    picture.format = format;
    ASSERT_TRUE(converter.convert(picture, frame));
    const Frame* larger = frame.larger();
    ASSERT_EQ(larger != nullptr, largerHeight > 0);
    if (larger != nullptr) {
      EXPECT_EQ(larger->width(), largerWidth);
      EXPECT_EQ(larger->height(), largerHeight);
    }
    // Both show the middle of the picture, cut to their shape.
    const double across = std::min(1.0, format.height * 4.0 / 3 / format.width);
    const double down = std::min(1.0, format.width * 0.75 / format.height);
    for (const Frame* seen : {static_cast<const Frame*>(&frame), larger}) {
      if (seen == nullptr) continue;
      for (const double at : {0.05, 0.5, 0.95}) {
        const std::uint8_t* pixel =
            seen->row(static_cast<int>(at * seen->height())) + static_cast<int>(at * seen->width()) * 4;
        EXPECT_NEAR(pixel[0], 250 * (0.5 + (at - 0.5) * across), 5) << at;
        EXPECT_NEAR(pixel[1], 250 * (0.5 + (at - 0.5) * down), 5) << at;
        EXPECT_NEAR(pixel[2], 100, 5) << at;
      }
    }
  }
}

TEST(FrameConverter, ReadsWhatCamerasSendAndOutlivesWhatIsDamaged) {
  const std::vector<std::uint8_t> good = encodedScene({PixelFormat::mjpeg, 640, 480});
  FrameConverter converter;
  Frame frame;
  frame.resize(640, 480);
  const auto reads = [&](const std::vector<std::uint8_t>& bytes) {
    return converter.convert(encodedFrame({PixelFormat::mjpeg, 640, 480}, bytes), frame);
  };
  for (const std::size_t length : {std::size_t{1}, std::size_t{2}, std::size_t{200}, good.size() / 2}) {
    EXPECT_FALSE(reads({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length)})) << length;
    EXPECT_TRUE(reads(good));
  }
  EXPECT_FALSE(reads(encodedScene({PixelFormat::mjpeg, 320, 240})))
      << "a picture of another size than agreed";
  EXPECT_TRUE(reads({good.begin(), good.end() - 2})) << "cameras forget the end mark";

  // The Huffman tables of the standard need not be sent with each picture of a stream.
  auto bare = good;
  for (auto at = bare.begin() + 2; at[1] != 0xDA;) {
    const auto next = at + 2 + at[2] * 256 + at[3];
    at = at[1] == 0xC4 ? bare.erase(at, next) : next;
  }
  ASSERT_LT(bare.size(), good.size());
  ASSERT_TRUE(reads(bare));
  const std::vector<std::uint8_t> pixels(frame.data(), frame.data() + 640 * 480 * 4);
  ASSERT_TRUE(reads(good));
  EXPECT_TRUE(std::equal(pixels.begin(), pixels.end(), frame.data()));
}

}  // namespace
}  // namespace sentrel::test
