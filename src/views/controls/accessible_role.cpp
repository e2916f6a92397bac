// SPDX-License-Identifier: Apache-2.0
#include "views/controls/accessible_role.h"

#include <QAccessibleWidget>
#include <QVariant>
#include <QWidget>

namespace sentrel {

namespace {

constexpr const char* property = "sentrelRole";

QAccessibleInterface* makeAccessible(const QString& /*className*/, QObject* object) {
  auto* widget = qobject_cast<QWidget*>(object);
  const QVariant role = widget != nullptr ? widget->property(property) : QVariant();
  return role.isValid() ? new QAccessibleWidget(widget, static_cast<QAccessible::Role>(role.toInt()))
                        : nullptr;
}

}  // namespace

void setAccessibleRole(QWidget& widget, QAccessible::Role role) {
  QAccessible::installFactory(makeAccessible);  // again is harmless
  widget.setProperty(property, static_cast<int>(role));
}

}  // namespace sentrel
