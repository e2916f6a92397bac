// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <QAccessible>
#include <QImage>
#include <QRandomGenerator>
#include <algorithm>
#include <cmath>

#include "views/controls/text_label.h"
#include "views/drive.h"
#include "views/popover_window.h"
#include "views/theme.h"
#include "views/view_room.h"

namespace sentrel::test {
namespace {

/// Every window in the states that show every control.
class WindowsTest : public testing::Test {
 protected:
  ~WindowsTest() override { Theme::shared().setLook({}); }

  void forEachWindow(const std::function<void(QWidget&)>& visit) {
    {
      auto* popover = new PopoverWindow(room.popoverParts(), PopoverWindow::Ground::translucent);
      show(*popover);
      for (const auto page : {MenuBarPopoverView::Page::home, MenuBarPopoverView::Page::stats,
                              MenuBarPopoverView::Page::about}) {
        popover->content().showPage(page);
        visit(*popover);
      }
      delete popover;
    }
    {
      PreferencesView preferences(room.preferencesParts());
      show(preferences);
      visit(preferences);
      preferences.openCalibration();
      visit(preferences);
    }
    OnboardingView onboarding(room.onboardingParts());
    show(onboarding);
    for (int page = 0; page < OnboardingView::pages; ++page) {
      onboarding.setPage(page);
      visit(onboarding);
    }
  }

  ViewRoom room;
};

TEST_F(WindowsTest, EveryControlHasANameForAssistiveTechnology) {
  int controls = 0;
  forEachWindow([&](QWidget& window) {
    for (auto* widget : window.findChildren<QWidget*>()) {
      if (!widget->isVisible() || widget->focusPolicy() == Qt::NoFocus) continue;
      if (dynamic_cast<FocusShape*>(widget) == nullptr) continue;
      const auto* interface = QAccessible::queryAccessibleInterface(widget);
      ASSERT_NE(interface, nullptr);
      EXPECT_FALSE(interface->text(QAccessible::Name).isEmpty()) << widget->metaObject()->className();
      EXPECT_NE(interface->role(), QAccessible::Client) << qPrintable(interface->text(QAccessible::Name));
      ++controls;
    }
  });
  EXPECT_GT(controls, 40);
}

double luminance(const QColor& color) {
  const auto linear = [](double part) {
    return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

double contrast(const QColor& a, const QColor& b) {
  const auto [dark, light] = std::minmax({luminance(a), luminance(b)});
  return (light + 0.05) / (dark + 0.05);
}

/// The greatest contrast of any pixel of `image` in `area` with that of its corner, its ground.
double contrastIn(const QImage& image, const QRect& area) {
  const QColor ground = image.pixelColor(area.topLeft());
  double greatest = 1;
  for (int y = area.top(); y <= area.bottom(); ++y) {
    for (int x = area.left(); x <= area.right(); ++x)
      greatest = std::max(greatest, contrast(ground, image.pixelColor(x, y)));
  }
  return greatest;
}

TEST_F(WindowsTest, WordsStandOutOnEveryGround) {
  for (const auto scheme : {AppColors::Scheme::light, AppColors::Scheme::dark}) {
    for (const auto contrastLevel : {AppColors::Contrast::normal, AppColors::Contrast::high}) {
      Theme::shared().setLook({.scheme = scheme, .contrast = contrastLevel, .reducedMotion = true});
      forEachWindow([](QWidget& window) {
        QImage image(window.size() * 3, QImage::Format_RGB32);  // large enough for strokes of full colour
        image.setDevicePixelRatio(3);
        image.fill(colors().window);
        window.render(&image, QPoint(), QRegion(), QWidget::DrawChildren);
        for (auto* label : window.findChildren<TextLabel*>()) {
          const QRect area(label->mapTo(&window, QPoint()) * 3, label->size() * 3);
          const QRect seen = area.intersected(image.rect());
          if (!label->isVisible() || !label->isEnabled() || seen.height() < area.height()) continue;
          if (window.childAt(label->mapTo(&window, label->rect().center())) != label)
            continue;  // below a sheet
          EXPECT_GE(contrastIn(image, seen), 4.5) << qPrintable(label->text());
        }
      });
    }
  }
}

TEST_F(WindowsTest, NothingFallsOutOfTheWindowWithLargeText) {
  Theme::shared().setLook({.reducedMotion = true, .textScale = 2});
  auto* popover = new PopoverWindow(room.popoverParts(), PopoverWindow::Ground::opaque);
  show(*popover);
  room.start();
  room.see(room.watched, 1500);
  for (auto* control : popover->content().findChildren<QPushButton*>()) {
    const QRect place(control->mapTo(popover, QPoint()), control->size());
    EXPECT_TRUE(popover->rect().contains(place)) << qPrintable(control->text());
    EXPECT_GE(control->width(), control->sizeHint().width()) << qPrintable(control->text());
  }
  delete popover;
}

TEST_F(WindowsTest, AThousandRandomClicksAndKeysHurtNothing) {
  QRandomGenerator random(20261121);
  const Qt::Key keys[] = {Qt::Key_Tab,  Qt::Key_Backtab, Qt::Key_Space,   Qt::Key_Return,
                          Qt::Key_Up,   Qt::Key_Down,    Qt::Key_Left,    Qt::Key_Right,
                          Qt::Key_Home, Qt::Key_End,     Qt::Key_PageDown};
  const auto act = [&](QWidget& window) {
    if (random.bounded(3) > 0) {
      QWidget* target = window.focusWidget() != nullptr ? window.focusWidget() : &window;
      QTest::keyClick(target, keys[random.bounded(static_cast<int>(std::size(keys)))]);
    } else {
      const QPoint at(random.bounded(window.width()), random.bounded(window.height()));
      QWidget* hit = window.childAt(at);
      if (hit == nullptr) hit = &window;
      QTest::mouseClick(hit, Qt::LeftButton, {}, hit->mapFrom(&window, at));
    }
    if (QWidget* popup = QApplication::activePopupWidget()) popup->close();
    room.see(random.bounded(4) == 0 ? room.watched : room.alone, 100 * random.bounded(1, 8));
    QCoreApplication::processEvents();
  };
  for (int round = 0; round < 4; ++round) {
    QPointer<PopoverWindow> popover =
        new PopoverWindow(room.popoverParts(), PopoverWindow::Ground::translucent);
    show(*popover);
    for (int i = 0; i < 80 && popover && popover->isVisible(); ++i) act(*popover);
    delete popover;
    PreferencesView preferences(room.preferencesParts());
    show(preferences);
    for (int i = 0; i < 120 && preferences.isVisible(); ++i) act(preferences);
    preferences.close();
    OnboardingView onboarding(room.onboardingParts());
    show(onboarding);
    for (int i = 0; i < 50 && onboarding.isVisible(); ++i) act(onboarding);
  }
  room.stop();
  EXPECT_FALSE(room.room.session->running);
}

}  // namespace
}  // namespace sentrel::test
