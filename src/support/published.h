// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "support/registration.h"

namespace sentrel {

/// A notification: every observer present when `emit` begins, and still registered when its turn comes, is
/// called once, in the order of registration, synchronously. One thread (the main thread, unless the owner
/// says otherwise).
template <class... Args>
class Signal {
 public:
  using Observer = std::function<void(const Args&...)>;

  Signal() = default;
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;

  Registration connect(Observer observer) {
    auto entry = std::make_shared<Observer>(std::move(observer));
    entries_->push_back(entry);
    return Registration([entries = std::weak_ptr(entries_), entry] {
      *entry = nullptr;
      if (auto list = entries.lock()) std::erase(*list, entry);
    });
  }

  void emit(const Args&... args) const {
    // The copy keeps the iteration valid while observers come and go.
    const auto current = *entries_;
    for (const auto& entry : current) {
      if (const Observer observer = *entry) observer(args...);
    }
  }

  [[nodiscard]] std::size_t observerCount() const { return entries_->size(); }

 private:
  using Entries = std::vector<std::shared_ptr<Observer>>;
  std::shared_ptr<Entries> entries_ = std::make_shared<Entries>();
};

/// A value that others watch. A subscriber gets the current value at once and then every assigned value,
/// synchronously and in the order of assignment, also when a subscriber assigns during a delivery. Assigning
/// an equal value publishes it again; `assignIfChanged` does not. One thread (the main thread).
template <class T>
class Published {
 public:
  explicit Published(T initial = T{}) : value_(std::move(initial)) {}
  Published(const Published&) = delete;
  Published& operator=(const Published&) = delete;

  [[nodiscard]] const T& get() const { return value_; }
  operator const T&() const { return value_; }  // NOLINT(google-explicit-constructor): reads like the value

  Published& operator=(T value) {
    value_ = std::move(value);
    pending_.push_back(value_);
    if (delivering_) return *this;
    delivering_ = true;
    while (!pending_.empty()) {
      const T next = std::move(pending_.front());
      pending_.pop_front();
      changed_.emit(next);
    }
    delivering_ = false;
    return *this;
  }

  void assignIfChanged(T value) {
    if (value_ != value) *this = std::move(value);
  }

  Registration subscribe(std::function<void(const T&)> subscriber) const {
    // Copied, because the subscriber may assign while it is called.
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
