// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <QHash>
#include <QImage>
#include <QRandomGenerator>
#include <QScreen>
#include <QScrollArea>
#include <algorithm>
#include <cmath>
#include <iostream>
#include <utility>

#include "views/controls/labels.h"
#include "views/drive.h"
#include "views/popover.h"
#include "views/stats_view.h"
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
      preferences.setFixedHeight(preferences.page()->height());
      visit(preferences);
      preferences.openCalibration();
      visit(preferences);
    }
    OnboardingView onboarding(room.onboardingParts());
    show(onboarding);
    for (int page = 0; page < OnboardingView::pages; ++page) {
      onboarding.setPage(page);
      visit(onboarding);
      if (auto* calibrate = buttonNamed(onboarding, "Calibrer maintenant")) {
        click(calibrate);
        visit(onboarding);
        QTest::keyClick(onboarding.focusWidget(), Qt::Key_Escape);
      }
    }
  }

  ViewRoom room;
};

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

/// The greatest contrast of any pixel of `image` in `area` with its ground, the colour that most of it has.
double contrastIn(const QImage& image, const QRect& area) {
  QHash<QRgb, int> counts;
  for (int y = area.top(); y <= area.bottom(); ++y) {
    for (int x = area.left(); x <= area.right(); ++x) ++counts[image.pixel(x, y)];
  }
  const auto colors = counts.keys();
  const QColor ground(*std::ranges::max_element(colors, {}, [&](QRgb color) { return counts[color]; }));
  double greatest = 1;
  for (const QRgb color : colors) greatest = std::max(greatest, contrast(ground, QColor(color)));
  return greatest;
}

/// Where the widget draws words, without its edges and symbols; nothing where it draws none.
QRect wordsOf(const QWidget& widget) {
  const auto* button = dynamic_cast<const QAbstractButton*>(&widget);
  if (dynamic_cast<const TextLabel*>(&widget) != nullptr) return widget.rect();
  if (dynamic_cast<const StatCard*>(&widget) != nullptr) return widget.rect().adjusted(14, 36, -14, -8);
  if (dynamic_cast<const ValueSlider*>(&widget) != nullptr) return widget.rect().adjusted(160, 0, 0, 0);
  if (dynamic_cast<const MenuPicker*>(&widget) != nullptr) return widget.rect().adjusted(8, 6, -40, -6);
  if (button != nullptr && !button->text().isEmpty()) return widget.rect().adjusted(10, 4, -10, -4);
  return {};
}

TEST_F(WindowsTest, WordsStandOutOnEveryGround) {
  constexpr int fine = 3;  // large enough for strokes of full colour
  double lowest = 21;
  int measured = 0;
  for (const auto scheme : {AppColors::Scheme::light, AppColors::Scheme::dark}) {
    for (const auto contrastLevel : {AppColors::Contrast::normal, AppColors::Contrast::high}) {
      Theme::shared().setLook({.scheme = scheme, .contrast = contrastLevel, .reducedMotion = true});
      forEachWindow([&](QWidget& window) {
        QImage image(window.size() * fine, QImage::Format_RGB32);
        image.setDevicePixelRatio(fine);
        image.fill(colors().window);
        window.render(&image, QPoint(), QRegion(), QWidget::DrawChildren);
        for (const auto* widget : window.findChildren<QWidget*>()) {
          const QRect words = wordsOf(*widget);
          const QRect area(widget->mapTo(&window, words.topLeft()) * fine, words.size() * fine);
          if (words.isEmpty() || !widget->isVisible() || !widget->isEnabled() ||
              !image.rect().contains(area) ||
              window.childAt(widget->mapTo(&window, widget->rect().center())) != widget)  // below a sheet
            continue;
          const double found = contrastIn(image, area);
          EXPECT_GE(found, 4.5) << widget->metaObject()->className() << " "
                                << qPrintable(widget->accessibleName());
          lowest = std::min(lowest, found);
          ++measured;
        }
      });
    }
  }
  std::cout << measured << " texts, lowest contrast " << lowest << "\n";
  EXPECT_GT(measured, 300);
}

/// Everything that is not cut off: as wide and high as it wants to be, on what scrolls or else in the window.
void expectWhole(const QWidget& window) {
  for (const auto* widget : window.findChildren<QWidget*>()) {
    const auto* label = dynamic_cast<const TextLabel*>(widget);
    const auto* button = dynamic_cast<const PushButton*>(widget);
    if (!widget->isVisible() || (label == nullptr && button == nullptr)) continue;
    const QWidget* ground = widget->parentWidget();
    while (ground != &window && dynamic_cast<QScrollArea*>(ground->parentWidget()->parentWidget()) == nullptr)
      ground = ground->parentWidget();
    const QRect place(widget->mapTo(ground, QPoint()), widget->size());
    const QString words = label != nullptr ? label->words() : button->text();
    EXPECT_TRUE(ground->rect().contains(place)) << qPrintable(words);
    EXPECT_TRUE(button == nullptr || button->width() >= button->sizeHint().width()) << qPrintable(words);
    EXPECT_TRUE(label == nullptr || label->height() >= label->heightForWidth(label->width()))
        << qPrintable(words) << " " << label->width() << "x" << label->height() << " wants "
        << label->heightForWidth(label->width());
  }
}

TEST_F(WindowsTest, NothingIsCutOffWithLargeTextNorLeavesTheScreen) {
  const QSize workArea = QGuiApplication::primaryScreen()->availableSize();
  room.start();
  room.see(room.watched, 1500);
  for (const double textWhenOpened : {1.0, 2.0}) {
    SCOPED_TRACE(textWhenOpened);
    const auto setText = [](double scale) {
      Theme::shared().setLook({.reducedMotion = true, .textScale = scale});
      for (int i = 0; i < 20; ++i) QCoreApplication::processEvents();  // layouts within layouts
    };
    setText(textWhenOpened);
    forEachWindow([&](QWidget& window) {
      setText(2);
      expectWhole(window);
      const auto* popover = dynamic_cast<PopoverWindow*>(&window);
      const QSize size = popover != nullptr ? popover->content().size() : window.size();
      if (dynamic_cast<PreferencesView*>(&window) == nullptr) {  // its height is the test's own
        EXPECT_EQ(size.boundedTo(workArea * 0.98), size) << qPrintable(window.windowTitle());
      }
      if (popover != nullptr && popover->content().page() == MenuBarPopoverView::Page::stats) {
        click(buttonNamed(window, "Remettre à zéro…"));
        setText(2);
        expectWhole(window);
      }
      if (popover != nullptr && popover->content().page() == MenuBarPopoverView::Page::about) {
        QTest::keyClick(popover->focusWidget(), Qt::Key_PageDown);
        const auto* page = buttonNamed(window, "Fermer")->parentWidget()->findChild<QScrollArea*>();
        EXPECT_GT(page->verticalScrollBar()->value(), 0) << "by key, too";
      }
      setText(textWhenOpened);
    });
  }
}

TEST_F(WindowsTest, LongStormOfAThousandClicksAndKeys) {
  QRandomGenerator random(20261121);
  const Qt::Key keys[] = {Qt::Key_Tab,  Qt::Key_Backtab, Qt::Key_Space,    Qt::Key_Return,
                          Qt::Key_Up,   Qt::Key_Down,    Qt::Key_Left,     Qt::Key_Right,
                          Qt::Key_Home, Qt::Key_End,     Qt::Key_PageDown, Qt::Key_Escape};
  const auto open = [&]() -> QWidget* {
    const int which = random.bounded(5);
    if (which == 0) return new OnboardingView(room.onboardingParts());
    if (which == 1) return new PreferencesView(room.preferencesParts());
    auto* popover = new PopoverWindow(room.popoverParts(), PopoverWindow::Ground::translucent);
    popover->content().showPage(static_cast<MenuBarPopoverView::Page>(which - 2));
    return popover;
  };
  QPointer<QWidget> window;
  for (int i = 0; i < 1000; ++i) {
    if (!window || !window->isVisible() || random.bounded(80) == 0) {
      delete window;
      window = open();
      show(*window);
    }
    QWidget* target = window->focusWidget() != nullptr ? window->focusWidget() : window.data();
    if (random.bounded(3) > 0) {
      QTest::keyClick(target, keys[random.bounded(static_cast<int>(std::size(keys)))]);
    } else {
      const QPoint at(random.bounded(window->width()), random.bounded(window->height()));
      if (QWidget* hit = window->childAt(at)) target = hit;
      QTest::mouseClick(target, Qt::LeftButton, {}, target->mapFrom(window, at));
    }
    if (auto* popover = dynamic_cast<PopoverWindow*>(window.data()); popover && random.bounded(20) == 0)
      popover->content().showPage(static_cast<MenuBarPopoverView::Page>(random.bounded(3)));
    if (QWidget* popup = QApplication::activePopupWidget()) popup->close();
    if (room.linkFailed && random.bounded(2) == 0) std::exchange(room.linkFailed, nullptr)();
    if (random.bounded(10) == 0) random.bounded(2) == 0 ? room.start() : room.stop();
    room.see(random.bounded(4) == 0 ? room.watched : room.alone, 100 * random.bounded(1, 8));
    QCoreApplication::processEvents();
  }
  delete window;
  room.stop();
  EXPECT_FALSE(room.room.session->running);
}

}  // namespace
}  // namespace sentrel::test
