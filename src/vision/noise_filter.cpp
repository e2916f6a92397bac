// SPDX-License-Identifier: Apache-2.0
#include "vision/noise_filter.h"

#include <algorithm>
#include <cstdlib>

namespace sentrel::vision {
namespace {

// Motion is told from noise by the means of blocks of pixels.
constexpr int block = 4;
constexpr std::size_t blockBytes = std::size_t{block} * 4;
constexpr int meanBits = 7;
// Light and noise are measured on two pixels of every square of this side, so far from each other.
constexpr int apart = 8;
constexpr std::size_t pairBytes = std::size_t{2} * 4;
// A block moves when its mean steps by more than this; in the dark by as much less as everything is darker.
constexpr int movedLevel = 10;
constexpr int movedLevelInTheDark = 2;
constexpr int brightnessPerLevel = 8;
// How much of the mean the newest frame is. The longer a block stands still the less, down to an eighth,
// which leaves a quarter of the noise.
constexpr int shareBits = 8;
constexpr int fullShare = 1 << shareBits;
constexpr int mostFrames = 8;
// From frame to frame noise changes one pixel in another way than the next, motion both alike. Noise is
// strong when the changes of half of the pairs differ by more than an eleventh of the picture's brightness,
// and counts as gone below a seventeenth.
constexpr std::size_t strongNoise = 11;
constexpr std::size_t weakNoise = 17;

/// Some rows of a few pixels, in the new frame, in the mean of the last ones, and in the quiet picture.
struct Block {
  const std::uint8_t* __restrict now;
  std::uint16_t* __restrict mean;
  std::uint8_t* __restrict quiet;
  std::size_t stride;

  [[gnu::always_inline]] void average(std::size_t lines, std::size_t width, std::uint8_t& frames) const {
    const std::size_t end = lines * stride;
    int light = 0;
    int step = 0;
    for (std::size_t row = 0; row < end; row += stride) {
      for (std::size_t i = row; i < row + width; ++i) {
        light += now[i];
        step += (now[i] << meanBits) - mean[i];
      }
    }
    // Every fourth byte is no colour: it never changes, and says nothing about the light.
    const int pixels = std::max(1, static_cast<int>(lines * width) / 4);
    const int brightness = std::max(0, light - 255 * pixels) / (3 * pixels);
    const int allowed = std::min(movedLevel, movedLevelInTheDark + brightness / brightnessPerLevel);
    const bool moved = std::abs(step) > (allowed * 3 * pixels << meanBits);
    frames = static_cast<std::uint8_t>(moved ? 1 : std::min(frames + 1, mostFrames));
    const int share = fullShare / frames;
    for (std::size_t row = 0; row < end; row += stride) {
      for (std::size_t i = row; i < row + width; ++i) {
        const int value = mean[i] + ((((now[i] << meanBits) - mean[i]) * share) >> shareBits);
        mean[i] = static_cast<std::uint16_t>(value);
        quiet[i] = static_cast<std::uint8_t>((value + (1 << (meanBits - 1))) >> meanBits);
      }
    }
  }
};

}  // namespace

void NoiseFilter::restart() {
  active_ = false;
  sample_.wipe();
  sample_.resize(0);
  mean_.wipe();
  mean_.resize(0);
  quiet_.clear();
}

void NoiseFilter::measure(const Frame& frame) {
  const int columns = frame.width() / apart;
  const int rows = frame.height() / apart;
  const auto count = static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows);
  if (count == 0) return;
  const bool comparable = sample_.size() == 2 * count;
  sample_.resize(2 * count);
  std::array<std::size_t, 2 * 255 + 1> differences{};
  std::size_t light = 0;
  std::uint8_t* last = sample_.data();
  for (int row = 0; row < rows; ++row) {
    const std::uint8_t* green = frame.row(row * apart) + 1;
    for (int column = 0; column < columns; ++column, last += 2, green += std::size_t{apart} * 4) {
      ++differences[static_cast<std::size_t>(std::abs((green[0] - last[0]) - (green[pairBytes] - last[1])))];
      light += green[0];
      last[0] = green[0];
      last[1] = green[pairBytes];
    }
  }
  if (!comparable) return;
  std::size_t below = 0;
  std::size_t median = 0;
  while ((below += differences[median]) * 2 < count) ++median;
  active_ = median * (active_ ? weakNoise : strongNoise) * count > light;
}

void NoiseFilter::average(const Frame& frame) {
  const auto stride = static_cast<std::size_t>(frame.stride());
  const std::size_t bytes = stride * static_cast<std::size_t>(frame.height());
  const std::uint8_t* now = frame.data();
  if (mean_.size() != bytes) {
    mean_.resize(bytes);
    quiet_.resize(frame.width(), frame.height());
    std::transform(now, now + bytes, mean_.begin(),
                   [](std::uint8_t value) { return static_cast<std::uint16_t>(value << meanBits); });
    const auto columns = (stride + blockBytes - 1) / blockBytes;
    frames_.resize(columns * static_cast<std::size_t>((frame.height() + block - 1) / block));
    std::fill(frames_.begin(), frames_.end(), std::uint8_t{1});
  }
  std::uint8_t* frames = frames_.data();
  for (int y = 0; y < frame.height(); y += block) {
    const auto lines = static_cast<std::size_t>(std::min(block, frame.height() - y));
    for (std::size_t x = 0; x < stride; x += blockBytes, ++frames) {
      const std::size_t first = static_cast<std::size_t>(y) * stride + x;
      const Block at{now + first, mean_.data() + first, quiet_.data() + first, stride};
      if (lines == block && stride - x >= blockBytes) {
        at.average(block, blockBytes, *frames);  // known sizes make quick loops
      } else {
        at.average(lines, std::min(blockBytes, stride - x), *frames);
      }
    }
  }
}

const Frame& NoiseFilter::steady(const Frame& frame) {
  measure(frame);
  if (!active_) {
    mean_.resize(0);
    return frame;
  }
  average(frame);
  return quiet_;
}

}  // namespace sentrel::vision
