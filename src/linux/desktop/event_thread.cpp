// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/event_thread.h"

#include <QDeadlineTimer>
#include <chrono>

namespace sentrel {

namespace {

constexpr std::chrono::seconds endTimeout{1};

}  // namespace

EventThread::EventThread(const QString& name)
    : thread_(std::make_unique<QThread>()), tasks_(std::make_unique<PostedTasks>(thread_.get())) {
  thread_->setObjectName(name);  // the thread's name for the system, too
  thread_->start();
}

EventThread::~EventThread() {
  post([thread = thread_.get()] { thread->quit(); });
  if (thread_->wait(QDeadlineTimer(endTimeout))) return;
  static_cast<void>(thread_.release());
  static_cast<void>(tasks_.release());
}

void EventThread::post(Task task) {
  tasks_->post(std::move(task));
}

}  // namespace sentrel
