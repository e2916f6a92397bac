// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QVariant>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "linux/desktop/desktop_portal.h"
#include "platform/desktop_services.h"
#include "support/registration.h"

namespace sentrel {

/// The global shortcuts of the desktop portal (GlobalShortcuts). All of them share one portal session, which
/// can be bound once: one that is wanted later needs a new session.
///
/// To bind a shortcut may open a window of the desktop. So the desktop is asked first what it has bound
/// before, and the person is asked once: what it answered is remembered until the shortcut is switched off.
/// What was granted and is not listed is bound again, because some desktops list nothing that was not bound
/// in this session; they do it without a word. Main thread.
class PortalShortcuts {
 public:
  struct Parts {
    std::shared_ptr<DesktopPortal> portal;
    std::shared_ptr<UserDefaults> userDefaults;
    std::array<std::string, 2> descriptions;  ///< what each does, for the portal's dialog
    std::function<void(Shortcut)> pressed;
    std::function<void(Shortcut, ShortcutGrant)> granted;
  };

  explicit PortalShortcuts(Parts parts);

  /// Sees to it that the shortcut is bound, as far as the person allows.
  void want(Shortcut shortcut);
  /// It may stay bound in this session.
  void unwant(Shortcut shortcut) { wanted_.erase(shortcut); }
  /// The next time it is wanted the person is asked as the first time.
  static void forget(UserDefaults& userDefaults, Shortcut shortcut);

 private:
  /// Of each shortcut that is bound, its keys in the desktop's words.
  using Keys = std::map<Shortcut, std::string>;

  void open();
  void close();
  void sessionCreated(const std::optional<QVariantMap>& results);
  void askVersion();
  void list(void (PortalShortcuts::*then)(const Keys& listed));
  void decide(const Keys& listed);
  void bind(const Keys& listed);
  void settle(const Keys& bound);
  [[nodiscard]] bool isAsked(Shortcut shortcut) const;
  [[nodiscard]] bool wasGranted(Shortcut shortcut) const;
  [[nodiscard]] Keys keysIn(const QVariant& shortcuts) const;

  const Parts parts_;
  std::set<Shortcut> wanted_;
  std::set<Shortcut> bound_;  // or refused, in the session that is open; none while none is
  unsigned version_ = 1;
  std::string session_;
  Registration request_;  // the one under way
  std::array<Registration, 3> listening_;
  Registration following_;
};

}  // namespace sentrel
