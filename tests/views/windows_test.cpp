// SPDX-License-Identifier: Apache-2.0
#include <QApplication>
#include <QRandomGenerator>
#include <QScreen>
#include <QScrollArea>
#include <algorithm>
#include <cmath>

#include "look/icons.h"
#include "views/controls/labels.h"
#include "views/theme.h"
#include "views/window_test.h"

namespace sentrel::test {
namespace {

struct WindowsTest : WindowTest {
  ~WindowsTest() override { Theme::shared().setLook({}); }

  /// Every window in the states that show every control.
  void forEachWindow(const std::function<void()>& visit) {
    openPopover();
    if (auto* pause = named("Mettre en pause")) pause->click();
    for (const auto page : {Page::home, Page::stats, Page::about, Page::privacy}) {
      dynamic_cast<PopoverWindow&>(*window).content().showPage(page);
      visit();
    }
    dynamic_cast<PopoverWindow&>(*window).content().showPage(Page::report);
    reportAsked(report);
    visit();
    auto* preferences = open<PreferencesView>(preferencesParts());
    preferences->setFixedHeight(preferences->page()->height());
    visit();
    preferences->openCalibration();
    visit();
    auto* onboarding = open<OnboardingView>(onboardingParts());
    for (int page = 0; page < OnboardingView::pages; ++page) {
      onboarding->setPage(page);
      visit();
      if (named("Calibrer maintenant") == nullptr) continue;
      press("Calibrer maintenant");
      visit();
      key(Qt::Key_Escape);
    }
  }
};

double luminance(const QColor& color) {
  const auto linear = [](double part) {
    return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

double contrast(const QColor& a, const QColor& b) {
  const double share = (luminance(a) + 0.05) / (luminance(b) + 0.05);
  return std::max(share, 1 / share);
}

TEST(Palette, WordsStandOutOnEveryGround) {
  using Colors = AppColors;
  const std::pair<QColor Colors::*, std::vector<QColor Colors::*>> cases[] = {
      {&Colors::text, {&Colors::window, &Colors::surface, &Colors::surfaceAlt, &Colors::tonal}},
      {&Colors::textSecondary, {&Colors::window, &Colors::surface, &Colors::surfaceAlt, &Colors::tonal}},
      {&Colors::primary, {&Colors::window, &Colors::surface, &Colors::tonal}},
      {&Colors::primaryHover, {&Colors::surface}},
      {&Colors::onPrimary, {&Colors::primary, &Colors::primaryHover, &Colors::primaryPressed}},
      {&Colors::success, {&Colors::surface}},
      {&Colors::warning, {&Colors::window}},
      {&Colors::error, {&Colors::surface}},
      {&Colors::onError, {&Colors::errorFill}},
  };
  for (const auto scheme : {Colors::Scheme::light, Colors::Scheme::dark}) {
    for (const auto level : {Colors::Contrast::normal, Colors::Contrast::high}) {
      const Colors& c = Colors::of(scheme, level);
      for (const auto& [words, grounds] : cases) {
        for (const auto ground : grounds)
          EXPECT_GE(contrast(c.*words, c.*ground), 4.5)
              << qPrintable((c.*words).name() + " on " + (c.*ground).name());
      }
    }
  }
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
    const std::string words = (label != nullptr ? label->text() : button->text()).toStdString();
    EXPECT_TRUE(ground->rect().contains(QRect(widget->mapTo(ground, QPoint()), widget->size()))) << words;
    EXPECT_TRUE(button == nullptr || button->width() >= button->sizeHint().width()) << words;
    EXPECT_TRUE(label == nullptr || label->height() >= label->heightForWidth(label->width())) << words;
  }
}

TEST_F(WindowsTest, NothingIsCutOffWithLargeTextNorLeavesTheScreen) {
  const QSize workArea = QGuiApplication::primaryScreen()->availableSize();
  const auto setText = [](double scale) {
    Theme::shared().setLook({.reducedMotion = true, .textScale = scale});
    for (int i = 0; i < 20; ++i) QCoreApplication::processEvents();  // layouts within layouts
  };
  start();
  see(watched, 1500);
  for (const double textWhenOpened : {1.0, 2.0}) {
    SCOPED_TRACE(textWhenOpened);
    setText(textWhenOpened);
    forEachWindow([&] {
      setText(2);
      expectWhole(*window);
      const bool isTall = dynamic_cast<PreferencesView*>(window.data()) != nullptr;  // by this test
      auto* popover = dynamic_cast<PopoverWindow*>(window.data());
      const auto* content = popover != nullptr ? &popover->content() : nullptr;
      const QSize size = content != nullptr ? content->size() : window->size();
      EXPECT_TRUE(isTall || size.boundedTo(workArea * 0.98) == size) << qPrintable(window->windowTitle());
      if (auto* reset = named("Remettre à zéro…")) {
        click(reset);
        setText(2);
        expectWhole(*window);
      }
      if (content != nullptr && content->focusWidget() == named("Fermer")) {
        key(Qt::Key_PageDown);
        const auto* page = content->focusWidget()->parentWidget()->findChild<QScrollArea*>();
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
  for (int i = 0; i < 1000; ++i) {
    if (!window || !window->isVisible() || random.bounded(80) == 0) {
      const int which = random.bounded(4);
      if (which == 0) open<OnboardingView>(onboardingParts());
      if (which == 1) open<PreferencesView>(preferencesParts());
      if (which >= 2) openPopover();
    }
    const QPoint at(random.bounded(window->width()), random.bounded(window->height()));
    const bool byKey = random.bounded(3) > 0;
    QWidget* target = byKey ? window->focusWidget() : window->childAt(at);
    if (target == nullptr) target = window;
    if (byKey) {
      QTest::keyClick(target, keys[random.bounded(static_cast<int>(std::size(keys)))]);
    } else {
      QTest::mouseClick(target, Qt::LeftButton, {}, target->mapFrom(window, at));
    }
    if (QWidget* popup = QApplication::activePopupWidget()) popup->close();
    if (random.bounded(10) == 0) random.bounded(2) == 0 ? start() : stop();
    see(random.bounded(4) == 0 ? watched : alone, 100 * random.bounded(1, 8));
    QCoreApplication::processEvents();
  }
  close();
  stop();
  EXPECT_FALSE(machine.session->running);
}

// The panel's colour is guessed, and may be guessed wrong.
TEST(StatusBarIconTest, TheClosedEyeIsSeenOnPanelsOfAnyColor) {
  for (const auto state : {StatusBarIcon::IconState::inactive, StatusBarIcon::IconState::paused})
    for (const QColor& guessed : {QColor(Qt::black), QColor(Qt::white)})
      for (const QColor& panel : {QColor(Qt::black), QColor(Qt::white), QColor(0x3C, 0x3C, 0x3C)})
        for (const int size : {16, 22, 24, 32, 48}) {
          QImage shown(size, size, QImage::Format_RGB32);
          shown.fill(panel);
          QPainter(&shown).drawPixmap(
              0, 0, StatusBarIcon::make(state, StatusBarIcon::labelOn(guessed)).pixmap(size, size));
          int columns = 0;  // in which something stands out
          for (int x = 0; x < size; ++x) {
            double best = 1;
            for (int y = 0; y < size; ++y) best = std::max(best, contrast(shown.pixelColor(x, y), panel));
            if (best >= 3) ++columns;
          }
          EXPECT_GE(columns, size * 3 / 4)
              << guessed.name().toStdString() << " on " << panel.name().toStdString() << " at " << size;
        }
}

}  // namespace
}  // namespace sentrel::test

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  qputenv("QT_QPA_PLATFORM", "offscreen");
  const QApplication application(argc, argv);
  QApplication::setStyle(QStringLiteral("fusion"));
  return RUN_ALL_TESTS();
}
