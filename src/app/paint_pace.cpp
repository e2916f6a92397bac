// SPDX-License-Identifier: Apache-2.0
#include "app/paint_pace.h"

#include <QApplication>
#include <QEvent>
#include <QWidget>
#include <QWindow>
#include <algorithm>

namespace sentrel {

PaintPace::PaintPace() {
  if (QGuiApplication::platformName().startsWith(QLatin1String("wayland"))) qApp->installEventFilter(this);
}

bool PaintPace::eventFilter(QObject* object, QEvent* event) {
  if (event->type() != QEvent::UpdateRequest || painting_) return false;
  if (const auto* widget = qobject_cast<QWidget*>(object)) {
    // Asked for at any time: comes again through the window, at the right one.
    if (widget->windowHandle() == nullptr) return false;
    widget->windowHandle()->requestUpdate();
    return true;
  }
  const auto widgets = QApplication::topLevelWidgets();
  const auto owner = std::ranges::find(widgets, object, &QWidget::windowHandle);
  if (owner == widgets.end()) return false;
  painting_ = true;
  QCoreApplication::sendEvent(*owner, event);
  painting_ = false;
  return true;
}

}  // namespace sentrel
