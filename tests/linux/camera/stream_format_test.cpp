// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/stream_format.h"

#include <gtest/gtest.h>

#include <array>
#include <utility>
#include <vector>

#include "linux/camera/pipewire_headers.h"

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
    datas.at(index) = {.type = SPA_DATA_MemPtr,
                       .flags = SPA_DATA_FLAG_READABLE,
                       .fd = -1,
                       .mapoffset = 0,
                       .maxsize = size,
                       .data = memory.data(),
                       .chunk = &chunks.at(index)};
  }
  [[nodiscard]] bool accepted(PixelFormat pixels) {
    BufferCheck check;
    return check.check(buffer, {pixels, width, height}).has_value();
  }
};

TEST(BufferCheck, JudgesOneBlock) {
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
      {"NV12", true, intact, PixelFormat::nv12, planarBytes, width},
      {"a byte of NV12 short", false, intact, PixelFormat::nv12, planarBytes - 1, width},
      {"I420", true, intact, PixelFormat::i420, planarBytes, width},
      {"a byte of I420 short", false, intact, PixelFormat::i420, planarBytes - 1, width},
      {"MJPEG of any size", true, intact, PixelFormat::mjpeg, 7, 0},
  };
  for (const Case& one : cases) {
    TestBuffer buffer;
    buffer.addBlock(one.bytes, one.stride);
    one.spoil(buffer);
    EXPECT_EQ(buffer.accepted(one.pixels), one.good) << one.name;
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

TEST(BufferCheck, FindsPlanesInBlocksOfTheirOwn) {
  for (const std::uint32_t missing : {0U, 1U}) {
    TestBuffer buffer;
    buffer.addBlock(width * height, width);
    buffer.addBlock(width * height / 4, width / 2);
    buffer.addBlock(width * height / 4 - missing, width / 2);
    EXPECT_EQ(buffer.accepted(PixelFormat::i420), missing == 0);
  }
}

}  // namespace
}  // namespace sentrel::test
