// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QAbstractButton>
#include <QLabel>
#include <QPointer>
#include <QTest>

#include "views/views_fixture.h"

namespace sentrel::test {

/// One window before a scripted camera, used by mouse and keys.
struct WindowTest : testing::Test, ViewsFixture {
  ~WindowTest() override { close(); }

  template <class View, class... Arguments>
  View* open(Arguments&&... arguments) {
    close();
    auto* view = new View(std::forward<Arguments>(arguments)...);
    window = view;
    show(*view);
    return view;
  }
  PopoverWindow* openPopover() {
    return open<PopoverWindow>(popoverParts(), PopoverWindow::Ground::translucent);
  }
  void close() { delete window; }
  static void show(QWidget& shown) {
    shown.show();
    shown.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&shown));
  }

  /// The visible widget with this name, or none.
  template <class Widget = QAbstractButton>
  [[nodiscard]] Widget* named(const QString& name) const {
    for (auto* widget : window->findChildren<QWidget*>()) {
      auto* found = dynamic_cast<Widget*>(widget);
      const auto* button = dynamic_cast<QAbstractButton*>(widget);
      const bool isNamed = widget->accessibleName() == name || (button != nullptr && button->text() == name);
      if (found != nullptr && isNamed && widget->isVisible()) return found;
    }
    return nullptr;
  }
  /// A real click in the middle of it; what follows in later turns has happened afterwards.
  static void click(QWidget* widget) {
    ASSERT_NE(widget, nullptr);
    QTest::mouseClick(widget, Qt::LeftButton, {}, widget->rect().center());
    QCoreApplication::processEvents();
  }
  void press(const QString& name) {
    click(named(name));
    machine.settle();
    QCoreApplication::processEvents();
  }
  void key(Qt::Key pressed) {
    QTest::keyClick(window->focusWidget(), pressed);
    machine.settle();
    QCoreApplication::processEvents();
  }
  /// Whether some label shows these words.
  [[nodiscard]] bool shows(const QString& words) const {
    return std::ranges::any_of(window->findChildren<QLabel*>(), [&](const QLabel* label) {
      return label->isVisible() && label->text() == words;
    });
  }

  QPointer<QWidget> window;
};

}  // namespace sentrel::test
