// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

#include "support/task.h"

namespace sentrel {

/// Owns one subscription, timer, observer or monitor: destroying or resetting it ends what it stands for, and
/// assigning a new one replaces the old. Ending it twice, or after its source is gone, is harmless.
class [[nodiscard]] Registration {
 public:
  Registration() = default;
  explicit Registration(Task end) : end_(std::move(end)) {}
  Registration(Registration&&) noexcept = default;
  Registration& operator=(Registration&& other) noexcept {
    if (this != &other) {
      reset();
      end_ = std::move(other.end_);
    }
    return *this;
  }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;
  ~Registration() { reset(); }

  void reset() {
    Task end = std::move(end_);
    end();
  }
  explicit operator bool() const { return static_cast<bool>(end_); }

 private:
  Task end_;
};

}  // namespace sentrel
