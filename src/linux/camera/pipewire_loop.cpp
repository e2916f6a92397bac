// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/pipewire_loop.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "linux/camera/pipewire_headers.h"
#include "support/fatal.h"

namespace sentrel {

namespace {

constexpr std::chrono::milliseconds firstPause{100};
constexpr std::chrono::milliseconds longestPause{5000};

/// Sockets, and the lock files beside them, are named after the daemon.
constexpr std::string_view socketPrefix = "pipewire";

/// Where PipeWire's clients look for the daemon's socket; empty when they look nowhere.
std::string socketFolder() {
  for (const char* variable : {"PIPEWIRE_RUNTIME_DIR", "XDG_RUNTIME_DIR", "USERPROFILE"}) {
    const char* folder = std::getenv(variable);
    if (folder != nullptr && *folder != '\0') return folder;
  }
  return {};
}

}  // namespace

PipeWireLoop::PipeWireLoop(const char* threadName)
    : loop_((pw_init(nullptr, nullptr), pw_thread_loop_new(threadName, nullptr))) {
  if (loop_ == nullptr) fatal("the PipeWire thread cannot be made");
  callEvent_.emplace(get(), [this] {
    if (called_ == nullptr) return;
    (*called_)();
    called_ = nullptr;
    pw_thread_loop_signal(loop_, false);
  });
}

PipeWireLoop::~PipeWireLoop() {
  stop();
  callEvent_.reset();
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
  callEvent_->signal();
  while (called_ != nullptr) pw_thread_loop_wait(loop_);
}

void PipeWireLoop::lock() const {
  pw_thread_loop_lock(loop_);
}

void PipeWireLoop::unlock() const {
  pw_thread_loop_unlock(loop_);
}

LoopSource::LoopSource(pw_loop* loop, std::function<void()> callback)
    : loop_(loop), callback_(std::move(callback)) {}

LoopSource::~LoopSource() {
  if (source_ != nullptr) pw_loop_destroy_source(loop_, source_);
}

LoopTimer::LoopTimer(pw_loop* loop, std::function<void()> callback) : LoopSource(loop, std::move(callback)) {
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

LoopEvent::LoopEvent(pw_loop* loop, std::function<void()> callback) : LoopSource(loop, std::move(callback)) {
  source_ = pw_loop_add_event(
      loop_, [](void* self, std::uint64_t) { static_cast<LoopEvent*>(self)->callback_(); }, this);
  if (source_ == nullptr) fatal("no event can be made");
}

void LoopEvent::signal() {
  pw_loop_signal_event(loop_, source_);
}

/// Hears about the end of the connection.
struct PipeWireConnection::Listener {
  spa_hook hook{};
  LoopEvent& broken;

  Listener(pw_core* core, LoopEvent& event) : broken(event) {
    static constexpr pw_core_events events{
        .version = PW_VERSION_CORE_EVENTS,
        .error = [](void* self, std::uint32_t id, int, int result, const char*) {
          // Other errors belong to single objects, whose owners hear of them.
          if (id == PW_ID_CORE && result == -EPIPE) static_cast<Listener*>(self)->broken.signal();
        }};
    addListener(core, &hook, &events, this);
  }
  ~Listener() { spa_hook_remove(&hook); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
};

/// Calls back whenever a socket of the daemon is put into a folder.
class PipeWireConnection::FolderWatch {
 public:
  FolderWatch(const PipeWireLoop& loop, const std::string& folder, std::function<void()> added)
      : loop_(loop.get()), descriptor_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), added_(std::move(added)) {
    if (inotify_add_watch(descriptor_, folder.c_str(), IN_CREATE | IN_MOVED_TO | IN_ONLYDIR) < 0) return;
    readable_ = pw_loop_add_io(
        loop_, descriptor_, SPA_IO_IN, false,
        [](void* self, int, std::uint32_t) { static_cast<FolderWatch*>(self)->drain(); }, this);
    if (readable_ == nullptr) fatal("no descriptor can be watched");
  }
  ~FolderWatch() {
    if (readable_ != nullptr) pw_loop_destroy_source(loop_, readable_);
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;

 private:
  void drain() {
    alignas(inotify_event) std::array<char, 4096> events;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    bool ours = false;
    for (ssize_t bytes = 0; (bytes = read(descriptor_, events.data(), events.size())) > 0;) {
      for (ssize_t at = 0; at < bytes;) {
        const auto* const event = reinterpret_cast<const inotify_event*>(events.data() + at);
        ours = ours || (event->len > 0 && std::string_view(event->name).starts_with(socketPrefix));
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
    if (ours) added_();
  }

  pw_loop* loop_;
  int descriptor_;
  std::function<void()> added_;
  spa_source* readable_ = nullptr;
};

PipeWireConnection::PipeWireConnection(PipeWireLoop& loop, Events events)
    : loop_(loop),
      events_(std::move(events)),
      retryTimer_(loop.get(), [this] { attempt(); }),
      broken_(loop.get(), [this] {
        disconnect();
        retry();
      }) {}

PipeWireConnection::~PipeWireConnection() {
  if (context_ != nullptr) pw_context_destroy(context_);
}

void PipeWireConnection::open() {
  if (std::exchange(open_, true)) return;
  pause_ = std::chrono::milliseconds(0);
  retryTimer_.arm(std::chrono::steady_clock::now());
}

void PipeWireConnection::close() {
  open_ = false;
  socket_.reset();
  retryTimer_.disarm();
  watch_.reset();
  disconnect();
}

void PipeWireConnection::useRemote(std::shared_ptr<const int> socket) {
  if (!open_) return;
  socket_ = std::move(socket);
  disconnect();
  pause_ = std::chrono::milliseconds(0);
  retryTimer_.arm(std::chrono::steady_clock::now());
}

void PipeWireConnection::attempt() {
  if (core_ != nullptr) return;
  if (context_ == nullptr) {
    // No realtime threads: to have them, newer versions of the library wait for the session bus.
    context_ = pw_context_new(loop_.get(), pw_properties_new("module.rt", "false", nullptr), 0);
  }
  isRemote_ = socket_ != nullptr;
  if (context_ != nullptr && isRemote_) {
    const auto socket = std::exchange(socket_, nullptr);
    core_ = pw_context_connect_fd(context_, fcntl(*socket, F_DUPFD_CLOEXEC, 3), nullptr, 0);
  } else if (context_ != nullptr) {
    core_ = pw_context_connect(context_, nullptr, 0);
  }
  if (core_ == nullptr) {
    events_.absent();
    retry();
    return;
  }
  pause_ = std::chrono::milliseconds(0);
  watch_.reset();
  listener_ = std::make_unique<Listener>(core_, broken_);
  events_.connected(core_);
}

void PipeWireConnection::disconnect() {
  if (core_ == nullptr) return;
  events_.lost();
  listener_.reset();
  pw_core_disconnect(std::exchange(core_, nullptr));
}

void PipeWireConnection::retry() {
  if (!watch_) {
    const std::string folder = socketFolder();
    if (!folder.empty()) {
      watch_ = std::make_unique<FolderWatch>(loop_, folder, [this] {
        // The socket appears before the daemon listens on it: the next attempts follow soon.
        pause_ = firstPause;
        retryTimer_.arm(std::chrono::steady_clock::now() + pause_ / 2);
      });
    }
  }
  pause_ = std::clamp(pause_ * 2, firstPause, longestPause);
  retryTimer_.arm(std::chrono::steady_clock::now() + pause_);
}

}  // namespace sentrel
