// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include <QAbstractButton>
#include <QLabel>
#include <QString>
#include <QTest>
#include <QWidget>

namespace sentrel::test {

/// The visible button with these words, or none.
inline QAbstractButton* buttonNamed(const QWidget& window, const QString& words) {
  for (auto* button : window.findChildren<QAbstractButton*>()) {
    if (button->isVisible() && (button->text() == words || button->accessibleName() == words)) return button;
  }
  return nullptr;
}

/// A real click in the middle of it; what follows in later turns has happened afterwards.
inline void click(QWidget* widget) {
  ASSERT_NE(widget, nullptr);
  QTest::mouseClick(widget, Qt::LeftButton, {}, widget->rect().center());
  QCoreApplication::processEvents();
}

inline void show(QWidget& window) {
  window.show();
  window.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
}

/// Whether some label shows these words.
inline bool shows(const QWidget& window, const QString& words) {
  for (auto* label : window.findChildren<QLabel*>()) {
    if (label->isVisible() && label->text() == words) return true;
  }
  return false;
}

}  // namespace sentrel::test
