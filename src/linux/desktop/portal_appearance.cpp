// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/portal_appearance.h"

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
const auto freedesktop = QStringLiteral("org.freedesktop.appearance");
const auto gnome = QStringLiteral("org.gnome.desktop.interface");
const auto highContrastTheme = QStringLiteral("HighContrast");
const std::array<Setting, 8> settings{
    Setting{freedesktop, QStringLiteral("reduced-motion")},
    Setting{gnome, QStringLiteral("enable-animations")},
    Setting{QStringLiteral("org.kde.kdeglobals.KDE"), QStringLiteral("AnimationDurationFactor")},
    Setting{freedesktop, QStringLiteral("color-scheme")},
    Setting{freedesktop, QStringLiteral("contrast")},
    Setting{gnome, QStringLiteral("text-scaling-factor")},
    Setting{gnome, QStringLiteral("gtk-theme")},
    Setting{QStringLiteral("org.gnome.desktop.a11y.interface"), QStringLiteral("high-contrast")}};

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

PortalAppearance::PortalAppearance(BusConnection& sessionBus, std::function<void(const Appearance&)> tell)
    : tell_(std::move(tell)),
      portal_(sessionBus, QStringLiteral("org.freedesktop.portal.Desktop"),
              {.appeared = [this] { appeared(); }}) {}

void PortalAppearance::appeared() {
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

void PortalAppearance::learn(const QString& space, const QString& key, const QVariant& value) {
  const bool known = std::ranges::any_of(
      settings, [&](const Setting& setting) { return setting.space == space && setting.key == key; });
  if (!known) return;
  const QVariant content = opened(value);
  if (const auto wish = reduces(key, content)) {
    lessMotion_[key] = *wish;
    appearance_.reducedMotion =
        std::ranges::any_of(lessMotion_, [](const auto& entry) { return entry.second; });
  } else if (key == settings[3].key) {
    // 1 is dark, 2 light, and 0 leaves it to the program.
    const auto scheme = valueOf<uint>(content);
    wishedDark_ = scheme == 1U ? std::optional(true) : scheme == 2U ? std::optional(false) : std::nullopt;
  } else if (key == settings[4].key) {
    moreContrast_[key] = valueOf<uint>(content) == 1U;
  } else if (key == settings[6].key) {
    // Desktops before the common setting have a theme for it, in two colours.
    const QString theme = valueOf<QString>(content).value_or(QString());
    moreContrast_[key] = theme.startsWith(highContrastTheme);
    inverseTheme_ = theme == highContrastTheme + QStringLiteral("Inverse");
  } else if (key == settings[7].key) {
    moreContrast_[key] = valueOf<bool>(content).value_or(false);
  } else if (key == settings[5].key) {
    const auto scale = valueOf<double>(content);
    if (scale && *scale > 0) appearance_.textScale = *scale;
  }
  appearance_.highContrast =
      std::ranges::any_of(moreContrast_, [](const auto& entry) { return entry.second; });
  appearance_.dark = wishedDark_;
  if (!wishedDark_ && inverseTheme_) appearance_.dark = true;
  tell_(appearance_);
}

}  // namespace sentrel
