// SPDX-License-Identifier: Apache-2.0
#include "stage/picture_encoder.h"

#include <libyuv.h>

#include <cstdio>  // before jpeglib.h, which needs its types
#include <cstdlib>
#include <cstring>

#include <jpeglib.h>

namespace sentrel::test {

namespace {

using Format = VirtualCamera::Format;

std::size_t encodeJpeg(const std::uint8_t* bgra, int width, int height, std::span<std::uint8_t> target) {
  jpeg_compress_struct info{};
  jpeg_error_mgr errors{};
  info.err = jpeg_std_error(&errors);  // ends the process on an error: only a broken test can cause one
  jpeg_create_compress(&info);
  unsigned char* bytes = target.data();
  unsigned long size = target.size();
  jpeg_mem_dest(&info, &bytes, &size);
  info.image_width = static_cast<JDIMENSION>(width);
  info.image_height = static_cast<JDIMENSION>(height);
  info.input_components = 4;
  info.in_color_space = JCS_EXT_BGRA;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, 92, TRUE);
  info.comp_info[0].h_samp_factor = 2;  // 4:2:2, as webcams do
  info.comp_info[0].v_samp_factor = 1;
  jpeg_start_compress(&info, TRUE);
  while (info.next_scanline < info.image_height) {
    auto* row = const_cast<JSAMPROW>(bgra + std::size_t{info.next_scanline} * info.image_width * 4);
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  if (bytes == target.data()) return size;
  std::free(bytes);  // it outgrew the target
  return 0;
}

}  // namespace

std::size_t encodedCapacity(Format format, int width, int height) {
  const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  return format == Format::nv12 || format == Format::i420 ? pixels * 3 / 2 : pixels * 2;
}

int encodedStride(Format format, int width) {
  switch (format) {
    case Format::yuy2:
      return width * 2;
    case Format::nv12:
    case Format::i420:
      return width;
    case Format::mjpeg:
      break;
  }
  return 0;
}

std::size_t encodePicture(Format format, const std::uint8_t* bgra, int width, int height,
                          std::span<std::uint8_t> target) {
  const std::size_t capacity = encodedCapacity(format, width, height);
  if (target.size() < capacity) return 0;
  std::uint8_t* const chroma = target.data() + std::ptrdiff_t{width} * height;
  switch (format) {
    case Format::yuy2:
      libyuv::ARGBToYUY2(bgra, width * 4, target.data(), width * 2, width, height);
      return capacity;
    case Format::nv12:
      libyuv::ARGBToNV12(bgra, width * 4, target.data(), width, chroma, width, width, height);
      return capacity;
    case Format::i420:
      libyuv::ARGBToI420(bgra, width * 4, target.data(), width, chroma, width / 2,
                         chroma + std::ptrdiff_t{width} * height / 4, width / 2, width, height);
      return capacity;
    case Format::mjpeg:
      return encodeJpeg(bgra, width, height, target);
  }
  return 0;
}

}  // namespace sentrel::test
