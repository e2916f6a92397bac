// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QVariant>
#include <functional>
#include <map>

#include "linux/desktop/bus_peer.h"
#include "support/registration.h"

namespace sentrel {

/// Asks the desktop's portal, and goes on listening, whether the person wants less movement: a wish of their
/// own on newer desktops, GNOME's switch for animations, or the speed of KDE's. Lives on the bus thread.
class PortalMotion {
 public:
  /// `tell` is called there with every answer.
  PortalMotion(BusConnection& sessionBus, std::function<void(bool reduced)> tell);

 private:
  void appeared();
  void learn(const QString& space, const QString& key, const QVariant& value);

  std::function<void(bool)> tell_;
  std::map<QString, bool> wishes_;  // by key
  Registration listening_;
  BusPeer portal_;
};

}  // namespace sentrel
