// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QString>
#include <QThread>
#include <memory>
#include <utility>

#include "support/task.h"

namespace sentrel {

/// A thread with a Qt event loop, for what may wait for a display server: the main thread never does. Needs
/// the Qt application.
class EventThread {
 public:
  /// `name` has at most 15 characters.
  explicit EventThread(const QString& name);
  /// Runs what is already posted, and waits for it; a thread that is stuck is left behind instead.
  ~EventThread();
  EventThread(const EventThread&) = delete;
  EventThread& operator=(const EventThread&) = delete;

  /// Runs `task` on the thread, in the order of posting. Any thread; never waits.
  void post(Task task);

 private:
  std::unique_ptr<QThread> thread_;
  std::unique_ptr<QObject> tasks_;  // lives on the thread, which runs what is sent to it
};

/// An object that is made, used and destroyed on an event thread, and owned from another one. Making, using
/// and destroying happen in the order in which they are asked for, and none of them waits.
template <class T>
class ThreadBound {
 public:
  ThreadBound() = default;
  /// `make` runs on the thread and gives a `std::unique_ptr<T>`.
  template <class Make>
  ThreadBound(std::shared_ptr<EventThread> thread, Make make) : thread_(std::move(thread)) {
    thread_->post([object = object_, make = std::move(make)]() mutable { *object = make(); });
  }
  ThreadBound(ThreadBound&& other) noexcept { swap(other); }
  ThreadBound& operator=(ThreadBound&& other) noexcept {
    ThreadBound former;
    former.swap(*this);
    swap(other);
    return *this;
  }
  ThreadBound(const ThreadBound&) = delete;
  ThreadBound& operator=(const ThreadBound&) = delete;
  ~ThreadBound() {
    if (thread_) thread_->post([object = std::move(object_)] { object->reset(); });
  }

  /// Runs `use(T&)` on the thread.
  template <class Use>
  void call(Use use) const {
    if (!thread_) return;
    thread_->post([object = object_, use = std::move(use)]() mutable {
      if (*object) use(**object);
    });
  }

 private:
  void swap(ThreadBound& other) noexcept {
    std::swap(thread_, other.thread_);
    std::swap(object_, other.object_);
  }

  std::shared_ptr<EventThread> thread_;
  std::shared_ptr<std::unique_ptr<T>> object_ = std::make_shared<std::unique_ptr<T>>();
};

}  // namespace sentrel
