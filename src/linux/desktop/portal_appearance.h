// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QVariant>
#include <functional>
#include <map>
#include <optional>

#include "linux/desktop/bus_peer.h"
#include "platform/desktop_services.h"
#include "support/registration.h"

namespace sentrel {

/// Asks the desktop's portal, and goes on listening, for the looks that the person wants: colours, contrast
/// and size of text, and less movement, a wish of its own on newer desktops, GNOME's switch for animations,
/// or the speed of KDE's. High contrast, too, is a wish of its own, GNOME's switch, or a theme. Lives on the
/// bus thread.
class PortalAppearance {
 public:
  /// `tell` is called there with every answer.
  PortalAppearance(BusConnection& sessionBus, std::function<void(const Appearance&)> tell);

 private:
  void appeared();
  void learn(const QString& space, const QString& key, const QVariant& value);

  std::function<void(const Appearance&)> tell_;
  Appearance appearance_;
  // By key: any of them is enough.
  std::map<QString, bool> lessMotion_;
  std::map<QString, bool> moreContrast_;
  std::optional<bool> wishedDark_;
  bool inverseTheme_ = false;  // the theme of high contrast that is light on dark
  Registration listening_;
  BusPeer portal_;
};

}  // namespace sentrel
