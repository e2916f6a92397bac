// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <functional>
#include <utility>

#include "support/registration.h"
#include "support/signal.h"

namespace sentrel {

/// A value that others watch. A subscriber gets the current value at once and then every assigned value,
/// synchronously and in the order of assignment, also when a subscriber assigns during a delivery. Assigning
/// an equal value still publishes: dropping repeats is the business of who assigns or who subscribes. One
/// thread (the main thread).
template <class T>
class Published {
 public:
  explicit Published(T initial = T{}) : value_(std::move(initial)) {}
  Published(const Published&) = delete;

  [[nodiscard]] const T& get() const { return value_; }
  operator const T&() const { return value_; }  // NOLINT(google-explicit-constructor): reads like the value

  Published& operator=(T value) {
    set(std::move(value));
    return *this;
  }
  Published& operator=(const Published&) = delete;

  void set(T value) {
    value_ = std::move(value);
    pending_.push_back(value_);
    if (delivering_) return;
    delivering_ = true;
    while (!pending_.empty()) {
      const T next = std::move(pending_.front());
      pending_.pop_front();
      changed_.emit(next);
    }
    delivering_ = false;
  }

  Registration subscribe(std::function<void(const T&)> subscriber) const {
    // Copied, because the subscriber may assign while it is being told.
    const T current = value_;
    Registration registration = changed_.connect(subscriber);
    subscriber(current);
    return registration;
  }

  /// As `subscribe`, without the delivery of the current value.
  Registration onChange(std::function<void(const T&)> subscriber) const {
    return changed_.connect(std::move(subscriber));
  }

 private:
  T value_;
  mutable Signal<T> changed_;  // watching does not change the value
  std::deque<T> pending_;
  bool delivering_ = false;
};

}  // namespace sentrel
