// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/service_connection.h"

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

/// Hears about the end of the connection.
struct ServiceConnection::Listener {
  spa_hook hook{};
  LoopEvent& broken;

  Listener(pw_core* core, LoopEvent& event) : broken(event) {
    static const pw_core_events events = [] {
      pw_core_events table{};
      table.version = PW_VERSION_CORE_EVENTS;
      table.error = [](void* self, std::uint32_t id, int, int result, const char*) {
        // Other errors belong to single objects, whose owners hear of them.
        if (id == PW_ID_CORE && result == -EPIPE) static_cast<Listener*>(self)->broken.signal();
      };
      return table;
    }();
    addListener(core, &hook, &events, this);
  }
  ~Listener() { spa_hook_remove(&hook); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
};

/// Calls back whenever a socket of the daemon is put into a folder.
class ServiceConnection::FolderWatch {
 public:
  FolderWatch(PipeWireLoop& loop, const std::string& folder, std::function<void()> added)
      : descriptor_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), added_(std::move(added)) {
    if (descriptor_ < 0) return;
    if (inotify_add_watch(descriptor_, folder.c_str(), IN_CREATE | IN_MOVED_TO | IN_ONLYDIR) < 0) return;
    readable_ = std::make_unique<LoopReadable>(loop, descriptor_, [this] { drain(); });
  }
  ~FolderWatch() {
    readable_.reset();
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

  int descriptor_;
  std::function<void()> added_;
  std::unique_ptr<LoopReadable> readable_;
};

ServiceConnection::ServiceConnection(PipeWireLoop& loop, Events events)
    : loop_(loop),
      events_(std::move(events)),
      retryTimer_(loop, [this] { attempt(); }),
      broken_(loop, [this] {
        disconnect();
        retry();
      }) {}

ServiceConnection::~ServiceConnection() {
  if (context_ != nullptr) pw_context_destroy(context_);
}

void ServiceConnection::open() {
  if (core_ == nullptr) retryTimer_.arm(std::chrono::steady_clock::now());
}

void ServiceConnection::close() {
  retryTimer_.disarm();
  watch_.reset();
  disconnect();
}

void ServiceConnection::setNeeded(bool needed) {
  if (std::exchange(needed_, needed) == needed || !needed || core_ != nullptr) return;
  pause_ = firstPause;
  open();
}

void ServiceConnection::attempt() {
  if (core_ != nullptr) return;
  if (context_ == nullptr) {
    // No realtime threads: to have them, newer versions of the library wait for the session bus.
    context_ = pw_context_new(loop_.get(), pw_properties_new("module.rt", "false", nullptr), 0);
  }
  if (context_ != nullptr) core_ = pw_context_connect(context_, nullptr, 0);
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

void ServiceConnection::disconnect() {
  if (core_ == nullptr) return;
  events_.lost();
  listener_.reset();
  pw_core_disconnect(std::exchange(core_, nullptr));
}

void ServiceConnection::retry() {
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
  if (!needed_ && pause_ >= longestPause) return;  // from here on the watch, or a need, wakes it
  pause_ = std::clamp(pause_ * 2, firstPause, longestPause);
  retryTimer_.arm(std::chrono::steady_clock::now() + pause_);
}

}  // namespace sentrel
