// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

namespace sentrel::bench {

/// How bright a strip of the X screen is, as it is composed at the moment: what a person there would see.
class ScreenLight {
 public:
  /// Uses the display that the environment names. Throws std::runtime_error without one.
  ScreenLight();
  ~ScreenLight();
  ScreenLight(const ScreenLight&) = delete;
  ScreenLight& operator=(const ScreenLight&) = delete;

  /// The mean of all colours, 0 to 255. Takes about half a millisecond.
  [[nodiscard]] double now() const;

 private:
  class Connection;
  std::unique_ptr<Connection> connection_;
};

}  // namespace sentrel::bench
