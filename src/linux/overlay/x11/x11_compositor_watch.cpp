// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_compositor_watch.h"

#include <xcb/xfixes.h>

#include <cstdint>
#include <utility>

#include "linux/overlay/x11/x11_reply.h"

namespace sentrel {

namespace {
constexpr std::int64_t tryIntervalMs = 25;
// After 2 s it is believed all the same: some leave full-screen programs alone until another window comes.
constexpr int tries = 80;
}  // namespace

X11CompositorWatch::X11CompositorWatch(const X11Connection& connection, MainLoop& loop,
                                       std::function<void()> onChange)
    : connection_(connection), loop_(loop), onChange_(std::move(onChange)) {
  // Without XFixes nobody would tell us of its end, and everything would turn black: then there is none.
  if (connection_.xfixesEvents() == 0) return;
  const xcb_atom_t selection = connection_.atoms().compositorSelection;
  xcb_xfixes_select_selection_input(connection_.get(), connection_.root(), selection,
                                    XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                        XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                        XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
  const auto owner = adopt(xcb_get_selection_owner_reply(
      connection_.get(), xcb_get_selection_owner(connection_.get(), selection), nullptr));
  if (!owner || owner->owner == XCB_NONE) return;
  probe_.emplace(connection_);
  running_ = probe_->isRedirected();
  if (running_) {
    probe_.reset();
  } else {
    nextTry_ = loop_.after(tryIntervalMs, [this] { awaitRedirection(tries); });
  }
}

void X11CompositorWatch::handle(const xcb_generic_event_t& event) {
  if (connection_.xfixesEvents() == 0) return;
  if ((event.response_type & 0x7FU) != connection_.xfixesEvents() + XCB_XFIXES_SELECTION_NOTIFY) return;
  const auto& notify = reinterpret_cast<const xcb_xfixes_selection_notify_event_t&>(event);
  if (notify.selection != connection_.atoms().compositorSelection) return;
  nextTry_.reset();
  probe_.reset();
  // When one replaces another the windows stand unblended in between, too.
  setRunning(false);
  if (notify.owner == XCB_NONE) return;
  probe_.emplace(connection_);
  awaitRedirection(tries);
}

void X11CompositorWatch::awaitRedirection(int triesLeft) {
  if (triesLeft > 0 && !probe_->isRedirected()) {
    nextTry_ = loop_.after(tryIntervalMs, [this, triesLeft] { awaitRedirection(triesLeft - 1); });
    return;
  }
  probe_.reset();
  setRunning(true);
}

void X11CompositorWatch::setRunning(bool running) {
  if (running == running_) return;
  running_ = running;
  onChange_();
}

}  // namespace sentrel
