// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_appearance.h"

#include <algorithm>
#include <array>
#include <utility>

namespace sentrel {

namespace {

constexpr auto path = "/org/freedesktop/portal/desktop";
constexpr auto interface = "org.freedesktop.portal.Settings";

constexpr auto freedesktop = "org.freedesktop.appearance";
constexpr auto gnome = "org.gnome.desktop.interface";

struct Setting {
  const char* space;
  const char* key;
};
constexpr std::array settings{Setting{freedesktop, "reduced-motion"},
                              Setting{freedesktop, "color-scheme"},
                              Setting{freedesktop, "contrast"},
                              Setting{gnome, "enable-animations"},
                              Setting{gnome, "text-scaling-factor"},
                              Setting{gnome, "gtk-theme"},
                              Setting{"org.gnome.desktop.a11y.interface", "high-contrast"},
                              Setting{"org.kde.kdeglobals.KDE", "AnimationDurationFactor"}};

}  // namespace

DesktopAppearance::DesktopAppearance(std::shared_ptr<Bus> sessionBus)
    : BusService(std::move(sessionBus), "org.freedesktop.portal.Desktop") {}

void DesktopAppearance::appeared() {
  listening_ = listen({path, interface, "SettingChanged"}, [this](const BusMessage& signal) {
    if (!signal.signature.starts_with("ss") || signal.arguments.size() != 3) return;
    learn(signal.arguments[0].toString(), signal.arguments[1].toString(), signal.arguments[2]);
  });
  for (const Setting& setting : settings) {
    const auto answered = [this, setting](const BusMessage& reply) {
      if (reply.isError || reply.signature != "v") return;
      learn(QLatin1String(setting.space), QLatin1String(setting.key), reply.arguments.constFirst());
    };
    call({path, interface, "Read"}, {answered}, "ss", setting.space, setting.key);
  }
}

void DesktopAppearance::learn(const QString& space, const QString& key, const QVariant& value) {
  const bool asked = std::ranges::any_of(settings, [&](const Setting& setting) {
    return space == QLatin1String(setting.space) && key == QLatin1String(setting.key);
  });
  if (!asked) return;
  told_[key] = value;
  Appearance next = appearance_;
  bool isNumber = false;
  const double duration =
      told_.value(QStringLiteral("AnimationDurationFactor")).toString().toDouble(&isNumber);  // or a text
  next.reducedMotion = valueOf<uint>(told_, "reduced-motion") == 1U ||
                       valueOf<bool>(told_, "enable-animations") == false || (isNumber && duration == 0);
  // Desktops before the common setting have a theme for high contrast, in two colours.
  const QString theme = valueOf<QString>(told_, "gtk-theme").value_or(QString());
  next.highContrast = valueOf<uint>(told_, "contrast") == 1U ||
                      valueOf<bool>(told_, "high-contrast") == true ||
                      theme.startsWith(QLatin1String("HighContrast"));
  // 1 is dark, 2 light, and 0 leaves it to the program.
  const auto scheme = valueOf<uint>(told_, "color-scheme");
  const bool isDark = scheme == 1U || (scheme != 2U && theme == QLatin1String("HighContrastInverse"));
  next.dark = isDark || scheme == 2U ? std::optional(isDark) : std::nullopt;
  const auto scale = valueOf<double>(told_, "text-scaling-factor");
  if (scale && *scale > 0) next.textScale = *scale;
  appearance_.assignIfChanged(next);
}

}  // namespace sentrel
