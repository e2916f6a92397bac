// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QAccessible>

class QWidget;

namespace sentrel {

/// Tells assistive technology what a widget of ours is, where no standard widget says it: without this it
/// would be a box that only holds others. Main thread.
void setAccessibleRole(QWidget& widget, QAccessible::Role role);

}  // namespace sentrel
