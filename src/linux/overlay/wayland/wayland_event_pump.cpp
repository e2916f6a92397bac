// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_event_pump.h"

#include <QAbstractEventDispatcher>
#include <cerrno>
#include <utility>

namespace sentrel {

WaylandEventPump::WaylandEventPump(wl_display* display, std::function<void()> onBroken)
    : display_(display),
      onBroken_(std::move(onBroken)),
      readable_(wl_display_get_fd(display), QSocketNotifier::Read),
      writable_(wl_display_get_fd(display), QSocketNotifier::Write) {
  writable_.setEnabled(false);
  QObject::connect(&readable_, &QSocketNotifier::activated, &context_, [this] { readSocket(); });
  QObject::connect(&writable_, &QSocketNotifier::activated, &context_, [this] { dispatchAndSend(); });
  QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, &context_,
                   [this] { dispatchAndSend(); });
}

void WaylandEventPump::readSocket() {
  while (wl_display_prepare_read(display_) != 0) {
    if (wl_display_dispatch_pending(display_) >= 0) continue;
    dispatchAndSend();
    return;
  }
  wl_display_read_events(display_);  // what there is; it does not wait for more
  dispatchAndSend();
}

void WaylandEventPump::dispatchAndSend() {
  if (!readable_.isEnabled()) return;
  wl_display_dispatch_pending(display_);
  const bool full = wl_display_flush(display_) < 0 && errno == EAGAIN;
  writable_.setEnabled(full);
  if (wl_display_get_error(display_) == 0) return;
  readable_.setEnabled(false);
  writable_.setEnabled(false);
  onBroken_();
}

}  // namespace sentrel
