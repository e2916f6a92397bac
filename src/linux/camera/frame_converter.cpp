// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/frame_converter.h"

#include <libyuv.h>

#include <algorithm>
#include <cstdint>

#include "support/geometry.h"

namespace sentrel {

namespace {

/// The largest part of `width` x `height` about its centre that has the shape of `wanted`.
Rect centredPart(int width, int height, const Frame& wanted) {
  const std::int64_t partWidth =
      std::min<std::int64_t>(width, std::int64_t{height} * wanted.width() / wanted.height());
  const std::int64_t partHeight =
      std::min<std::int64_t>(height, std::int64_t{width} * wanted.height() / wanted.width());
  const Rect part{0, 0, std::max(1, static_cast<int>(partWidth)), std::max(1, static_cast<int>(partHeight))};
  return {(width - part.width) / 2, (height - part.height) / 2, part.width, part.height};
}

}  // namespace

FrameConverter::FrameConverter() = default;
FrameConverter::~FrameConverter() = default;

bool FrameConverter::convert(const RawPicture& picture, Frame& target) {
  if (target.empty()) return false;
  JpegDecoder::Size source{picture.format.width, picture.format.height};
  if (picture.format.pixels == PixelFormat::mjpeg) {
    source = JpegDecoder::reducedSize(source.width, source.height, target.width(), target.height());
  }
  if (source.width == target.width() && source.height == target.height()) return decode(picture, target);

  fullSize_.resize(source.width, source.height);
  if (!decode(picture, fullSize_)) return false;
  const Rect part = centredPart(source.width, source.height, target);
  return libyuv::ARGBScale(fullSize_.row(part.y) + std::ptrdiff_t{part.x} * 4, fullSize_.stride(), part.width,
                           part.height, target.data(), target.stride(), target.width(), target.height(),
                           libyuv::kFilterBox) == 0;
}

bool FrameConverter::decode(const RawPicture& picture, Frame& target) {
  const auto& [first, second, third] = picture.planes;
  const int width = picture.format.width;
  const int height = picture.format.height;
  // What libyuv calls ARGB is a 32-bit number; in memory its bytes are B, G, R, A.
  switch (picture.format.pixels) {
    case PixelFormat::yuy2:
      return libyuv::YUY2ToARGB(first.data, first.stride, target.data(), target.stride(), width, height) == 0;
    case PixelFormat::nv12:
      return libyuv::NV12ToARGB(first.data, first.stride, second.data, second.stride, target.data(),
                                target.stride(), width, height) == 0;
    case PixelFormat::i420:
      return libyuv::I420ToARGB(first.data, first.stride, second.data, second.stride, third.data,
                                third.stride, target.data(), target.stride(), width, height) == 0;
    case PixelFormat::mjpeg:
      if (!jpeg_) jpeg_ = std::make_unique<JpegDecoder>();
      return jpeg_->decode(first.data, first.size, width, height, target);
  }
  return false;
}

}  // namespace sentrel
