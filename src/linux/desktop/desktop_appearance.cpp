// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_appearance.h"

#include <algorithm>
#include <array>
#include <utility>

namespace sentrel {

namespace {

constexpr auto path = "/org/freedesktop/portal/desktop";
constexpr auto interface = "org.freedesktop.portal.Settings";

struct Setting {
  const char* space;
  const char* key;

  [[nodiscard]] bool is(const QString& otherSpace, const QString& otherKey) const {
    return otherSpace == QLatin1String(space) && otherKey == QLatin1String(key);
  }
};
constexpr auto freedesktop = "org.freedesktop.appearance";
constexpr auto gnome = "org.gnome.desktop.interface";
constexpr Setting reducedMotion{freedesktop, "reduced-motion"};
constexpr Setting animations{gnome, "enable-animations"};
constexpr Setting animationDuration{"org.kde.kdeglobals.KDE", "AnimationDurationFactor"};
constexpr Setting colorScheme{freedesktop, "color-scheme"};
constexpr Setting contrast{freedesktop, "contrast"};
constexpr Setting textScale{gnome, "text-scaling-factor"};
constexpr Setting theme{gnome, "gtk-theme"};
constexpr Setting highContrast{"org.gnome.desktop.a11y.interface", "high-contrast"};
constexpr std::array settings{reducedMotion, animations, animationDuration, colorScheme, contrast,
                              textScale,     theme,      highContrast};
const auto highContrastTheme = QStringLiteral("HighContrast");

bool holds(const std::map<QString, bool>& wishes) {
  return std::ranges::any_of(wishes, [](const auto& wish) { return wish.second; });
}

}  // namespace

DesktopAppearance::DesktopAppearance(std::shared_ptr<Bus> sessionBus)
    : portal_(std::move(sessionBus), "org.freedesktop.portal.Desktop", {.appeared = [this] { appeared(); }}) {
}

void DesktopAppearance::appeared() {
  listening_ = portal_.listen({path, interface, "SettingChanged"}, [this](const BusMessage& signal) {
    if (!signal.signature.starts_with("ss") || signal.arguments.size() != 3) return;
    learn(signal.arguments[0].toString(), signal.arguments[1].toString(), signal.arguments[2]);
  });
  for (const Setting& setting : settings) {
    const auto answered = [this, setting](const BusMessage& reply) {
      if (reply.isError || reply.signature != "v") return;
      learn(QLatin1String(setting.space), QLatin1String(setting.key), reply.arguments.constFirst());
    };
    portal_.call({path, interface, "Read"}, {answered}, "ss", setting.space, setting.key);
  }
}

void DesktopAppearance::learn(const QString& space, const QString& key, const QVariant& value) {
  Appearance next = appearance_;
  if (reducedMotion.is(space, key)) {
    if (const auto wish = valueOf<uint>(value)) lessMotion_[key] = *wish == 1;
  } else if (animations.is(space, key)) {
    if (const auto wish = valueOf<bool>(value)) lessMotion_[key] = !*wish;
  } else if (animationDuration.is(space, key)) {
    bool isNumber = false;
    const double factor = value.toString().toDouble(&isNumber);  // a text or a number
    if (isNumber) lessMotion_[key] = factor == 0;
  } else if (colorScheme.is(space, key)) {
    // 1 is dark, 2 light, and 0 leaves it to the program.
    const auto scheme = valueOf<uint>(value);
    wishedDark_ = scheme == 1U ? std::optional(true) : scheme == 2U ? std::optional(false) : std::nullopt;
  } else if (contrast.is(space, key)) {
    moreContrast_[key] = valueOf<uint>(value) == 1U;
  } else if (theme.is(space, key)) {
    // Desktops before the common setting have a theme for it, in two colours.
    const QString name = valueOf<QString>(value).value_or(QString());
    moreContrast_[key] = name.startsWith(highContrastTheme);
    inverseTheme_ = name == highContrastTheme + QStringLiteral("Inverse");
  } else if (highContrast.is(space, key)) {
    moreContrast_[key] = valueOf<bool>(value).value_or(false);
  } else if (textScale.is(space, key)) {
    const auto scale = valueOf<double>(value);
    if (scale && *scale > 0) next.textScale = *scale;
  }
  next.reducedMotion = holds(lessMotion_);
  next.highContrast = holds(moreContrast_);
  next.dark = wishedDark_;
  if (!wishedDark_ && inverseTheme_) next.dark = true;
  if (next != appearance_.get()) appearance_ = next;
}

}  // namespace sentrel
