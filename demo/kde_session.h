// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>

#include "desktop_shell.h"
#include "stage/bus_doubles.h"

namespace sentrel::test {

/// What KDE's desktops have in common, on both display servers: the locker, which the login manager can
/// unlock, and the colours. To be made before the desktop's programs are started.
class KdeSession {
 public:
  explicit KdeSession(HeadlessDesktop& desktop)
      : desktop_(desktop),
        bus_(desktop, TestBus::session),
        systemBus_(desktop, TestBus::system),
        loginManager_(mockLoginManager(desktop, systemBus_)) {
    desktop.setVariable("XDG_CURRENT_DESKTOP", "KDE");
    desktop.setVariable("XDG_SESSION_ID", "c2");  // as the login manager has it
    desktop.setVariable("QT_QUICK_BACKEND", "software");
  }

  [[nodiscard]] const BusClient& bus() const { return bus_; }

  /// Unlocks as `loginctl unlock-session` does.
  void setLocked(bool locked) const {
    if (locked) {
      (void)callLocker("Lock");
    } else {
      (void)loginManager_.call(QStringLiteral("/org/freedesktop/login1/session/c2"),
                               QStringLiteral("org.freedesktop.login1.Session"), QStringLiteral("Unlock"));
    }
    const auto isDone = [&] { return callLocker("GetActive").arguments().value(0).toBool() == locked; };
    if (!waitUntil(isDone, limit, std::chrono::milliseconds(100)))
      throw std::runtime_error(locked ? "the screen is not locked" : "the screen stays locked");
  }

  void setAppearance(Appearance appearance) const {
    if (appearance == Appearance::highContrast) throw NotHere("Plasma has no high contrast to choose");
    (void)desktop_.run("plasma-apply-colorscheme",
                       {appearance == Appearance::dark ? "BreezeDark" : "BreezeLight"});
  }

 private:
  static constexpr std::chrono::seconds limit{120};

  [[nodiscard]] QDBusMessage callLocker(const char* member) const {
    const auto name = QStringLiteral("org.freedesktop.ScreenSaver");
    return bus_.call(name, QStringLiteral("/ScreenSaver"), name, QString::fromLatin1(member), {}, limit);
  }

  HeadlessDesktop& desktop_;
  BusClient bus_;
  BusClient systemBus_;
  BusMock loginManager_;
};

}  // namespace sentrel::test
