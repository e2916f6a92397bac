// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/buffer_check.h"

#include <utility>

#include "linux/camera/pipewire_headers.h"

namespace sentrel {

namespace {

struct PlaneShape {
  std::int64_t rowBytes = 0;
  std::int64_t rows = 0;
  /// The rows that lie between this plane and the next one when all planes share one block.
  std::int64_t storedRows = 0;
};

struct Shape {
  std::array<PlaneShape, 3> planes;
  std::uint32_t count = 0;
};

Shape shapeOf(const VideoFormat& format) {
  const std::int64_t width = format.width;
  const std::int64_t height = format.height;
  const std::int64_t chromaWidth = (width + 1) / 2;
  const std::int64_t chromaHeight = (height + 1) / 2;
  const PlaneShape luma{width, height, chromaHeight * 2};
  switch (format.pixels) {
    case PixelFormat::yuy2:
      return {{{{chromaWidth * 4, height, height}}}, 1};
    case PixelFormat::nv12:
      return {{{luma, {chromaWidth * 2, chromaHeight, chromaHeight}}}, 2};
    case PixelFormat::i420: {
      const PlaneShape chroma{chromaWidth, chromaHeight, chromaHeight};
      return {{{luma, chroma, chroma}}, 3};
    }
    case PixelFormat::mjpeg:
      return {{}, 1};
  }
  return {};
}

/// The part of a block that its chunk declares as valid.
struct Block {
  const std::uint8_t* data = nullptr;
  std::int64_t size = 0;
  std::int64_t stride = 0;
};

std::optional<Block> blockOf(const spa_data& data) {
  if (data.data == nullptr || data.chunk == nullptr) return {};
  // Copied once: the writer shares this memory and may change it at any time.
  const std::int64_t offset = const_cast<volatile spa_chunk*>(data.chunk)->offset;
  const std::int64_t size = const_cast<volatile spa_chunk*>(data.chunk)->size;
  const std::int64_t stride = const_cast<volatile spa_chunk*>(data.chunk)->stride;
  const auto flags = static_cast<std::uint32_t>(const_cast<volatile spa_chunk*>(data.chunk)->flags);
  if ((flags & (SPA_CHUNK_FLAG_CORRUPTED | SPA_CHUNK_FLAG_EMPTY)) != 0) return {};
  if (size == 0 || offset + size > data.maxsize) return {};
  return Block{static_cast<const std::uint8_t*>(data.data) + offset, size, stride};
}

/// Places `shape` at `start` of `block` and returns the position behind it, or nothing where it does not fit.
std::optional<std::int64_t> place(const Block& block, std::int64_t start, std::int64_t stride,
                                  const PlaneShape& shape, RawPicture::Plane& plane) {
  if (stride < shape.rowBytes || stride > INT32_MAX) return {};
  const std::int64_t needed = stride * (shape.rows - 1) + shape.rowBytes;
  if (start + needed > block.size) return {};
  plane = {block.data + start, static_cast<int>(stride), static_cast<std::size_t>(needed)};
  return start + stride * shape.storedRows;
}

bool placeInOneBlock(const Block& block, const Shape& shape, RawPicture& picture) {
  // A producer that gives no stride has packed its rows.
  const std::int64_t first = block.stride == 0 ? shape.planes[0].rowBytes : block.stride;
  std::int64_t at = 0;
  for (std::uint32_t i = 0; i < shape.count; ++i) {
    const bool halfStride = i > 0 && picture.format.pixels == PixelFormat::i420;
    const auto end =
        place(block, at, halfStride ? (first + 1) / 2 : first, shape.planes[i], picture.planes[i]);
    if (!end) return false;
    at = *end;
  }
  return true;
}

bool placeInBlocks(const spa_buffer& buffer, const Shape& shape, RawPicture& picture) {
  for (std::uint32_t i = 0; i < shape.count; ++i) {
    const auto block = blockOf(buffer.datas[i]);
    if (!block) return false;
    const std::int64_t stride = block->stride == 0 ? shape.planes[i].rowBytes : block->stride;
    if (!place(*block, 0, stride, shape.planes[i], picture.planes[i])) return false;
  }
  return true;
}

const spa_meta_header* headerOf(const spa_buffer& buffer) {
  return static_cast<const spa_meta_header*>(
      spa_buffer_find_meta_data(&buffer, SPA_META_Header, sizeof(spa_meta_header)));
}

}  // namespace

bool BufferCheck::timestampAdvances(const spa_buffer& buffer) {
  const spa_meta_header* header = headerOf(buffer);
  if (header == nullptr || header->pts <= 0) return true;  // a producer need not give one
  // The earlier time is forgotten even so: a clock that was set back once costs one frame, not all.
  return header->pts >= std::exchange(lastTimestampNs_, header->pts);
}

std::optional<RawPicture> BufferCheck::check(const spa_buffer& buffer, const VideoFormat& format) {
  const Shape shape = shapeOf(format);
  if (shape.count == 0 || format.width <= 0 || format.height <= 0 || buffer.n_datas == 0) return {};
  const spa_meta_header* header = headerOf(buffer);
  if (header != nullptr && (header->flags & SPA_META_HEADER_FLAG_CORRUPTED) != 0) return {};

  RawPicture picture;
  picture.format = format;
  const auto first = blockOf(buffer.datas[0]);
  if (!first) return {};
  if (format.pixels == PixelFormat::mjpeg) {
    picture.planes[0] = {first->data, 0, static_cast<std::size_t>(first->size)};
  } else if (buffer.n_datas >= shape.count && shape.count > 1) {
    if (!placeInBlocks(buffer, shape, picture)) return {};
  } else if (!placeInOneBlock(*first, shape, picture)) {
    return {};
  }
  if (!timestampAdvances(buffer)) return {};
  return picture;
}

}  // namespace sentrel
