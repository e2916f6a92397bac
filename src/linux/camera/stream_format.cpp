// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/stream_format.h"

#include <algorithm>
#include <utility>

#include "linux/camera/pipewire_headers.h"

namespace sentrel {

namespace {

constexpr spa_fraction usualRate{30, 1};
constexpr spa_rectangle largerSize{1280, 720};
constexpr int largestSide = 8192;  // pixels; it also keeps every size below in 32 bits

/// Sizes of real cameras near 640x480, nearest first.
constexpr std::array<spa_rectangle, 8> otherSizes{
    {{640, 480}, {640, 360}, {800, 600}, {848, 480}, {960, 540}, {1280, 720}, {352, 288}, {320, 240}}};

/// How PipeWire names the uncompressed ones.
struct RawFormat {
  spa_video_format name;
  PixelFormat pixels;
};
constexpr std::array<RawFormat, 7> rawFormats{{{SPA_VIDEO_FORMAT_YUY2, PixelFormat::yuy2},
                                               {SPA_VIDEO_FORMAT_NV12, PixelFormat::nv12},
                                               {SPA_VIDEO_FORMAT_I420, PixelFormat::i420},
                                               {SPA_VIDEO_FORMAT_BGRx, PixelFormat::bgrx},
                                               {SPA_VIDEO_FORMAT_RGBx, PixelFormat::rgbx},
                                               {SPA_VIDEO_FORMAT_BGR, PixelFormat::bgr},
                                               {SPA_VIDEO_FORMAT_RGB, PixelFormat::rgb}}};

enum class Rate { usual, any };
enum class Size { exact, any };

const spa_pod* addFormat(spa_pod_builder* builder, spa_media_subtype subtype, Rate rate, Size size,
                         spa_rectangle preferred) {
  // Around 30, because 30000/1001 counts too.
  const spa_fraction slowest = rate == Rate::usual ? spa_fraction{24, 1} : spa_fraction{0, 1};
  const spa_fraction fastest = rate == Rate::usual ? spa_fraction{31, 1} : spa_fraction{1000, 1};
  const spa_rectangle least{16, 16};
  const spa_rectangle most{largestSide, largestSide};
  spa_pod_frame frame{};
  spa_pod_builder_push_object(builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
  spa_pod_builder_add(builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
                      SPA_FORMAT_mediaSubtype, SPA_POD_Id(subtype), 0);
  if (subtype == SPA_MEDIA_SUBTYPE_raw) {
    spa_pod_frame choice{};
    spa_pod_builder_prop(builder, SPA_FORMAT_VIDEO_format, 0);
    spa_pod_builder_push_choice(builder, &choice, SPA_CHOICE_Enum, 0);
    spa_pod_builder_id(builder, rawFormats.front().name);  // the preferred one
    for (const RawFormat& format : rawFormats) spa_pod_builder_id(builder, format.name);
    spa_pod_builder_pop(builder, &choice);
  }
  if (size == Size::exact) {
    spa_pod_builder_add(builder, SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&preferred), 0);
  } else {
    spa_pod_builder_add(builder, SPA_FORMAT_VIDEO_size,
                        SPA_POD_CHOICE_RANGE_Rectangle(&preferred, &least, &most), 0);
  }
  spa_pod_builder_add(builder, SPA_FORMAT_VIDEO_framerate,
                      SPA_POD_CHOICE_RANGE_Fraction(&usualRate, &slowest, &fastest), 0);
  return static_cast<const spa_pod*>(spa_pod_builder_pop(builder, &frame));
}

std::optional<VideoFormat> checkedSize(PixelFormat pixels, spa_rectangle size) {
  if (size.width == 0 || size.height == 0 || size.width > largestSide || size.height > largestSide) return {};
  return VideoFormat{pixels, static_cast<int>(size.width), static_cast<int>(size.height)};
}

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
    case PixelFormat::bgrx:
    case PixelFormat::rgbx:
    case PixelFormat::bgr:
    case PixelFormat::rgb:
      return {{{{width * pixelBytes(format.pixels), height, height}}}, 1};
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

/// Finds the planes in blocks of their own, or one behind the other in the first block. False where they do
/// not fit.
bool place(const spa_buffer& buffer, const Shape& shape, RawFrame& frame) {
  const bool inOneBlock = buffer.n_datas < shape.count || shape.count == 1;
  std::optional<Block> block;
  std::int64_t start = 0;
  std::int64_t firstStride = 0;
  for (std::uint32_t i = 0; i < shape.count; ++i) {
    const PlaneShape& plane = shape.planes[i];
    if (i == 0 || !inOneBlock) {
      block = blockOf(buffer.datas[i]);
      start = 0;
      if (!block) return false;
      // A producer that gives no stride has packed its rows.
      firstStride = block->stride == 0 ? plane.rowBytes : block->stride;
    }
    const bool halfStride = i > 0 && inOneBlock && frame.format.pixels == PixelFormat::i420;
    const std::int64_t stride = halfStride ? (firstStride + 1) / 2 : firstStride;
    if (stride < plane.rowBytes || stride > INT32_MAX) return false;
    const std::int64_t needed = stride * (plane.rows - 1) + plane.rowBytes;
    if (start + needed > block->size) return false;
    frame.planes[i] = {block->data + start, static_cast<int>(stride), static_cast<std::size_t>(needed)};
    start += stride * plane.storedRows;
  }
  return true;
}

const spa_meta_header* headerOf(const spa_buffer& buffer) {
  return static_cast<const spa_meta_header*>(
      spa_buffer_find_meta_data(&buffer, SPA_META_Header, sizeof(spa_meta_header)));
}

}  // namespace

StreamParameters formatOffer(int width, int height, Pixels pixels) {
  StreamParameters offer{std::vector<std::uint8_t>(std::size_t{16} << 10), {}};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, offer.storage.data(), static_cast<std::uint32_t>(offer.storage.size()));
  const auto add = [&](Rate rate, Size size, spa_rectangle preferred) {
    for (const auto subtype : {SPA_MEDIA_SUBTYPE_raw, SPA_MEDIA_SUBTYPE_mjpg})
      offer.parameters.push_back(addFormat(&builder, subtype, rate, size, preferred));
  };
  const spa_rectangle wanted{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
  if (pixels == Pixels::moreIfCheap && wanted.width < largerSize.width && wanted.height < largerSize.height)
    offer.parameters.push_back(
        addFormat(&builder, SPA_MEDIA_SUBTYPE_raw, Rate::usual, Size::exact, largerSize));
  add(Rate::usual, Size::exact, wanted);
  add(Rate::any, Size::exact, wanted);
  for (const spa_rectangle& size : otherSizes) {
    if (size.width == wanted.width && size.height == wanted.height) continue;
    add(Rate::usual, Size::exact, size);
    add(Rate::any, Size::exact, size);
  }
  add(Rate::any, Size::any, wanted);
  std::erase(offer.parameters, nullptr);  // what did not fit any more
  return offer;
}

std::optional<VideoFormat> parseFormat(const spa_pod* parameter) {
  std::uint32_t mediaType = 0;
  std::uint32_t mediaSubtype = 0;
  if (spa_format_parse(parameter, &mediaType, &mediaSubtype) < 0 || mediaType != SPA_MEDIA_TYPE_video) {
    return {};
  }
  if (mediaSubtype == SPA_MEDIA_SUBTYPE_raw) {
    spa_video_info_raw info{};
    if (spa_format_video_raw_parse(parameter, &info) < 0) return {};
    const auto known = std::ranges::find(rawFormats, info.format, &RawFormat::name);
    if (known != rawFormats.end()) return checkedSize(known->pixels, info.size);
  }
  if (mediaSubtype == SPA_MEDIA_SUBTYPE_mjpg) {
    spa_video_info_mjpg info{};
    if (spa_format_video_mjpg_parse(parameter, &info) < 0) return {};
    return checkedSize(PixelFormat::mjpeg, info.size);
  }
  return {};
}

StreamParameters bufferRequest() {
  constexpr int usualCount = 4;
  constexpr int leastCount = 3;
  constexpr int mostCount = 16;
  constexpr int mappable = (1 << SPA_DATA_MemPtr) | (1 << SPA_DATA_MemFd);
  StreamParameters request{std::vector<std::uint8_t>(512), {}};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, request.storage.data(), static_cast<std::uint32_t>(request.storage.size()));
  request.parameters.push_back(static_cast<const spa_pod*>(spa_pod_builder_add_object(
      &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
      SPA_POD_CHOICE_RANGE_Int(usualCount, leastCount, mostCount), SPA_PARAM_BUFFERS_dataType,
      SPA_POD_CHOICE_FLAGS_Int(mappable))));
  request.parameters.push_back(static_cast<const spa_pod*>(spa_pod_builder_add_object(
      &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
      SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header)))));
  return request;
}

bool BufferCheck::timestampAdvances(const spa_buffer& buffer) {
  const spa_meta_header* header = headerOf(buffer);
  if (header == nullptr || header->pts <= 0) return true;  // a producer need not give one
  // The earlier time is forgotten even so: a clock that was set back once costs one frame, not all.
  return header->pts >= std::exchange(lastTimestampNs_, header->pts);
}

std::optional<RawFrame> BufferCheck::check(const spa_buffer& buffer, const VideoFormat& format) {
  const Shape shape = shapeOf(format);
  if (shape.count == 0 || format.width <= 0 || format.height <= 0 || buffer.n_datas == 0) return {};
  const spa_meta_header* header = headerOf(buffer);
  if (header != nullptr && (header->flags & SPA_META_HEADER_FLAG_CORRUPTED) != 0) return {};

  RawFrame frame;
  frame.format = format;
  if (format.pixels == PixelFormat::mjpeg) {
    const auto block = blockOf(buffer.datas[0]);
    if (!block) return {};
    frame.planes[0] = {block->data, 0, static_cast<std::size_t>(block->size)};
  } else if (!place(buffer, shape, frame)) {
    return {};
  }
  if (!timestampAdvances(buffer)) return {};
  return frame;
}

}  // namespace sentrel
