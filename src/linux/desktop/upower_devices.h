// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "linux/desktop/bus_peer.h"
#include "platform/desktop_services.h"

namespace sentrel {

/// The power devices that UPower knows, kept up to date by its signals. Lives on the bus thread.
class UPowerDevices {
 public:
  /// `changed` is told the first power source each time it differs, on this thread. UPower is started if it
  /// can be.
  UPowerDevices(BusConnection& systemBus, std::function<void(std::optional<PowerSourceDescription>)> changed);

 private:
  void appeared();
  void gone();
  void add(const QString& path);
  void read(const QString& path);
  void propertiesChanged(const QDBusMessage& signal);
  void evaluate();
  [[nodiscard]] std::optional<PowerSourceDescription> first() const;

  std::function<void(std::optional<PowerSourceDescription>)> changed_;
  QString combined_;    // path of the device that stands for all batteries
  QStringList listed_;  // the others, in UPower's order
  std::map<QString, QVariantMap> properties_;
  std::optional<PowerSourceDescription> told_;
  std::vector<Registration> listening_;
  BusPeer service_;  // last: its handlers use the others
};

}  // namespace sentrel
