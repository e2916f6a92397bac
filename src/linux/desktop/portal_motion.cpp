// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/portal_motion.h"

#include <QDBusVariant>
#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "linux/desktop/bus_values.h"

namespace sentrel {

namespace {

const auto path = QStringLiteral("/org/freedesktop/portal/desktop");
const auto interface = QStringLiteral("org.freedesktop.portal.Settings");

struct Setting {
  QString space;
  QString key;
};
const std::array<Setting, 3> settings{
    Setting{QStringLiteral("org.freedesktop.appearance"), QStringLiteral("reduced-motion")},
    Setting{QStringLiteral("org.gnome.desktop.interface"), QStringLiteral("enable-animations")},
    Setting{QStringLiteral("org.kde.kdeglobals.KDE"), QStringLiteral("AnimationDurationFactor")}};

/// A setting comes in one envelope or two, by the age of the portal.
QVariant opened(QVariant value) {
  while (const auto envelope = valueOf<QDBusVariant>(value)) value = envelope->variant();
  return value;
}

std::optional<bool> reduces(const QString& key, const QVariant& value) {
  if (key == settings[0].key) {
    if (const auto wish = valueOf<uint>(value)) return *wish == 1;
  } else if (key == settings[1].key) {
    if (const auto animations = valueOf<bool>(value)) return !*animations;
  } else if (key == settings[2].key) {
    bool isNumber = false;
    const double factor = value.toString().toDouble(&isNumber);  // a text or a number
    if (isNumber) return factor == 0;
  }
  return std::nullopt;
}

}  // namespace

PortalMotion::PortalMotion(BusConnection& sessionBus, std::function<void(bool)> tell)
    : tell_(std::move(tell)),
      portal_(sessionBus, QStringLiteral("org.freedesktop.portal.Desktop"),
              {.appeared = [this] { appeared(); }}) {}

void PortalMotion::appeared() {
  listening_ =
      portal_.listen({path, interface, QStringLiteral("SettingChanged")}, [this](const QDBusMessage& signal) {
        const auto arguments = signal.arguments();
        if (arguments.size() != 3) return;
        const auto space = valueOf<QString>(arguments[0]);
        const auto key = valueOf<QString>(arguments[1]);
        if (space && key) learn(*space, *key, arguments[2]);
      });
  for (const auto& [space, key] : settings) {
    portal_.call({path, interface, QStringLiteral("Read")}, {space, key},
                 [this, space = space, key = key](const QDBusMessage& reply) {
                   if (const auto value = onlyArgument<QDBusVariant>(reply))
                     learn(space, key, value->variant());
                 });
  }
}

void PortalMotion::learn(const QString& space, const QString& key, const QVariant& value) {
  const bool known = std::ranges::any_of(
      settings, [&](const Setting& setting) { return setting.space == space && setting.key == key; });
  const auto wish = known ? reduces(key, opened(value)) : std::nullopt;
  if (!wish) return;
  wishes_[key] = *wish;
  tell_(std::ranges::any_of(wishes_, [](const auto& entry) { return entry.second; }));
}

}  // namespace sentrel
