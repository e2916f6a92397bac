// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>
#include <optional>

#include "linux/camera/raw_picture.h"

namespace sentrel {

/// A camera's picture on its way to the camera queue. The camera may take its memory away at any time; then
/// the PipeWire loop waits for a reader that is just at it.
class PictureLoan {
 public:
  /// PipeWire loop.
  void lend(const RawPicture& picture) {
    const std::lock_guard lock(mutex_);
    picture_ = picture;
  }

  /// No reader has the picture any more once this returns. PipeWire loop.
  void revoke() {
    const std::lock_guard lock(mutex_);
    picture_.reset();
  }

  /// Calls `read` with the picture and ends the loan; false when there is none. Camera queue; `read` must not
  /// wait for the PipeWire loop.
  template <class Read>
  bool use(Read&& read) {
    const std::lock_guard lock(mutex_);
    if (!picture_) return false;
    read(*picture_);
    picture_.reset();
    return true;
  }

 private:
  std::mutex mutex_;
  std::optional<RawPicture> picture_;
};

}  // namespace sentrel
