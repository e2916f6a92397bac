// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/upower_devices.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <cmath>
#include <utility>

#include "linux/desktop/bus_values.h"

namespace sentrel {

namespace {

const auto managerPath = QStringLiteral("/org/freedesktop/UPower");
const auto managerInterface = QStringLiteral("org.freedesktop.UPower");
const auto deviceInterface = QStringLiteral("org.freedesktop.UPower.Device");

/// More devices than any machine has; the rest of a longer list is not believed.
constexpr qsizetype mostDevices = 64;

BusPeer::Place ofManager(const char* member) {
  return {managerPath, managerInterface, QString::fromLatin1(member)};
}

bool isBattery(const QVariantMap& device) {
  constexpr uint batteryKind = 2;
  return valueOf<uint>(device.value(QStringLiteral("Type"))) == batteryKind &&
         valueOf<bool>(device.value(QStringLiteral("IsPresent"))).value_or(false);
}

PowerSourceDescription describe(const QVariantMap& device) {
  PowerSourceDescription description;
  const auto percentage = valueOf<double>(device.value(QStringLiteral("Percentage")));
  if (percentage && *percentage >= 0 && *percentage <= 100) {
    description.currentCapacity = static_cast<int>(std::floor(*percentage));
  }
  if (const auto state = valueOf<uint>(device.value(QStringLiteral("State")))) {
    constexpr uint discharging = 2;
    constexpr uint empty = 3;
    constexpr uint pendingDischarge = 6;
    description.isCharging = *state != discharging && *state != empty && *state != pendingDischarge;
  }
  return description;
}

}  // namespace

UPowerDevices::UPowerDevices(BusConnection& systemBus,
                             std::function<void(std::optional<PowerSourceDescription>)> changed)
    : changed_(std::move(changed)),
      service_(systemBus, managerInterface,
               {.appeared = [this] { appeared(); },
                .gone = [this] { gone(); },
                .absent = [this] { service_.start(); }}) {}

void UPowerDevices::appeared() {
  listening_.push_back(service_.listenToProperties(
      QString(), deviceInterface, [this](const QDBusMessage& signal) { propertiesChanged(signal); }));
  listening_.push_back(service_.listen(ofManager("DeviceAdded"), [this](const QDBusMessage& signal) {
    if (const auto path = objectPath(signal)) add(*path);
  }));
  listening_.push_back(service_.listen(ofManager("DeviceRemoved"), [this](const QDBusMessage& signal) {
    const auto path = objectPath(signal);
    if (!path) return;
    listed_.removeAll(*path);
    properties_.erase(*path);
    evaluate();
  }));
  service_.call(ofManager("GetDisplayDevice"), {}, [this](const QDBusMessage& reply) {
    const auto path = objectPath(reply);
    if (!path) return;
    combined_ = *path;
    read(combined_);
  });
  service_.call(ofManager("EnumerateDevices"), {}, [this](const QDBusMessage& reply) {
    if (reply.type() != QDBusMessage::ReplyMessage || reply.signature() != QLatin1String("ao")) return;
    for (const auto& path : qdbus_cast<QList<QDBusObjectPath>>(reply.arguments().constFirst()))
      add(path.path());
  });
}

void UPowerDevices::gone() {
  listening_.clear();
  combined_.clear();
  listed_.clear();
  properties_.clear();
  evaluate();
}

void UPowerDevices::add(const QString& path) {
  if (listed_.contains(path) || listed_.size() >= mostDevices) return;
  listed_.push_back(path);
  read(path);
}

void UPowerDevices::read(const QString& path) {
  service_.readProperties(path, deviceInterface, [this, path](const QDBusMessage& reply) {
    const auto all = allProperties(reply);
    if (!all || (path != combined_ && !listed_.contains(path))) return;
    properties_[path] = *all;
    evaluate();
  });
}

void UPowerDevices::propertiesChanged(const QDBusMessage& signal) {
  const auto known = properties_.find(signal.path());
  const auto change = propertyChange(signal);
  if (!change || known == properties_.end()) return;
  known->second.insert(change->changed);
  if (!change->invalidated.isEmpty()) read(signal.path());
  evaluate();
}

void UPowerDevices::evaluate() {
  auto now = first();
  if (now == told_) return;
  told_ = now;
  changed_(now);
}

std::optional<PowerSourceDescription> UPowerDevices::first() const {
  const auto combined = properties_.find(combined_);
  if (combined != properties_.end() && isBattery(combined->second)) return describe(combined->second);
  for (const QString& path : listed_) {
    const auto device = properties_.find(path);
    if (device == properties_.end() || !isBattery(device->second)) continue;
    const auto suppliesUs = valueOf<bool>(device->second.value(QStringLiteral("PowerSupply")));
    if (suppliesUs.value_or(false)) return describe(device->second);
  }
  return std::nullopt;
}

}  // namespace sentrel
