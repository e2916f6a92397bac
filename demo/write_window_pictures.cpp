// SPDX-License-Identifier: Apache-2.0
//
// write-window-pictures FOLDER: one picture of every window in every state, light and dark.
#include <QAbstractButton>
#include <QApplication>
#include <QPainter>
#include <QTest>
#include <cstdio>
#include <functional>

#include "drawn_person.h"
#include "look/icons.h"
#include "picture_book.h"
#include "views/popover.h"
#include "views/views_fixture.h"

namespace sentrel::test {
namespace {

constexpr Theme::Look light{};
constexpr Theme::Look dark{.scheme = AppColors::Scheme::dark};

void press(QWidget& window, const QString& words) {
  for (auto* button : window.findChildren<QAbstractButton*>()) {
    if (button->text() == words && button->isVisible()) return button->click();
  }
  std::fprintf(stderr, "no button %s\n", qPrintable(words));
}

void popover(PictureBook& book, const QString& name, const std::function<void(ViewsFixture&)>& bringAbout,
             const std::function<void(PopoverWindow&)>& touch = {}) {
  ViewsFixture core;
  bringAbout(core);
  auto* window = new PopoverWindow(core.popoverParts(), PopoverWindow::Ground::translucent);
  window->show();
  window->activateWindow();
  PictureBook::wait(50);
  if (touch) touch(*window);
  book.add(name, *window, 0);
  delete window;
}

void popovers(PictureBook& book) {
  const auto on = [](ViewsFixture& core) {
    core.start();
    core.see(core.alone, 500);
  };
  const auto off = [](ViewsFixture& /*core*/) {};
  const auto watched = [on](ViewsFixture& core) {
    on(core);
    core.see(core.watched, 1500);
  };
  const auto counted = [on](ViewsFixture& core) {
    on(core);
    for (int i = 0; i < 12; ++i) core.stats->incrementAlerts();
    for (int i = 0; i < 47; ++i) core.stats->incrementSessions();
    core.stats->addActiveSeconds(127 * 3600 + 300);
  };
  const auto statistics = [](PopoverWindow& window) {
    window.content().showPage(MenuBarPopoverView::Page::stats);
  };
  popover(book, "01-popover-active", on);
  popover(book, "02-popover-alert", watched);
  popover(book, "03-popover-inactive", off);
  popover(book, "03-popover-camerabusy", [on](ViewsFixture& core) {
    on(core);
    core.interruptCamera();
  });
  popover(book, "03-popover-paused", [on](ViewsFixture& core) {
    on(core);
    core.desktop.session->observer.tell(SessionEvent::screenIsLocked);
    core.machine.settle();
  });
  popover(book, "09-statistics", counted, statistics);
  popover(book, "09-statistics-confirm", counted, [statistics](PopoverWindow& window) {
    statistics(window);
    press(window, "Remettre à zéro…");
  });
  popover(book, "10-about", on,
          [](PopoverWindow& window) { window.content().showPage(MenuBarPopoverView::Page::about); });
}

/// What the camera sees reaches the preview.
void lookIntoCamera(ViewsFixture& core) {
  if (core.machine.session->previewTap) core.machine.session->previewTap(drawnPerson());
  core.machine.settle();
}

void preferences(PictureBook& book) {
  ViewsFixture core;
  core.start();
  PreferencesView window(core.preferencesParts());
  window.show();
  window.activateWindow();
  PictureBook::wait(50);
  lookIntoCamera(core);
  book.add("04-preferences-top", window);
  window.scrollTo(540);
  book.add("05-preferences-middle", window);
  window.scrollTo(5000);
  book.add("06-preferences-bottom", window);
  window.setFixedHeight(window.page()->height());
  book.add("06-preferences-full", window, 0);
}

void calibration(PictureBook& book) {
  ViewsFixture core;
  PreferencesView window(core.preferencesParts());
  window.show();
  window.activateWindow();
  PictureBook::wait(50);
  window.scrollTo(1000);
  press(window, "Calibrer…");
  book.add("07-calibration-1-idle", window);
  press(window, "Démarrer");
  PictureBook::wait(50);
  core.machine.settle();
  book.add("07-calibration-2-counting", window);
  core.machine.advance(3000);
  book.add("07-calibration-3-measuring", window);
  core.see(detectionsOf({faceOf(0.149)}, {faceOf(0.149)}), 3200);
  book.add("07-calibration-4-done", window);
  press(window, "Recommencer");
  PictureBook::wait(50);
  press(window, "Démarrer");
  PictureBook::wait(50);
  core.machine.advance(6200);
  book.add("07-calibration-5-failed", window);
}

void onboarding(PictureBook& book) {
  ViewsFixture core;
  OnboardingView window(core.onboardingParts());
  const char* const names[] = {"1-camera", "2-overlay", "3-notifications", "4-calibration", "5-login"};
  for (int page = 0; page < OnboardingView::pages; ++page) {
    window.setPage(page);
    book.add(QStringLiteral("08-onboarding-") + QLatin1String(names[page]), window);
  }
  core.consent->answer(false);
  OnboardingView again(core.onboardingParts());
  book.add("08-onboarding-1-camera-again", again);
  window.setPage(3);
  core.newCalibration()->accept(55);
  book.add("08-onboarding-4-calibrated", window);
}

/// What large text and high contrast make of the windows.
void extremes(PictureBook& book) {
  const auto watched = [](ViewsFixture& core) {
    core.start();
    core.see(core.watched, 1500);
  };
  const auto on = [](ViewsFixture& core) {
    core.start();
    core.see(core.alone, 500);
  };
  book.setLook({.textScale = 2});
  popover(book, "03-popover-text200", watched);
  popover(book, "09-statistics-confirm-text200", watched, [](PopoverWindow& window) {
    window.content().showPage(MenuBarPopoverView::Page::stats);
    press(window, "Remettre à zéro…");
  });
  popover(book, "10-about-text200", watched,
          [](PopoverWindow& window) { window.content().showPage(MenuBarPopoverView::Page::about); });
  {
    ViewsFixture core;
    PreferencesView window(core.preferencesParts());
    book.add("04-preferences-text200", window);
    press(window, "Calibrer…");
    book.add("07-calibration-text200", window);
    core.consent->answer(false);
    OnboardingView first(core.onboardingParts());
    book.add("08-onboarding-text200", first);
    first.setPage(3);
    press(first, "Calibrer maintenant");
    book.add("08-onboarding-4-sheet-text200", first);
  }
  for (const auto scheme : {AppColors::Scheme::light, AppColors::Scheme::dark}) {
    book.setLook({.scheme = scheme, .contrast = AppColors::Contrast::high});
    popover(book, "03-popover-highcontrast", on, [](PopoverWindow& window) {
      for (int i = 0; i < 2; ++i) QTest::keyClick(window.focusWidget(), Qt::Key_Tab);
    });
    ViewsFixture core;
    PreferencesView window(core.preferencesParts());
    book.add("05-preferences-highcontrast", window);
  }
}

/// The eye in the panel, on light and dark.
class IconSheet final : public QWidget {
 public:
  IconSheet() { setFixedSize(560, 240); }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    for (const bool isDark : {false, true}) {
      const QColor ground = isDark ? QColor(0x16, 0x17, 0x1D) : QColor(0xF6, 0xF6, 0xF8);
      painter.fillRect(isDark ? 280 : 0, 0, 280, 240, ground);
      int y = 20;
      for (const auto state : {StatusBarIcon::IconState::nominal, StatusBarIcon::IconState::inactive,
                               StatusBarIcon::IconState::alert, StatusBarIcon::IconState::paused}) {
        int x = isDark ? 300 : 20;
        for (const int size : {16, 18, 22, 24, 32, 48}) {
          StatusBarIcon::paint(painter, QRectF(x, y + (48 - size) / 2.0, size, size), state,
                               StatusBarIcon::labelOn(ground));
          x += size + 14;
        }
        y += 52;
      }
    }
  }
};

int writePictures(const QString& folder) {
  PictureBook book(folder);
  IconSheet icons;
  book.addNamed("15-status-icon-sheet.png", icons, 0);
  extremes(book);
  for (const Theme::Look& look : {light, dark}) {
    book.setLook(look);
    popovers(book);
    preferences(book);
    calibration(book);
    onboarding(book);
  }
  return book.good() ? 0 : 1;
}

}  // namespace
}  // namespace sentrel::test

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: write-window-pictures FOLDER\n", stderr);
    return 2;
  }
  qputenv("QT_QPA_PLATFORM", "offscreen");
  const QApplication application(argc, argv);
  QApplication::setStyle(QStringLiteral("fusion"));
  return sentrel::test::writePictures(QString::fromLocal8Bit(argv[1]));
}
