// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QVariantMap>
#include <functional>
#include <vector>

#include "linux/desktop/bus_peer.h"

namespace sentrel {

/// The shortcut through the desktop portal's GlobalShortcuts (version 1): one portal session a process, bound
/// when first wanted; the desktop asks the person. Lives on the bus thread.
class PortalShortcut {
 public:
  struct Tell {
    std::function<void(bool bound)> bound;
    std::function<void()> pressed;
  };

  /// `description` is shown to the person beside the keys. `tell` is called on this thread.
  PortalShortcut(BusConnection& sessionBus, QString description, Tell tell);

  /// Binds the shortcut, unless it is bound or the person declined.
  void bind();

 private:
  enum class Stage { idle, binding, bound, declined };

  void appeared();
  void gone();
  void createSession();
  void sessionCreated(const QVariantMap& results);
  void bindShortcut();
  void request(const BusPeer::Place& place, QVariantList arguments, QVariantMap options,
               std::function<void(uint response, const QVariantMap& results)> answer);
  void listenForResponse(const QString& path);
  void failed();

  const QString description_;
  const Tell tell_;
  Stage stage_ = Stage::idle;
  bool wanted_ = false;
  int requests_ = 0;
  QString session_;
  std::function<void(uint response, const QVariantMap& results)> answer_;  // of the request under way
  Registration response_;
  std::vector<Registration> listening_;
  BusPeer portal_;  // last: its handlers use the others
};

}  // namespace sentrel
