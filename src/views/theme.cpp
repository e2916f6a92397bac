// SPDX-License-Identifier: Apache-2.0
#include "views/theme.h"

#include <QApplication>
#include <QEvent>
#include <QPalette>
#include <QWidget>
#include <algorithm>

namespace sentrel {

namespace {
constexpr double largestTextScale = 2;
}

Theme& Theme::shared() {
  static Theme theme;
  return theme;
}

void Theme::setLook(Look look) {
  look.textScale = std::clamp(look.textScale, 1.0, largestTextScale);
  if (look == look_) return;
  look_ = look;
  const QWidgetList widgets = QApplication::allWidgets();
  for (QWidget* widget : widgets) {
    widget->updateGeometry();
    widget->update();
  }
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
  const bool darkPalette = QApplication::palette().color(QPalette::Window).lightnessF() < 0.5F;
  const bool x11 = QApplication::platformName() == QLatin1String("xcb");
  setLook(
      {.scheme = appearance.dark.value_or(darkPalette) ? AppColors::Scheme::dark : AppColors::Scheme::light,
       .contrast = appearance.highContrast ? AppColors::Contrast::high : AppColors::Contrast::normal,
       .reducedMotion = appearance.reducedMotion,
       .textScale = x11 ? 1 : appearance.textScale.value_or(1)});
}

void useFont(QWidget& widget, TextRole role) {
  const auto restyle = [&widget, role] { widget.setFont(Theme::shared().font(role)); };
  QObject::connect(&Theme::shared(), &Theme::changed, &widget, restyle);
  restyle();
}

const AppColors& colors() {
  return Theme::shared().colors();
}

}  // namespace sentrel
