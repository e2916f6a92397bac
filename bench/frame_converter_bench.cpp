// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/frame_converter.h"

#include <benchmark/benchmark.h>

#include <vector>

#include "stage/virtual_camera.h"

namespace sentrel {
namespace {

/// What one frame that is handed on costs: the conversion of a camera's picture to 640x480 BGRA, and to what
/// a larger one shows besides.
void convert(benchmark::State& state, PixelFormat pixels, int width, int height) {
  std::vector<std::uint8_t> scene(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
  // Soft shades with an edge every 16 pixels: about as many bytes as a webcam's pictures have.
  for (std::size_t i = 0; i < scene.size(); ++i) {
    const std::size_t x = i / 4 % static_cast<std::size_t>(width);
    const std::size_t y = i / 4 / static_cast<std::size_t>(width);
    scene[i] = static_cast<std::uint8_t>((x / 3 + y / 2 + (x / 16 + y / 16) % 2 * 40) % 256);
  }
  std::vector<std::uint8_t> bytes(test::encodedCapacity(pixels, width, height));
  bytes.resize(test::encodePicture(pixels, scene.data(), width, height, bytes));
  const RawFrame picture = test::encodedFrame({pixels, width, height}, bytes);
  FrameConverter converter;
  Frame frame;
  frame.resize(640, 480);
  for (auto _ : state) {
    if (!converter.convert(picture, frame)) state.SkipWithError("the picture was refused");
    benchmark::DoNotOptimize(frame.data());
  }
  state.counters["bytes"] = static_cast<double>(bytes.size());
}

BENCHMARK_CAPTURE(convert, yuy2, PixelFormat::yuy2, 640, 480);
BENCHMARK_CAPTURE(convert, nv12, PixelFormat::nv12, 640, 480);
BENCHMARK_CAPTURE(convert, i420, PixelFormat::i420, 640, 480);
BENCHMARK_CAPTURE(convert, mjpeg, PixelFormat::mjpeg, 640, 480);
BENCHMARK_CAPTURE(convert, yuy2_of_720p, PixelFormat::yuy2, 1280, 720);
BENCHMARK_CAPTURE(convert, nv12_of_720p, PixelFormat::nv12, 1280, 720);
BENCHMARK_CAPTURE(convert, mjpeg_of_720p, PixelFormat::mjpeg, 1280, 720);

}  // namespace
}  // namespace sentrel
