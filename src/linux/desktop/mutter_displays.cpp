// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/mutter_displays.h"

#include <optional>
#include <utility>

#include "linux/desktop/bus_values.h"

namespace sentrel {

namespace {

const auto name = QStringLiteral("org.gnome.Mutter.DisplayConfig");
const auto path = QStringLiteral("/org/gnome/Mutter/DisplayConfig");
const auto property = QStringLiteral("PowerSaveMode");

/// -1: not known; 0: on; 1, 2, 3: standby, suspended, off.
std::optional<bool> isOff(const QVariantMap& properties) {
  const auto mode = valueOf<int>(properties.value(property));
  if (!mode || *mode < -1 || *mode > 3) return std::nullopt;
  return *mode > 0;
}

}  // namespace

MutterDisplays::MutterDisplays(BusConnection& sessionBus, WitnessReports reports)
    : reports_(std::move(reports)),
      compositor_(sessionBus, name,
                  {.appeared = [this] { appeared(); },
                   .gone = [this] { reports_.lost(WitnessReports::Witness::gnomeDisplays); }}) {}

void MutterDisplays::appeared() {
  listening_ = compositor_.listenToProperties(path, name, [this](const QDBusMessage& signal) {
    const auto change = propertyChange(signal);
    if (!change) return;
    if (const auto off = isOff(change->changed)) {
      reports_.changed(WitnessReports::Witness::gnomeDisplays, *off);
    } else if (change->invalidated.contains(property)) {
      read();
    }
  });
  read();
}

void MutterDisplays::read() {
  compositor_.readProperties(path, name, [this](const QDBusMessage& reply) {
    const auto properties = allProperties(reply);
    if (!properties) return;
    if (const auto off = isOff(*properties)) reports_.found(WitnessReports::Witness::gnomeDisplays, *off);
  });
}

}  // namespace sentrel
