// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QRect>
#include <string>

#include "stage/headless_desktop.h"

namespace sentrel::test {

/// Monitors of 1920 x 1080 on the X server of a `HeadlessDesktop`, which must be made as wide as two. Main
/// thread.
class X11Outputs {
 public:
  static constexpr int width = 1920;
  static constexpr int height = 1080;

  /// One monitor is left.
  explicit X11Outputs(HeadlessDesktop& desktop) : desktop_(desktop) {
    // The server has one output; none of its numbers but the size means anything.
    randr({"--newmode", "single", "0", "1920", "0", "0", "1920", "1080", "0", "0", "1080"});
    randr({"--addmode", "screen", "single"});
    removeSecond();
  }

  /// To the right of the first one.
  QRect addSecond() {
    randr({"--output", "screen", "--mode", "3840x1080"});
    randr({"--setmonitor", "first", "1920/508x1080/286+0+0", "screen"});
    randr({"--setmonitor", "second", "1920/508x1080/286+1920+0", "none"});
    hasSecond_ = true;
    return {width, 0, width, height};
  }

  void removeSecond() {
    if (hasSecond_) {
      for (const char* name : {"second", "first"}) randr({"--delmonitor", name});
    }
    hasSecond_ = false;
    randr({"--output", "screen", "--mode", "single"});
  }

 private:
  void randr(const std::vector<std::string>& arguments) const { desktop_.run("xrandr", arguments); }

  HeadlessDesktop& desktop_;
  bool hasSecond_ = false;
};

}  // namespace sentrel::test
