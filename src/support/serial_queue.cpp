// SPDX-License-Identifier: Apache-2.0
#include "support/serial_queue.h"

#include <pthread.h>

#include <algorithm>
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
  struct Later {
    std::chrono::steady_clock::time_point moment;
    Task task;
  };

  std::mutex mutex;
  std::condition_variable wake;
  TaskRing tasks;
  std::vector<Later> later;
  bool ending = false;

  void run() {
    std::unique_lock lock(mutex);
    while (waitForTask(lock)) {
      Task task = tasks.pop();
      lock.unlock();
      task();
      task = Task();  // what the task holds is released on this queue, outside the lock
      lock.lock();
    }
  }

  /// False once the queue has ended and nothing is left.
  bool waitForTask(std::unique_lock<std::mutex>& lock) {
    for (;;) {
      const auto next = std::ranges::min_element(later, {}, &Later::moment);
      if (next != later.end() && std::chrono::steady_clock::now() >= next->moment) {
        tasks.push(std::move(next->task));
        later.erase(next);
      }
      if (!tasks.empty()) return true;
      if (ending) return false;
      if (later.empty()) {
        wake.wait(lock);
      } else {
        wake.wait_until(lock, std::chrono::steady_clock::time_point(next->moment));
      }
    }
  }
};

/// Ends with the last queue that runs on it.
struct SerialQueue::Thread {
  const std::shared_ptr<State> state = std::make_shared<State>();
  std::thread thread{[state = state] { state->run(); }};

  Thread() = default;
  ~Thread() {
    {
      const std::lock_guard lock(state->mutex);
      state->ending = true;
    }
    state->wake.notify_one();
    if (isCurrent()) {
      thread.detach();
    } else {
      thread.join();
    }
  }
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  [[nodiscard]] bool isCurrent() const { return std::this_thread::get_id() == thread.get_id(); }

  void rename(const std::string& label) {
    constexpr std::size_t mostLength = 15;
    const std::string name = label.size() > mostLength ? label.substr(label.size() - mostLength) : label;
    pthread_setname_np(thread.native_handle(), name.c_str());
  }
};

SerialQueue::SerialQueue(const std::string& label) : thread_(std::make_shared<Thread>()) {
  thread_->rename(label);
}

SerialQueue::SerialQueue(const std::string& label, const SerialQueue& other) : thread_(other.thread_) {
  thread_->rename(label);
}

SerialQueue::~SerialQueue() {
  // What is queued here is done before the thread goes on for another queue.
  if (thread_ && !thread_->isCurrent()) SerialQueue::sync([] {});
}

void SerialQueue::async(Task task) {
  {
    const std::lock_guard lock(thread_->state->mutex);
    thread_->state->tasks.push(std::move(task));
  }
  thread_->state->wake.notify_one();
}

void SerialQueue::asyncAt(std::chrono::steady_clock::time_point moment, Task task) {
  {
    const std::lock_guard lock(thread_->state->mutex);
    thread_->state->later.push_back({moment, std::move(task)});
  }
  thread_->state->wake.notify_one();
}

void SerialQueue::sync(Task task) {
  std::mutex mutex;
  std::condition_variable finished;
  bool done = false;
  SerialQueue::async([&] {
    task();
    const std::lock_guard lock(mutex);
    done = true;
    finished.notify_one();
  });
  std::unique_lock lock(mutex);
  finished.wait(lock, [&] { return done; });
}

}  // namespace sentrel
