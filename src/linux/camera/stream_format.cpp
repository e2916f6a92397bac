// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/stream_format.h"

#include "linux/camera/pipewire_headers.h"

namespace sentrel {

namespace {

constexpr spa_fraction usualRate{30, 1};
constexpr int largestSide = 8192;  // pixels; also keeps every size below in 32 bits

/// Sizes of real cameras near 640x480, nearest first.
constexpr std::array<spa_rectangle, 8> otherSizes{
    {{640, 480}, {640, 360}, {800, 600}, {848, 480}, {960, 540}, {1280, 720}, {352, 288}, {320, 240}}};

enum class Rate { usual, any };
enum class Encoding { raw, mjpeg };

void addRate(spa_pod_builder* builder, Rate rate) {
  // Around 30, because 30000/1001 counts too.
  const spa_fraction least = rate == Rate::usual ? spa_fraction{24, 1} : spa_fraction{0, 1};
  const spa_fraction most = rate == Rate::usual ? spa_fraction{31, 1} : spa_fraction{1000, 1};
  spa_pod_builder_add(builder, SPA_FORMAT_VIDEO_framerate,
                      SPA_POD_CHOICE_RANGE_Fraction(&usualRate, &least, &most), 0);
}

void beginFormat(spa_pod_builder* builder, spa_pod_frame* frame, Encoding encoding) {
  spa_pod_builder_push_object(builder, frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
  spa_pod_builder_add(builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), 0);
  if (encoding == Encoding::mjpeg) {
    spa_pod_builder_add(builder, SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_mjpg), 0);
    return;
  }
  spa_pod_builder_add(builder, SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), 0);
  spa_pod_builder_add(builder, SPA_FORMAT_VIDEO_format,
                      SPA_POD_CHOICE_ENUM_Id(4, SPA_VIDEO_FORMAT_YUY2, SPA_VIDEO_FORMAT_YUY2,
                                             SPA_VIDEO_FORMAT_NV12, SPA_VIDEO_FORMAT_I420),
                      0);
}

const spa_pod* endFormat(spa_pod_builder* builder, spa_pod_frame* frame) {
  return static_cast<const spa_pod*>(spa_pod_builder_pop(builder, frame));
}

const spa_pod* sizedFormat(spa_pod_builder* builder, Encoding encoding, Rate rate, spa_rectangle size) {
  spa_pod_frame frame{};
  beginFormat(builder, &frame, encoding);
  spa_pod_builder_add(builder, SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size), 0);
  addRate(builder, rate);
  return endFormat(builder, &frame);
}

const spa_pod* anySizeFormat(spa_pod_builder* builder, Encoding encoding, spa_rectangle preferred) {
  const spa_rectangle least{16, 16};
  const spa_rectangle most{largestSide, largestSide};
  spa_pod_frame frame{};
  beginFormat(builder, &frame, encoding);
  spa_pod_builder_add(builder, SPA_FORMAT_VIDEO_size,
                      SPA_POD_CHOICE_RANGE_Rectangle(&preferred, &least, &most), 0);
  addRate(builder, Rate::any);
  return endFormat(builder, &frame);
}

std::optional<PixelFormat> pixelFormat(std::uint32_t spaFormat) {
  switch (spaFormat) {
    case SPA_VIDEO_FORMAT_YUY2:
      return PixelFormat::yuy2;
    case SPA_VIDEO_FORMAT_NV12:
      return PixelFormat::nv12;
    case SPA_VIDEO_FORMAT_I420:
      return PixelFormat::i420;
    default:
      return {};
  }
}

std::optional<VideoFormat> checkedSize(PixelFormat pixels, spa_rectangle size) {
  if (size.width == 0 || size.height == 0 || size.width > largestSide || size.height > largestSide) return {};
  return VideoFormat{pixels, static_cast<int>(size.width), static_cast<int>(size.height)};
}

}  // namespace

FormatOffer::FormatOffer(int width, int height) : storage_(std::size_t{16} << 10) {
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, storage_.data(), static_cast<std::uint32_t>(storage_.size()));
  const spa_rectangle wanted{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
  const auto addSize = [&](spa_rectangle size) {
    for (const Rate rate : {Rate::usual, Rate::any}) {
      for (const Encoding encoding : {Encoding::raw, Encoding::mjpeg}) {
        parameters_.push_back(sizedFormat(&builder, encoding, rate, size));
      }
    }
  };
  addSize(wanted);
  for (const spa_rectangle& size : otherSizes) {
    if (size.width != wanted.width || size.height != wanted.height) addSize(size);
  }
  for (const Encoding encoding : {Encoding::raw, Encoding::mjpeg}) {
    parameters_.push_back(anySizeFormat(&builder, encoding, wanted));
  }
  std::erase(parameters_, nullptr);  // what did not fit any more
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
    const auto pixels = pixelFormat(info.format);
    return pixels ? checkedSize(*pixels, info.size) : std::nullopt;
  }
  if (mediaSubtype == SPA_MEDIA_SUBTYPE_mjpg) {
    spa_video_info_mjpg info{};
    if (spa_format_video_mjpg_parse(parameter, &info) < 0) return {};
    return checkedSize(PixelFormat::mjpeg, info.size);
  }
  return {};
}

BufferRequest::BufferRequest() {
  constexpr int usualCount = 4;
  constexpr int leastCount = 3;
  constexpr int mostCount = 16;
  constexpr int mappable = (1 << SPA_DATA_MemPtr) | (1 << SPA_DATA_MemFd);
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, storage_.data(), static_cast<std::uint32_t>(storage_.size()));
  parameters_[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
      &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
      SPA_POD_CHOICE_RANGE_Int(usualCount, leastCount, mostCount), SPA_PARAM_BUFFERS_dataType,
      SPA_POD_CHOICE_FLAGS_Int(mappable)));
  parameters_[1] = static_cast<const spa_pod*>(spa_pod_builder_add_object(
      &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
      SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))));
}

}  // namespace sentrel
