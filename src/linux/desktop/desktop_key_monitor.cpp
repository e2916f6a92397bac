// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_key_monitor.h"

#include <QGuiApplication>
#include <utility>

#include "linux/desktop/kde_shortcuts.h"
#include "linux/desktop/portal_shortcuts.h"
#include "linux/display/x11_key_monitor.h"

namespace sentrel {

namespace {

/// Below a Wayland compositor an X server hears only the keys of its own windows.
bool isX11Session() {
  return qEnvironmentVariableIsSet("DISPLAY") && !qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
}

}  // namespace

DesktopKeyMonitor::DesktopKeyMonitor(Parts parts) : parts_(std::move(parts)), onX11_(isX11Session()) {
  if (!onX11_) {
    KdeShortcuts::isPossible() ? useKde() : usePortal();
    return;
  }
  parts_.displays->post([loop = parts_.mainLoop, weak = std::weak_ptr(self_)] {
    loop->post([weak, possible = X11KeyMonitor::isPossible()] {
      const auto self = weak.lock();
      if (!self) return;
      for (const Shortcut shortcut : {Shortcut::toggle, Shortcut::cover})
        (*self)->setGrant(shortcut,
                          {possible ? ShortcutGrant::Kind::observed : ShortcutGrant::Kind::refused});
    });
  });
}

DesktopKeyMonitor::~DesktopKeyMonitor() = default;

Registration DesktopKeyMonitor::observe(Shortcut shortcut, std::function<void()> pressed) {
  auto& observer = of(shortcut).observer;
  const bool running = observer != nullptr;
  observer = std::make_shared<const std::function<void()>>(std::move(pressed));
  if (!running) begin(shortcut);
  return Registration([this, shortcut, weak = std::weak_ptr(observer)] {
    if (weak.expired()) return;
    of(shortcut).observer = nullptr;
    of(shortcut).x11 = {};
    if (kde_) kde_->unwant(shortcut);
    if (portal_) portal_->unwant(shortcut);
  });
}

void DesktopKeyMonitor::forget(Shortcut shortcut) {
  PortalShortcuts::forget(*parts_.userDefaults, shortcut);
}

void DesktopKeyMonitor::useKde() {
  kde_ = std::make_unique<KdeShortcuts>(
      parts_.sessionBus,
      KdeShortcuts::Parts{
          .descriptions = parts_.descriptions,
          .pressed = [this](Shortcut which) { this->pressed(which); },
          .granted = [this](Shortcut which, ShortcutGrant grant) { setGrant(which, std::move(grant)); },
          .found = [this](bool present) { present ? portal_.reset() : usePortal(); }});
}

void DesktopKeyMonitor::usePortal() {
  portal_ = std::make_unique<PortalShortcuts>(PortalShortcuts::Parts{
      .portal = parts_.portal,
      .userDefaults = parts_.userDefaults,
      .descriptions = parts_.descriptions,
      .pressed = [this](Shortcut which) { this->pressed(which); },
      .granted = [this](Shortcut which, ShortcutGrant grant) { setGrant(which, std::move(grant)); }});
  for (const Shortcut shortcut : {Shortcut::toggle, Shortcut::cover}) {
    if (of(shortcut).observer) portal_->want(shortcut);
  }
}

void DesktopKeyMonitor::begin(Shortcut shortcut) {
  if (kde_) kde_->want(shortcut);
  if (portal_) portal_->want(shortcut);
  if (!onX11_) return;
  const auto tellPress = [loop = parts_.mainLoop, weak = std::weak_ptr(self_), shortcut] {
    loop->post([weak, shortcut] {
      if (const auto self = weak.lock()) (*self)->pressed(shortcut);
    });
  };
  const auto letter = shortcut == Shortcut::cover ? X11KeyMonitor::Letter::v : X11KeyMonitor::Letter::c;
  of(shortcut).x11 = {parts_.displays,
                      [letter, tellPress] { return std::make_unique<X11KeyMonitor>(letter, tellPress); }};
}

void DesktopKeyMonitor::setGrant(Shortcut shortcut, ShortcutGrant grant) {
  if (of(shortcut).grant == grant) return;
  of(shortcut).grant = std::move(grant);
  grantChanged.emit();
}

void DesktopKeyMonitor::pressed(Shortcut shortcut) const {
  const bool ourWindow = shortcut == Shortcut::toggle && QGuiApplication::focusWindow() != nullptr;
  const bool locked = parts_.sessionEvents && parts_.sessionEvents->isLocked();
  const auto& observer = of(shortcut).observer;
  if (ourWindow || locked || !observer) return;
  const auto told = *observer;  // copied, because it may end its own registration
  told();
}

}  // namespace sentrel
