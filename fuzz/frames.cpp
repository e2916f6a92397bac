// SPDX-License-Identifier: Apache-2.0
//
// What another process may put into a camera's buffers: a FrameHeader and then the bytes.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <vector>

#include "fuzz_input.h"
#include "linux/camera/frame_converter.h"
#include "linux/camera/pipewire_headers.h"
#include "linux/camera/stream_format.h"

namespace {

using namespace sentrel;  // NOLINT(google-build-using-namespace): a program of one function
using fuzz::Bytes;
using fuzz::require;

/// Bytes that end where memory ends: the libraries that read them are not instrumented.
class Block {
 public:
  Block()
      : begin_(static_cast<std::uint8_t*>(
            mmap(nullptr, room + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
    require(begin_ != MAP_FAILED && mprotect(begin_ + room, page, PROT_NONE) == 0);
  }
  std::uint8_t* hold(Bytes bytes) {
    std::uint8_t* const at = begin_ + room - bytes.size();
    std::ranges::copy(bytes, at);
    return at;
  }
  static constexpr std::size_t page = 4096;
  static constexpr std::size_t room = 1024 * page;

 private:
  std::uint8_t* begin_;
};

constexpr int formats = static_cast<int>(PixelFormat::mjpeg) + 1;  // it is the last one
constexpr std::array<std::array<int, 2>, 4> targets{{{640, 480}, {64, 48}, {33, 97}, {1, 1}}};

std::vector<std::uint8_t> pixelsOf(const Frame& frame) {
  return {frame.data(), frame.row(frame.height())};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::FrameHeader header;
  if (size < sizeof header || size > Block::room) return 0;
  std::memcpy(&header, data, sizeof header);
  const Bytes bytes(data + sizeof header, size - sizeof header);
  const VideoFormat format{static_cast<PixelFormat>(header.pixels % formats), header.width % 8193,
                           header.height % 8193};

  static std::array<Block, 3> memory;
  std::array<spa_chunk, 3> chunks{};
  std::array<spa_data, 3> datas{};
  const std::uint32_t blocks = header.blocks % 3 + 1;
  const std::size_t part = bytes.size() / blocks;
  for (std::uint32_t i = 0; i < blocks; ++i) {
    const auto length = static_cast<std::uint32_t>(part);
    chunks.at(i) = {.offset = i == 0 ? header.offset : 0,
                    .size = i == 0 ? header.size : length,
                    .stride = header.stride,
                    .flags = i == 0 ? header.flags : 0};
    datas.at(i) = {.type = SPA_DATA_MemPtr,
                   .flags = SPA_DATA_FLAG_READABLE,
                   .fd = -1,
                   .mapoffset = 0,
                   .maxsize = length,
                   .data = memory.at(i).hold(bytes.subspan(i * part, part)),
                   .chunk = &chunks.at(i)};
  }
  const spa_buffer buffer{.n_metas = 0, .n_datas = blocks, .metas = nullptr, .datas = datas.data()};

  BufferCheck check;
  const auto raw = check.check(buffer, format);
  if (!raw) return 0;
  const auto [width, height] = targets.at(header.target % targets.size());
  FrameConverter converter;
  Frame first;
  first.resize(width, height);
  if (!converter.convert(*raw, first)) return 0;
  require(first.width() == width && first.height() == height);
  // Nothing of it stays: the same bytes give the same picture, here and in a frame that shows another one.
  Frame second;
  second.resize(width, height);
  std::fill_n(second.data(), second.stride() * second.height(), std::uint8_t{0x55});
  require(converter.convert(*raw, second) && pixelsOf(first) == pixelsOf(second));
  require((first.larger() == nullptr) == (second.larger() == nullptr));
  if (first.larger() != nullptr) require(pixelsOf(*first.larger()) == pixelsOf(*second.larger()));
  return 0;
}
