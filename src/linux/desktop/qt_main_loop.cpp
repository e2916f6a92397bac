// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/qt_main_loop.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <QObject>
#include <QSocketNotifier>
#include <QTimerEvent>
#include <limits>
#include <map>
#include <mutex>
#include <utility>

#include "support/fatal.h"
#include "support/serial_queue.h"

namespace sentrel {

/// Posted tasks. An event descriptor wakes the loop: unlike a posted Qt event it costs no allocation, and it
/// stays readable until the ring is empty, so that a nested event loop goes on where the outer one stopped.
class QtMainLoop::Turns {
 public:
  Turns()
      : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), notifier_(descriptor_, QSocketNotifier::Read) {
    if (descriptor_ < 0) fatal("no event descriptor for the main loop");
    QObject::connect(&notifier_, &QSocketNotifier::activated, &notifier_, [this]() noexcept { runTurn(); });
  }
  ~Turns() {
    notifier_.setEnabled(false);
    close(descriptor_);
  }
  Turns(const Turns&) = delete;
  Turns& operator=(const Turns&) = delete;

  void post(Task task) {
    const std::lock_guard lock(mutex_);
    tasks_.push(std::move(task));
    if (tasks_.size() == 1) eventfd_write(descriptor_, 1);
  }

  [[nodiscard]] bool empty() {
    const std::lock_guard lock(mutex_);
    return tasks_.empty();
  }

 private:
  /// Runs what was posted before this turn; what those tasks post waits for the next one, so that timers and
  /// windows get theirs.
  void runTurn() {
    std::unique_lock lock(mutex_);
    for (std::size_t left = tasks_.size(); left > 0 && !tasks_.empty(); --left) {
      Task task = tasks_.pop();
      if (tasks_.empty()) {
        eventfd_t ignored = 0;
        eventfd_read(descriptor_, &ignored);
      }
      lock.unlock();
      task();
      task = Task();  // what the task holds is released outside the lock
      lock.lock();
    }
  }

  std::mutex mutex_;
  TaskRing tasks_;
  int descriptor_;
  QSocketNotifier notifier_;
};

/// Timers by Qt's timer id. A timer that fires is kept alive while it runs, because its own task may end it.
class QtMainLoop::Timers final : public QObject {
 public:
  static Registration start(const std::shared_ptr<Timers>& self, std::int64_t delayMs, bool repeats,
                            Task task) {
    if (delayMs < 0 || delayMs > std::numeric_limits<int>::max()) fatal("a timer's delay is out of range");
    const int id = self->startTimer(static_cast<int>(delayMs), Qt::PreciseTimer);
    if (id == 0) return {};  // the process ends and Qt has let its timers go, but this thread still runs
    const auto entry = std::make_shared<Entry>(Entry{std::move(task), repeats});
    self->entries_.emplace(id, entry);
    // Qt uses the ids of ended timers again, so the entry, not the id alone, tells whose timer it is.
    return Registration([timers = std::weak_ptr(self), id, weak = std::weak_ptr(entry)] {
      const auto owner = timers.lock();
      const auto live = weak.lock();
      if (owner && live) owner->end(id, live);
    });
  }

 protected:
  void timerEvent(QTimerEvent* event) noexcept override {
    const auto found = entries_.find(event->timerId());
    if (found == entries_.end()) return;
    const std::shared_ptr<Entry> entry = found->second;
    if (!entry->repeats) end(event->timerId(), entry);
    entry->task();
  }

 private:
  struct Entry {
    Task task;
    bool repeats;
  };

  void end(int id, const std::shared_ptr<Entry>& entry) {
    const auto found = entries_.find(id);
    if (found == entries_.end() || found->second != entry) return;
    killTimer(id);
    entries_.erase(found);
  }

  std::map<int, std::shared_ptr<Entry>> entries_;
};

QtMainLoop::QtMainLoop() : turns_(std::make_unique<Turns>()), timers_(std::make_shared<Timers>()) {}
QtMainLoop::~QtMainLoop() = default;

void QtMainLoop::post(Task task) {
  turns_->post(std::move(task));
}

Registration QtMainLoop::after(std::int64_t delayMs, Task task) {
  return Timers::start(timers_, delayMs, false, std::move(task));
}

Registration QtMainLoop::every(std::int64_t intervalMs, Task task) {
  return Timers::start(timers_, intervalMs, true, std::move(task));
}

bool QtMainLoop::idle() const {
  return turns_->empty();
}

}  // namespace sentrel
