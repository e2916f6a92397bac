// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_key_monitor.h"

#include <QGuiApplication>
#include <cstdint>
#include <utility>

#include "linux/desktop/portal_shortcut.h"
#include "linux/display/x11_key_monitor.h"

namespace sentrel {

namespace {

/// Below a Wayland compositor an X server hears only the keys of its own windows.
bool isX11Session() {
  return qEnvironmentVariableIsSet("DISPLAY") && !qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
}

}  // namespace

struct DesktopKeyMonitor::State : std::enable_shared_from_this<State> {
  State(Parts given, DesktopKeyMonitor& monitor) : parts(std::move(given)), owner(&monitor) {}

  const Parts parts;
  DesktopKeyMonitor* owner;  // null once it is gone
  const bool onX11 = isX11Session();
  bool possible = false;
  std::function<void()> observer;
  std::uint64_t observerNumber = 0;
  ThreadBound<X11KeyMonitor> x11;          // while observed
  std::unique_ptr<PortalShortcut> portal;  // once wanted

  void setPossible(bool now);
  void pressed() const;
  void begin();
  /// `act(State&)` on the main thread, as long as this exists. Any thread.
  template <class Act>
  auto later(Act act) {
    return [loop = parts.mainLoop, weak = weak_from_this(), act](auto... arguments) {
      loop->post([weak, act, arguments...] {
        if (const auto self = weak.lock()) act(*self, arguments...);
      });
    };
  }
};

void DesktopKeyMonitor::State::setPossible(bool now) {
  if (std::exchange(possible, now) == now || owner == nullptr) return;
  owner->canObserveChanged.emit();
}

void DesktopKeyMonitor::State::pressed() const {
  const bool ourWindow = QGuiApplication::focusWindow() != nullptr;
  const bool locked = parts.sessionEvents && parts.sessionEvents->isLocked();
  if (ourWindow || locked) return;
  if (const auto told = observer) told();
}

void DesktopKeyMonitor::State::begin() {
  if (onX11) {
    const auto tellPress = later([](State& self) { self.pressed(); });
    x11 = ThreadBound<X11KeyMonitor>(parts.displays,
                                     [tellPress] { return std::make_unique<X11KeyMonitor>(tellPress); });
    return;
  }
  if (!portal) {
    portal = std::make_unique<PortalShortcut>(
        parts.sessionBus, parts.description,
        PortalShortcut::Followers{[this](bool bound) { setPossible(bound); }, [this] { pressed(); }});
  }
  portal->bind();
}

DesktopKeyMonitor::DesktopKeyMonitor(Parts parts) : state_(std::make_shared<State>(std::move(parts), *this)) {
  if (!state_->onX11) return;
  const auto tell = state_->later([](State& self, bool possible) { self.setPossible(possible); });
  state_->parts.displays->post([tell] { tell(X11KeyMonitor::isPossible()); });
}

DesktopKeyMonitor::~DesktopKeyMonitor() {
  state_->owner = nullptr;
  state_->observer = nullptr;
}

bool DesktopKeyMonitor::canObserve() const {
  return state_->possible;
}

Registration DesktopKeyMonitor::observe(std::function<void()> pressed) {
  const bool running = static_cast<bool>(state_->observer);
  state_->observer = std::move(pressed);
  const std::uint64_t number = ++state_->observerNumber;
  if (!running) state_->begin();
  return Registration([weak = std::weak_ptr(state_), number] {
    const auto state = weak.lock();
    if (!state || state->observerNumber != number) return;
    state->observer = nullptr;
    state->x11 = {};
  });
}

}  // namespace sentrel
