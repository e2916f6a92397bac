// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace sentrel {

/// Feedback to be felt. Main thread; silently nothing where there is no such thing.
class Haptics {
 public:
  virtual ~Haptics() = default;
  /// The generic pattern, now.
  virtual void perform() = 0;
};

}  // namespace sentrel
