// SPDX-License-Identifier: Apache-2.0
#include "linux/display/wayland_connection.h"

#include <poll.h>

#include <QAbstractEventDispatcher>
#include <cerrno>
#include <utility>

namespace sentrel {

std::unique_ptr<WaylandConnection> WaylandConnection::open(const std::string& display,
                                                           GlobalHandlers globals) {
  wl_display* raw = wl_display_connect(display.c_str());
  if (raw == nullptr) return nullptr;
  return std::unique_ptr<WaylandConnection>(new WaylandConnection(raw, std::move(globals)));
}

WaylandConnection::WaylandConnection(wl_display* display, GlobalHandlers globals)
    : display_(display), globals_(std::move(globals)), registry_(wl_display_get_registry(display)) {
  static constexpr wl_registry_listener listener{
      .global =
          [](void* self, wl_registry* /*registry*/, std::uint32_t name, const char* interface,
             std::uint32_t version) {
            static_cast<WaylandConnection*>(self)->globals_.appeared(name, interface, version);
          },
      .global_remove =
          [](void* self, wl_registry* /*registry*/, std::uint32_t name) {
            static_cast<WaylandConnection*>(self)->globals_.removed(name);
          },
  };
  wl_registry_add_listener(registry_.get(), &listener, this);
}

void WaylandConnection::whenAnswered(std::function<void()> answered) {
  static constexpr wl_callback_listener listener{.done = [](void* self, wl_callback*, std::uint32_t) {
    auto& connection = *static_cast<WaylandConnection*>(self);
    connection.answer_.reset();
    // It may ask for the next answer.
    std::exchange(connection.answered_, nullptr)();
  }};
  answered_ = std::move(answered);
  answer_.reset(wl_display_sync(get()));
  wl_callback_add_listener(answer_.get(), &listener, this);
}

bool WaylandConnection::await(std::chrono::milliseconds limit, const std::function<bool()>& done) const {
  using std::chrono::steady_clock;
  const auto end = steady_clock::now() + limit;
  while (!done()) {
    if (wl_display_prepare_read(get()) != 0) {
      if (wl_display_dispatch_pending(get()) < 0) break;
      continue;
    }
    wl_display_flush(get());
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now());
    pollfd socket{wl_display_get_fd(get()), POLLIN, 0};
    if (left.count() <= 0 || poll(&socket, 1, static_cast<int>(left.count())) <= 0) {
      wl_display_cancel_read(get());
      if (left.count() <= 0) break;
      continue;
    }
    if (wl_display_read_events(get()) < 0 || wl_display_dispatch_pending(get()) < 0) break;
  }
  return done();
}

void WaylandConnection::run(std::function<void()> onBroken, std::function<void()> onDrained) {
  onBroken_ = std::move(onBroken);
  onDrained_ = std::move(onDrained);
  readable_ = std::make_unique<QSocketNotifier>(wl_display_get_fd(get()), QSocketNotifier::Read);
  writable_ = std::make_unique<QSocketNotifier>(wl_display_get_fd(get()), QSocketNotifier::Write);
  writable_->setEnabled(false);
  QObject::connect(readable_.get(), &QSocketNotifier::activated, readable_.get(), [this] { readSocket(); });
  QObject::connect(writable_.get(), &QSocketNotifier::activated, writable_.get(),
                   [this] { dispatchAndSend(); });
  QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock,
                   readable_.get(), [this] { dispatchAndSend(); });
}

void WaylandConnection::readSocket() {
  while (wl_display_prepare_read(get()) != 0) {
    if (wl_display_dispatch_pending(get()) >= 0) continue;
    dispatchAndSend();
    return;
  }
  wl_display_read_events(get());  // what there is; it does not wait for more
  dispatchAndSend();
}

void WaylandConnection::dispatchAndSend() {
  if (!readable_->isEnabled()) return;
  wl_display_dispatch_pending(get());
  const bool wasFull = full();
  writable_->setEnabled(wl_display_flush(get()) < 0 && errno == EAGAIN);
  if (!broken()) {
    if (wasFull && !full()) onDrained_();
    return;
  }
  readable_->setEnabled(false);
  writable_->setEnabled(false);
  onBroken_();
}

}  // namespace sentrel
