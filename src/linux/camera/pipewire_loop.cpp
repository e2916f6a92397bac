// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/pipewire_loop.h"

#include <algorithm>
#include <utility>

#include "linux/camera/pipewire_headers.h"
#include "support/fatal.h"

namespace sentrel {

namespace {

void initializeLibraryOnce() {
  static const bool initialized = [] {
    pw_init(nullptr, nullptr);
    return true;
  }();
  static_cast<void>(initialized);
}

}  // namespace

PipeWireLoop::PipeWireLoop(const char* threadName)
    : loop_((initializeLibraryOnce(), pw_thread_loop_new(threadName, nullptr))) {
  if (loop_ == nullptr) fatal("the PipeWire thread cannot be made");
  callEvent_ = pw_loop_add_event(
      get(),
      [](void* self, std::uint64_t) {
        auto* const loop = static_cast<PipeWireLoop*>(self);
        if (loop->called_ == nullptr) return;
        (*loop->called_)();
        loop->called_ = nullptr;
        pw_thread_loop_signal(loop->loop_, false);
      },
      this);
  if (callEvent_ == nullptr) fatal("no event can be made");
}

PipeWireLoop::~PipeWireLoop() {
  stop();
  pw_loop_destroy_source(get(), callEvent_);
  pw_thread_loop_destroy(loop_);
}

void PipeWireLoop::start() {
  const std::lock_guard guard(callMutex_);
  if (pw_thread_loop_start(loop_) != 0) fatal("the PipeWire thread cannot be started");
  running_ = true;
}

void PipeWireLoop::stop() {
  const std::lock_guard guard(callMutex_);
  pw_thread_loop_stop(loop_);
  running_ = false;
}

pw_loop* PipeWireLoop::get() const {
  return pw_thread_loop_get_loop(loop_);
}

void PipeWireLoop::call(const std::function<void()>& task) {
  const std::lock_guard guard(callMutex_);
  const Lock lock(*this);
  if (!running_) {
    task();
    return;
  }
  // Not by the library's own invocation: it also carries out what waits whenever it invokes something on its
  // thread itself, which is in the midst of its callbacks.
  called_ = &task;
  pw_loop_signal_event(get(), callEvent_);
  while (called_ != nullptr) pw_thread_loop_wait(loop_);
}

PipeWireLoop::Lock::Lock(const PipeWireLoop& loop) : loop_(loop.loop_) {
  pw_thread_loop_lock(loop_);
}

PipeWireLoop::Lock::~Lock() {
  pw_thread_loop_unlock(loop_);
}

LoopSource::LoopSource(PipeWireLoop& loop, std::function<void()> callback)
    : loop_(loop.get()), callback_(std::move(callback)) {}

LoopSource::~LoopSource() {
  if (source_ != nullptr) pw_loop_destroy_source(loop_, source_);
}

LoopTimer::LoopTimer(PipeWireLoop& loop, std::function<void()> callback)
    : LoopSource(loop, std::move(callback)) {
  source_ = pw_loop_add_timer(
      loop_,
      [](void* self, std::uint64_t) {
        auto* const timer = static_cast<LoopTimer*>(self);
        timer->armed_.reset();
        timer->callback_();
      },
      this);
  if (source_ == nullptr) fatal("no timer can be made");
}

void LoopTimer::arm(SteadyTime moment) {
  if (armed_ == moment) return;
  armed_ = moment;
  // The steady clock and the loop's timers are the same clock; a moment of zero would disarm.
  const auto sinceBoot =
      std::max(std::chrono::nanoseconds(1),
               std::chrono::duration_cast<std::chrono::nanoseconds>(moment.time_since_epoch()));
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceBoot);
  timespec value{};
  value.tv_sec = seconds.count();
  value.tv_nsec = (sinceBoot - seconds).count();
  pw_loop_update_timer(loop_, source_, &value, nullptr, true);
}

void LoopTimer::disarm() {
  if (!armed_) return;
  armed_.reset();
  pw_loop_update_timer(loop_, source_, nullptr, nullptr, false);
}

LoopEvent::LoopEvent(PipeWireLoop& loop, std::function<void()> callback)
    : LoopSource(loop, std::move(callback)) {
  source_ = pw_loop_add_event(
      loop_, [](void* self, std::uint64_t) { static_cast<LoopEvent*>(self)->callback_(); }, this);
  if (source_ == nullptr) fatal("no event can be made");
}

void LoopEvent::signal() {
  pw_loop_signal_event(loop_, source_);
}

LoopReadable::LoopReadable(PipeWireLoop& loop, int fileDescriptor, std::function<void()> callback)
    : LoopSource(loop, std::move(callback)) {
  source_ = pw_loop_add_io(
      loop_, fileDescriptor, SPA_IO_IN, false,
      [](void* self, int, std::uint32_t) { static_cast<LoopReadable*>(self)->callback_(); }, this);
  if (source_ == nullptr) fatal("no descriptor can be watched");
}

}  // namespace sentrel
