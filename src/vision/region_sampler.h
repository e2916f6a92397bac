// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "support/frame.h"

namespace sentrel::vision {

/// An upright rectangle in a frame's pixels, origin at the top left; it may reach beyond the frame.
struct Region {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
};

/// A square that stands turned in a frame: `angle` in radians, clockwise as seen on the screen.
struct TurnedSquare {
  double centreX = 0;
  double centreY = 0;
  double side = 0;
  double angle = 0;
};

/// What the bytes 0 and 255 become in a network's input.
struct ValueRange {
  float low = 0;
  float high = 1;
};

/// Cuts pieces out of BGRA frames as RGB network inputs. What lies outside the frame is black. A piece that
/// is enlarged is read in the frame's larger image, where there is one. Keeps its scratch memory: it
/// allocates only for a larger piece than ever before. One thread.
class RegionSampler {
 public:
  /// Shrinks by exact area means and enlarges bilinearly. `output` holds width x height x 3 values.
  void sample(const Frame& frame, const Region& region, int width, int height, ValueRange range,
              std::span<float> output);

  /// Bilinear, to side x side x 3 values.
  static void sample(const Frame& frame, const TurnedSquare& square, int side, ValueRange range,
                     std::span<float> output);

 private:
  /// The weighted source pixels of every output pixel along one axis.
  struct Axis {
    struct Taps {
      int first = 0;
      int count = 0;
      std::size_t weights = 0;
    };
    std::vector<Taps> taps;
    std::vector<float> weights;
    int low = 0;  // the range of source pixels that any output pixel needs
    int high = 0;
    void plan(double start, double extent, int outputs, int sourceSize);
  };

  Axis horizontal_;
  Axis vertical_;
  FrameMemory<float> row_;
};

}  // namespace sentrel::vision
