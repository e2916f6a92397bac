// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <compare>
#include <vector>

#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// A program gets pictures from another one: of the screen, or of anything but a camera. Both numbers are of
/// processes, as the kernel told them to the service that hands the pictures on.
struct ScreenRead {
  pid_t maker = 0;
  pid_t reader = 0;
  auto operator<=>(const ScreenRead&) const = default;
};

/// Who gets pictures from whom. What a program says of itself has no part in it, and whether a maker is the
/// desktop is for others to find out.
class ScreenReads {
 public:
  virtual ~ScreenReads() = default;
  /// Keeps `screenReads` up to date until the registration ends; without one it may be empty. Several may be
  /// held.
  [[nodiscard]] virtual Registration observe() = 0;
  /// In order, each pair once, at most 256; none while nobody can tell. Main thread.
  [[nodiscard]] virtual const Published<std::vector<ScreenRead>>& screenReads() const = 0;
};

}  // namespace sentrel
