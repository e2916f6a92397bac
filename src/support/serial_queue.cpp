// SPDX-License-Identifier: Apache-2.0
#include "support/serial_queue.h"

#include <pthread.h>

#include <condition_variable>
#include <thread>

namespace sentrel {

void TaskRing::push(Task task) {
  if (count_ == slots_.size()) {
    std::vector<Task> larger(slots_.empty() ? 16 : slots_.size() * 2);
    for (std::size_t i = 0; i < count_; ++i) larger[i] = std::move(slots_[(first_ + i) % slots_.size()]);
    slots_ = std::move(larger);
    first_ = 0;
  }
  slots_[(first_ + count_) % slots_.size()] = std::move(task);
  ++count_;
}

Task TaskRing::pop() {
  Task task = std::move(slots_[first_]);
  first_ = (first_ + 1) % slots_.size();
  --count_;
  return task;
}

struct SerialQueue::State {
  std::mutex mutex;
  std::condition_variable wake;
  TaskRing tasks;
  bool ending = false;
  std::thread thread;

  void run() {
    std::unique_lock lock(mutex);
    for (;;) {
      wake.wait(lock, [this] { return ending || !tasks.empty(); });
      if (tasks.empty()) return;
      Task task = tasks.pop();
      lock.unlock();
      task();
      task = Task();  // what the task holds is released on this queue, outside the lock
      lock.lock();
    }
  }
};

SerialQueue::SerialQueue(const std::string& label) : state_(std::make_shared<State>()) {
  constexpr std::size_t threadNameLength = 15;
  const std::string name =
      label.size() > threadNameLength ? label.substr(label.size() - threadNameLength) : label;
  state_->thread = std::thread([state = state_, name] {
    pthread_setname_np(pthread_self(), name.c_str());
    state->run();
  });
}

SerialQueue::~SerialQueue() {
  if (!state_) return;
  {
    const std::lock_guard lock(state_->mutex);
    state_->ending = true;
  }
  state_->wake.notify_one();
  if (std::this_thread::get_id() == state_->thread.get_id()) {
    state_->thread.detach();
  } else {
    state_->thread.join();
  }
}

void SerialQueue::async(Task task) {
  {
    const std::lock_guard lock(state_->mutex);
    state_->tasks.push(std::move(task));
  }
  state_->wake.notify_one();
}

void SerialQueue::sync(Task task) {
  std::mutex mutex;
  std::condition_variable finished;
  bool done = false;
  async([&] {
    task();
    const std::lock_guard lock(mutex);
    done = true;
    finished.notify_one();
  });
  std::unique_lock lock(mutex);
  finished.wait(lock, [&] { return done; });
}

}  // namespace sentrel
