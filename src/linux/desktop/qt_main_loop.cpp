// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/qt_main_loop.h"

#include <QPointer>
#include <QTimer>
#include <ctime>
#include <limits>
#include <utility>

#include "support/fatal.h"

namespace sentrel {

namespace {

std::int64_t readMs(clockid_t id) {
  timespec time{};
  if (clock_gettime(id, &time) != 0) fatal("the system clock cannot be read");
  return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

}  // namespace

void QtMainLoop::post(Task task) {
  posted_.post(std::move(task));
}

Registration QtMainLoop::after(std::int64_t delayMs, Task task) {
  return start(delayMs, false, std::move(task));
}

Registration QtMainLoop::every(std::int64_t intervalMs, Task task) {
  return start(intervalMs, true, std::move(task));
}

Registration QtMainLoop::start(std::int64_t delayMs, bool repeats, Task task) {
  if (delayMs < 0 || delayMs > std::numeric_limits<int>::max()) fatal("a timer's delay is out of range");
  auto* const timer = new QTimer(&timers_);
  timer->setTimerType(Qt::PreciseTimer);
  timer->setSingleShot(!repeats);
  // The registration's, so that the end releases what the task holds, unless it ends itself.
  const auto owned = std::make_shared<Task>(std::move(task));
  QObject::connect(timer, &QTimer::timeout, timer, [timer, repeats, weak = std::weak_ptr(owned)]() noexcept {
    const auto running = weak.lock();
    if (!running) return;
    if (repeats) return (*running)();
    timer->deleteLater();
    Task once = std::move(*running);
    once();
  });
  timer->start(static_cast<int>(delayMs));
  return Registration([timer = QPointer(timer), owned] {
    if (!timer) return;
    timer->stop();
    timer->deleteLater();
  });
}

SystemClock::SystemClock() : offsetMs_(checkedSubtract(readMs(CLOCK_REALTIME), readMs(CLOCK_BOOTTIME))) {}

std::int64_t SystemClock::nowMs() const {
  return checkedAdd(readMs(CLOCK_BOOTTIME), offsetMs_);
}

}  // namespace sentrel
