// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <functional>
#include <utility>

#include "support/signal.h"

namespace sentrel {

/// The person's own leave to use the camera, asked for before anything opens it. A yes lasts as long as the
/// process; after a no the next request asks again. Main thread, except for `isGiven`.
class CameraConsent {
 public:
  static constexpr std::size_t mostWaiting = 8;

  explicit CameraConsent(bool given) : given_(given) {}

  /// Any thread.
  [[nodiscard]] bool isGiven() const { return given_.load(); }

  /// Whether the person's last answer was a no.
  [[nodiscard]] bool wasRefused() const { return refused_; }

  /// Somebody wants the camera: `answer` comes with the person's own, at once where that is known. Of more
  /// than `mostWaiting` who wait the first has long given up, and gets a no.
  void request(std::function<void(bool given)> answer) {
    if (isGiven()) {
      answer(true);
      return;
    }
    waiting_.push_back(std::move(answer));
    if (waiting_.size() > mostWaiting) {
      const auto first = std::move(waiting_.front());
      waiting_.pop_front();
      first(false);
    }
    asked.emit();
  }

  /// The person answers; whoever waits is told.
  void answer(bool yes) {
    given_ = yes;
    refused_ = !yes;
    for (const auto& told : std::exchange(waiting_, {})) told(yes);
  }

  /// The person is to be asked.
  Signal<> asked;

 private:
  std::atomic<bool> given_;
  bool refused_ = false;
  std::deque<std::function<void(bool)>> waiting_;
};

}  // namespace sentrel
