// SPDX-License-Identifier: Apache-2.0
#include "views/controls/accessibility.h"

#include <QAbstractScrollArea>
#include <QAccessibleWidget>
#include <QApplication>
#include <QKeyEvent>
#include <QVariant>
#include <algorithm>
#include <array>

#include "views/controls/painting.h"
#include "views/theme.h"

namespace sentrel {

namespace {

constexpr const char* roleProperty = "sentrelRole";
constexpr double ringWidth = 2;

QAccessibleInterface* makeAccessible(const QString& /*className*/, QObject* object) {
  const QVariant role = object->property(roleProperty);
  return role.isValid() ? new QAccessibleWidget(qobject_cast<QWidget*>(object),
                                                static_cast<QAccessible::Role>(role.toInt()))
                        : nullptr;
}

constexpr std::array focusKeys{Qt::Key_Tab,   Qt::Key_Backtab, Qt::Key_Up,  Qt::Key_Down, Qt::Key_Left,
                               Qt::Key_Right, Qt::Key_Home,    Qt::Key_End, Qt::Key_Space};

/// What scrolls with the control, or the window: there the ring is neither cut off nor left behind.
QWidget* groundOf(QWidget* control) {
  QWidget* ground = control;
  while (!ground->isWindow()) {
    QWidget* parent = ground->parentWidget();
    if (parent == nullptr) break;
    if (ground != control && qobject_cast<QAbstractScrollArea*>(parent->parentWidget()) != nullptr) break;
    ground = parent;
  }
  return ground;
}

}  // namespace

void setAccessibleRole(QWidget& widget, QAccessible::Role role) {
  QAccessible::installFactory(makeAccessible);  // again is harmless
  widget.setProperty(roleProperty, static_cast<int>(role));
}

FocusRing::FocusRing(QWidget& window) : QObject(&window), window_(window), control_(window.focusWidget()) {
  connect(qApp, &QApplication::focusChanged, this, [this](QWidget* /*old*/, QWidget* now) {
    control_ = now != nullptr && window_.isAncestorOf(now) ? now : nullptr;
    place();
  });
  connect(&Theme::shared(), &Theme::changed, this, [this] { place(); });
  qApp->installEventFilter(this);
}

void FocusRing::place() {
  const auto* shape = dynamic_cast<FocusShape*>(control_.data());
  if (!shown_ || shape == nullptr || !control_->isVisible()) {
    if (drawing_) drawing_->hide();
    return;
  }
  QWidget* ground = groundOf(control_);
  if (!drawing_) {
    drawing_ = new Canvas([this](QPainter& painter, const QRectF& rect) {
      paintBox(painter, rect, radius_, {}, colors().focus, ringWidth);
    });
    drawing_->setAttribute(Qt::WA_TransparentForMouseEvents);
  }
  if (drawing_->parentWidget() != ground) drawing_->setParent(ground);
  const auto outline = shape->focusOutline();
  const double reach = outline.gap + ringWidth;
  radius_ = outline.radius + reach;
  const QRectF box = outline.rect.isEmpty() ? QRectF(control_->rect()) : outline.rect;
  const QRectF outer = box.adjusted(-reach, -reach, reach, reach);
  drawing_->setGeometry(
      QRectF(control_->mapTo(ground, QPoint()) + outer.topLeft(), outer.size()).toAlignedRect());
  drawing_->raise();
  drawing_->show();
  drawing_->update();
}

bool FocusRing::eventFilter(QObject* watched, QEvent* event) {
  if (!watched->isWidgetType()) return false;
  auto* widget = static_cast<QWidget*>(watched);  // NOLINT: a widget, as its type says
  switch (event->type()) {
    case QEvent::KeyPress:
      // NOLINTNEXTLINE: a key event, as its type says
      if (!std::ranges::count(focusKeys, static_cast<QKeyEvent*>(event)->key())) break;
      [[fallthrough]];
    case QEvent::MouseButtonPress:
      if (widget->window() != &window_) break;
      shown_ = event->type() == QEvent::KeyPress;
      place();
      break;
    case QEvent::Move:
    case QEvent::Resize:
    case QEvent::Show:
    case QEvent::Hide:
      // A layout moves what contains the control, too.
      if (control_ && widget != drawing_ && (widget == control_ || widget->isAncestorOf(control_))) place();
      break;
    default:
      break;
  }
  return false;
}

}  // namespace sentrel
