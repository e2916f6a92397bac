// SPDX-License-Identifier: Apache-2.0
#include "views/theme.h"

#include <QEvent>
#include <QGuiApplication>
#include <QPalette>
#include <algorithm>

namespace sentrel {

namespace {
constexpr double largestTextScale = 2;
}

Theme::Theme() = default;

Theme& Theme::shared() {
  static Theme theme;
  return theme;
}

void Theme::setLook(Look look) {
  look.textScale = std::clamp(look.textScale, 1.0, largestTextScale);
  if (look == look_) return;
  look_ = look;
  Q_EMIT changed();
}

void Theme::follow(const Appearance& appearance) {
  if (!followed_) qGuiApp->installEventFilter(this);
  followed_ = appearance;
  adopt(appearance);
}

bool Theme::eventFilter(QObject* watched, QEvent* event) {
  if (watched == qGuiApp && event->type() == QEvent::ApplicationPaletteChange) adopt(*followed_);
  return false;
}

void Theme::adopt(const Appearance& appearance) {
  const bool darkPalette = QGuiApplication::palette().color(QPalette::Window).lightnessF() < 0.5F;
  const bool x11 = QGuiApplication::platformName() == QLatin1String("xcb");
  setLook(
      {.scheme = appearance.dark.value_or(darkPalette) ? AppColors::Scheme::dark : AppColors::Scheme::light,
       .contrast = appearance.highContrast ? AppColors::Contrast::high : AppColors::Contrast::normal,
       .reducedMotion = appearance.reducedMotion,
       .textScale = x11 ? 1 : appearance.textScale.value_or(1)});
}

const AppColors& colors() {
  return Theme::shared().colors();
}

}  // namespace sentrel
