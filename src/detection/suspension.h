// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <utility>

#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// Whether frames are ignored. Assigned and watched on the main thread, read on any thread.
class Suspension {
 public:
  Suspension& operator=(bool suspended) {
    if (suspended_.exchange(suspended) != suspended) changed_.emit();
    return *this;
  }
  operator bool() const { return suspended_; }  // NOLINT(google-explicit-constructor): reads like the value

  /// `observer` is called after every change.
  Registration onChange(std::function<void()> observer) { return changed_.connect(std::move(observer)); }

 private:
  std::atomic<bool> suspended_ = false;
  Signal<> changed_;
};

}  // namespace sentrel
