// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QThread>
#include <memory>
#include <utility>

#include "linux/desktop/posted_tasks.h"
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
  std::unique_ptr<PostedTasks> tasks_;
};

/// An object that is made, used and destroyed on an event thread, and owned from another one. Making, using
/// and destroying happen in the order in which they are asked for, and none of them waits.
template <class T>
class ThreadBound {
 public:
  ThreadBound() = default;
  /// `make` runs on the thread and gives a `std::unique_ptr<T>`.
  template <class Make>
  ThreadBound(std::shared_ptr<EventThread> thread, Make make)
      : object_(new Object, Destroy{std::move(thread)}) {
    object_.get_deleter().thread->post(
        [object = object_.get(), make = std::move(make)]() mutable { *object = make(); });
  }

  /// Runs `use(T&)` on the thread.
  template <class Use>
  void call(Use use) const {
    if (!object_) return;
    object_.get_deleter().thread->post([object = object_.get(), use = std::move(use)]() mutable {
      if (*object) use(**object);
    });
  }

 private:
  using Object = std::unique_ptr<T>;
  /// Runs on the thread after everything that was asked of the object before.
  struct Destroy {
    std::shared_ptr<EventThread> thread;
    void operator()(Object* object) const {
      thread->post([object] { delete object; });
    }
  };

  std::unique_ptr<Object, Destroy> object_;
};

}  // namespace sentrel
