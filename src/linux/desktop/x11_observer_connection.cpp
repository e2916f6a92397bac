// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/x11_observer_connection.h"

#include <utility>

namespace sentrel {

std::unique_ptr<X11ObserverConnection> X11ObserverConnection::open() {
  std::unique_ptr<X11ObserverConnection> opened(new X11ObserverConnection);
  int screen = 0;
  opened->connection_.reset(xcb_connect(nullptr, &screen));
  if (xcb_connection_has_error(opened->get()) != 0) return nullptr;
  auto screens = xcb_setup_roots_iterator(xcb_get_setup(opened->get()));
  for (; screen > 0 && screens.rem > 1; --screen) xcb_screen_next(&screens);
  if (screens.rem == 0) return nullptr;
  opened->root_ = screens.data->root;
  return opened;
}

void X11ObserverConnection::observe(std::function<void(const xcb_generic_event_t&)> event,
                                    std::function<void()> lost) {
  event_ = std::move(event);
  lost_ = std::move(lost);
  readable_ = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(get()), QSocketNotifier::Read);
  QObject::connect(readable_.get(), &QSocketNotifier::activated, readable_.get(), [this] { dispatch(); });
  dispatch();
}

void X11ObserverConnection::dispatch() {
  if (!readable_ || !readable_->isEnabled()) return;
  xcb_flush(get());
  while (const XReply<xcb_generic_event_t> event{xcb_poll_for_event(get())}) event_(*event);
  if (xcb_connection_has_error(get()) == 0) return;
  readable_->setEnabled(false);  // a dead socket stays readable
  lost_();
}

}  // namespace sentrel
