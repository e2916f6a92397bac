// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>

#include "linux/desktop/event_thread.h"

namespace sentrel {

/// An object that is made, used and destroyed on an event thread, and owned from another one.
template <class T>
class Resident {
 public:
  Resident() = default;

  /// `make` runs on the thread and gives a `std::unique_ptr<T>`.
  template <class Make>
  Resident(std::shared_ptr<EventThread> thread, Make make) : thread_(std::move(thread)) {
    thread_->post([object = object_, make = std::move(make)]() mutable { *object = make(); });
  }
  Resident(Resident&& other) noexcept
      : thread_(std::move(other.thread_)), object_(std::exchange(other.object_, nullptr)) {}
  Resident& operator=(Resident&& other) noexcept {
    if (this != &other) {
      end();
      thread_ = std::move(other.thread_);
      object_ = std::exchange(other.object_, nullptr);
    }
    return *this;
  }
  Resident(const Resident&) = delete;
  Resident& operator=(const Resident&) = delete;
  ~Resident() { end(); }

  explicit operator bool() const { return thread_ != nullptr; }

  /// Runs `use(T&)` on the thread.
  template <class Use>
  void call(Use use) const {
    if (!thread_) return;
    thread_->post([object = object_, use = std::move(use)]() mutable {
      if (*object) use(**object);
    });
  }

 private:
  void end() {
    if (!thread_) return;
    thread_->post([object = std::move(object_)] { object->reset(); });
    thread_.reset();
  }

  std::shared_ptr<EventThread> thread_;
  std::shared_ptr<std::unique_ptr<T>> object_ = std::make_shared<std::unique_ptr<T>>();
};

}  // namespace sentrel
