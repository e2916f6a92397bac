// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_event_pump.h"

#include <QAbstractEventDispatcher>
#include <utility>

#include "linux/overlay/x11/x11_reply.h"

namespace sentrel {

X11EventPump::X11EventPump(xcb_connection_t* connection, EventHandler onEvent, std::function<void()> onBroken)
    : connection_(connection),
      onEvent_(std::move(onEvent)),
      onBroken_(std::move(onBroken)),
      notifier_(xcb_get_file_descriptor(connection), QSocketNotifier::Read) {
  QObject::connect(&notifier_, &QSocketNotifier::activated, &context_, [this] { readSocket(); });
  QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, &context_,
                   [this] { beforeSleep(); });
}

void X11EventPump::readSocket() {
  while (const auto event = adopt(xcb_poll_for_event(connection_))) onEvent_(*event);
  xcb_flush(connection_);
  checkConnection();
}

void X11EventPump::beforeSleep() {
  if (!notifier_.isEnabled()) return;
  while (const auto event = adopt(xcb_poll_for_queued_event(connection_))) onEvent_(*event);
  xcb_flush(connection_);
  checkConnection();
}

void X11EventPump::checkConnection() {
  if (!notifier_.isEnabled() || xcb_connection_has_error(connection_) == 0) return;
  notifier_.setEnabled(false);
  onBroken_();
}

}  // namespace sentrel
