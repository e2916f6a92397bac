// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QVariant>
#include <array>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include "linux/desktop/bus.h"
#include "platform/desktop_services.h"
#include "support/registration.h"

namespace sentrel {

/// The global shortcuts of KDE's own service, which KWin provides on Wayland. KDE's portal is no way to them:
/// up to Plasma 5.27 it binds nothing, up to 6.3 it opens a window at every binding.
///
/// A shortcut is asked for with its usual keys. What the person made of it in the desktop's settings stays
/// so: other keys, or none. Main thread.
class KdeShortcuts final : private BusService {
 public:
  struct Parts {
    std::array<std::string, 2> descriptions;  ///< what each does, for the desktop's settings
    std::function<void(Shortcut)> pressed;
    std::function<void(Shortcut, ShortcutGrant)> granted;
    std::function<void(bool present)> found;  ///< the service; false where nobody provides it
  };

  KdeShortcuts(std::shared_ptr<Bus> sessionBus, Parts parts);

  /// Whether the desktop is KDE's. Elsewhere the service may run too, for some program of KDE's, and hears no
  /// keys on Wayland.
  [[nodiscard]] static bool isPossible();

  void want(Shortcut shortcut);
  /// Gives its keys back.
  void unwant(Shortcut shortcut);

 private:
  void appeared() override;
  void gone() override;
  void absent() override { parts_.found(false); }
  void bind(Shortcut shortcut);
  void settle(Shortcut shortcut, const QVariant& sequences);
  /// Calls a method whose first argument is the name of a shortcut.
  template <class... Values>
  void callFor(Shortcut shortcut, const char* method, BusHandler handler, const char* types,
               Values... values);

  const Parts parts_;
  std::set<Shortcut> wanted_;
  std::array<Registration, 2> listening_;
};

}  // namespace sentrel
