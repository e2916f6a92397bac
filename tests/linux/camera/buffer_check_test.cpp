// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/buffer_check.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
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
  [[nodiscard]] bool accepted(PixelFormat pixels, int w = width, int h = height) {
    BufferCheck check;
    return check.check(buffer, {pixels, w, h}).has_value();
  }
};

constexpr std::uint32_t yuy2Bytes = width * height * 2;
constexpr std::uint32_t planarBytes = width * height * 3 / 2;

TEST(BufferCheck, JudgesOneBlock) {
  struct Case {
    const char* name;
    PixelFormat pixels;
    std::uint32_t bytes;
    std::int32_t stride;
    std::function<void(TestBuffer&)> spoil;
    bool good;
  };
  const auto nothing = [](TestBuffer&) {};
  const std::vector<Case> cases{
      {"packed", PixelFormat::yuy2, yuy2Bytes, width * 2, nothing, true},
      {"no stride means packed", PixelFormat::yuy2, yuy2Bytes, 0, nothing, true},
      {"the last row need not be padded", PixelFormat::yuy2, (width * 2 + 16) * height - 16, width * 2 + 16,
       nothing, true},
      {"padding beyond the end", PixelFormat::yuy2, yuy2Bytes, width * 2 + 4, nothing, false},
      {"rows overlap", PixelFormat::yuy2, yuy2Bytes, width * 2 - 2, nothing, false},
      {"upside down", PixelFormat::yuy2, yuy2Bytes, -width * 2, nothing, false},
      {"a byte short", PixelFormat::yuy2, yuy2Bytes - 1, width * 2, nothing, false},
      {"empty", PixelFormat::yuy2, yuy2Bytes, width * 2, [](TestBuffer& b) { b.chunks[0].size = 0; }, false},
      {"more than there is", PixelFormat::yuy2, yuy2Bytes, width * 2,
       [](TestBuffer& b) { b.chunks[0].size += 1; }, false},
      {"beyond the end", PixelFormat::yuy2, yuy2Bytes, width * 2,
       [](TestBuffer& b) { b.chunks[0].offset = 4; }, false},
      {"offset and size overflow", PixelFormat::yuy2, yuy2Bytes, width * 2,
       [](TestBuffer& b) { b.chunks[0].offset = 0xFFFFFFFF; }, false},
      {"chunk marked", PixelFormat::yuy2, yuy2Bytes, width * 2,
       [](TestBuffer& b) { b.chunks[0].flags = SPA_CHUNK_FLAG_CORRUPTED; }, false},
      {"header marked", PixelFormat::yuy2, yuy2Bytes, width * 2,
       [](TestBuffer& b) { b.header.flags = SPA_META_HEADER_FLAG_CORRUPTED; }, false},
      {"not mapped", PixelFormat::yuy2, yuy2Bytes, width * 2,
       [](TestBuffer& b) { b.datas[0].data = nullptr; }, false},
      {"no header", PixelFormat::yuy2, yuy2Bytes, width * 2, [](TestBuffer& b) { b.buffer.n_metas = 0; },
       true},
      {"NV12", PixelFormat::nv12, planarBytes, width, nothing, true},
      {"NV12 without the end of its colours", PixelFormat::nv12, planarBytes - 1, width, nothing, false},
      {"I420", PixelFormat::i420, planarBytes, width, nothing, true},
      {"I420 without the end of its colours", PixelFormat::i420, planarBytes - 1, width, nothing, false},
      {"MJPEG of any size", PixelFormat::mjpeg, 7, 0, nothing, true},
  };
  for (const Case& one : cases) {
    TestBuffer buffer;
    buffer.addBlock(one.bytes, one.stride);
    one.spoil(buffer);
    EXPECT_EQ(buffer.accepted(one.pixels), one.good) << one.name;
  }
  TestBuffer buffer;
  EXPECT_FALSE(buffer.accepted(PixelFormat::yuy2)) << "no block at all";
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
