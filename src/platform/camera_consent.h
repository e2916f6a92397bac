// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <utility>
#include <vector>

#include "support/signal.h"

namespace sentrel {

/// The person's own leave to use the camera, asked for before anything opens it. A yes lasts as long as the
/// process; after a no the next request asks again. Main thread, except for `isGiven`.
class CameraConsent {
 public:
  explicit CameraConsent(bool given) : given_(given) {}

  /// Any thread.
  [[nodiscard]] bool isGiven() const { return given_.load(); }

  /// Somebody wants the camera: `answer` comes with the person's own, at once where that is known.
  void request(std::function<void(bool given)> answer) {
    if (isGiven()) {
      answer(true);
      return;
    }
    waiting_.push_back(std::move(answer));
    asked.emit();
  }

  /// The person answers; whoever waits is told.
  void answer(bool yes) {
    given_ = yes;
    for (const auto& told : std::exchange(waiting_, {})) told(yes);
  }

  /// The person is to be asked.
  Signal<> asked;

 private:
  std::atomic<bool> given_;
  std::vector<std::function<void(bool)>> waiting_;
};

}  // namespace sentrel
