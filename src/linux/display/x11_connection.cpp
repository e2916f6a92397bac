// SPDX-License-Identifier: Apache-2.0
#include "linux/display/x11_connection.h"

#include <QAbstractEventDispatcher>
#include <csignal>
#include <utility>

namespace sentrel {

namespace {

/// Writing to a server that has just died raises SIGPIPE, whose default is the end of the process.
void surviveBrokenPipes() {
  struct sigaction current {};
  if (sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
    std::signal(SIGPIPE, SIG_IGN);
  }
}

}  // namespace

std::unique_ptr<X11Connection> X11Connection::open(const std::string& display) {
  surviveBrokenPipes();
  std::unique_ptr<X11Connection> opened(new X11Connection);
  opened->connection_.reset(xcb_connect(display.empty() ? nullptr : display.c_str(), &opened->screenNumber_));
  if (opened->broken()) return nullptr;
  auto screens = xcb_setup_roots_iterator(xcb_get_setup(opened->get()));
  for (int left = opened->screenNumber_; left > 0 && screens.rem > 0; --left) xcb_screen_next(&screens);
  if (screens.rem == 0) return nullptr;
  opened->screen_ = screens.data;
  return opened;
}

const xcb_query_extension_reply_t* X11Connection::extension(xcb_extension_t& id) const {
  const auto* data = xcb_get_extension_data(get(), &id);
  return data != nullptr && data->present != 0 ? data : nullptr;
}

void X11Connection::run(EventHandler onEvent, std::function<void()> onBroken) {
  onEvent_ = std::move(onEvent);
  onBroken_ = std::move(onBroken);
  notifier_ = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(get()), QSocketNotifier::Read);
  QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(), [this] { readSocket(); });
  QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock,
                   notifier_.get(), [this] { beforeSleep(); });
}

void X11Connection::readSocket() {
  while (const auto event = adopt(xcb_poll_for_event(get()))) onEvent_(*event);
  xcb_flush(get());
  checkConnection();
}

/// No socket announces what a reply has left in the queue.
void X11Connection::beforeSleep() {
  if (!notifier_->isEnabled()) return;
  while (const auto event = adopt(xcb_poll_for_queued_event(get()))) onEvent_(*event);
  xcb_flush(get());
  checkConnection();
}

void X11Connection::checkConnection() {
  if (!notifier_->isEnabled() || !broken()) return;
  notifier_->setEnabled(false);  // a dead socket stays readable
  onBroken_();
}

}  // namespace sentrel
