// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/event_thread.h"

#include <pthread.h>

#include <QCoreApplication>
#include <QEvent>
#include <QEventLoop>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "linux/desktop/qt_main_loop.h"

namespace sentrel {

namespace {

constexpr std::chrono::seconds patienceAtEnd{1};

}  // namespace

struct EventThread::State {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<Task> early;       // posted before the loop was there
  QtMainLoop* loop = nullptr;    // while it runs
  QEventLoop* events = nullptr;  // used on the thread alone
  bool ended = false;            // the loop was there and has gone
  bool finished = false;

  void run() {
    runEvents();
    const std::lock_guard lock(mutex);
    finished = true;
    changed.notify_all();
  }

 private:
  void runEvents() {
    QEventLoop ownEvents;  // first: it brings what notices readable sockets
    QtMainLoop ownLoop;
    {
      const std::lock_guard lock(mutex);
      for (Task& task : early) ownLoop.post(std::move(task));
      early.clear();
      loop = &ownLoop;
      events = &ownEvents;
    }
    ownEvents.exec();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    const std::lock_guard lock(mutex);
    loop = nullptr;
    ended = true;
  }
};

EventThread::EventThread(std::string name) : state_(std::make_shared<State>()) {
  thread_ = std::thread([state = state_, name = std::move(name)] {
    pthread_setname_np(pthread_self(), name.c_str());
    state->run();
  });
}

EventThread::~EventThread() {
  post([state = state_.get()] { state->events->quit(); });
  bool finished = false;
  {
    std::unique_lock lock(state_->mutex);
    finished = state_->changed.wait_for(lock, patienceAtEnd, [this] { return state_->finished; });
  }
  if (finished) {
    thread_.join();
  } else {
    thread_.detach();
  }
}

void EventThread::post(Task task) {
  const std::lock_guard lock(state_->mutex);
  if (state_->loop != nullptr) {
    state_->loop->post(std::move(task));
  } else if (!state_->ended) {
    state_->early.push_back(std::move(task));
  }
}

}  // namespace sentrel
