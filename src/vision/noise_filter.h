// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "support/frame.h"

namespace sentrel::vision {

/// Takes the noise out of a camera's pictures where it hides faces: in the dark, or with a poor camera. What
/// stands still is averaged over the last frames; what moves is shown as it is. Other pictures pass through
/// untouched, at next to no cost. Allocates when it first becomes active and at a new size only. One thread.
class NoiseFilter {
 public:
  NoiseFilter() = default;
  NoiseFilter(const NoiseFilter&) = delete;
  NoiseFilter& operator=(const NoiseFilter&) = delete;

  /// `frame` itself, or its quieter copy, which is valid until the next call.
  [[nodiscard]] const Frame& steady(const Frame& frame);

  /// Whether the last picture was full of noise.
  [[nodiscard]] bool isActive() const { return active_; }

  /// Forgets the frames so far, and overwrites what is left of them.
  void restart();

 private:
  void measure(const Frame& frame);
  void average(const Frame& frame);

  FrameMemory<std::uint8_t> sample_;  // some pixels of the last frame
  FrameMemory<std::uint16_t> mean_;   // of every byte of the frame, in steps of 1/128
  FrameMemory<std::uint8_t> frames_;  // in the mean of every block
  Frame quiet_;
  bool active_ = false;
};

}  // namespace sentrel::vision
