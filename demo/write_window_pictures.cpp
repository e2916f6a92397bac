// SPDX-License-Identifier: Apache-2.0
//
// write-window-pictures FOLDER: one picture of every window in every state, light and dark.
#include <QAbstractButton>
#include <QApplication>
#include <QDateTime>
#include <QDir>
#include <QEventLoop>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QTest>
#include <QTimer>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <utility>

#include "linux/overlay/painter/cover_painter.h"
#include "look/icons.h"
#include "support/frame.h"
#include "views/popover.h"
#include "views/theme.h"
#include "views/views_fixture.h"

namespace sentrel::test {
namespace {

void wait(int ms) {
  QEventLoop loop;
  QTimer::singleShot(ms, &loop, &QEventLoop::quit);
  loop.exec();
}

/// Writes pictures of windows into a folder, each on a plain ground that is light or dark as the windows are.
class PictureBook {
 public:
  explicit PictureBook(QString folder) : folder_(std::move(folder)) { good_ = QDir().mkpath(folder_); }

  /// Shows the window, lets it settle, and writes `name`-light.png or -dark.png; `margin` pixels of ground
  /// stay around it.
  void add(const QString& name, QWidget& window, int margin = 24) {
    const bool dark = Theme::shared().dark();
    addNamed(name + (dark ? QStringLiteral("-dark.png") : QStringLiteral("-light.png")), window, margin);
  }
  void addNamed(const QString& fileName, QWidget& window, int margin) {
    if (!window.isVisible()) window.show();
    window.activateWindow();
    wait(400);
    constexpr double scale = 2;  // as on a fine screen
    QImage shown(window.size() * scale, QImage::Format_ARGB32_Premultiplied);
    shown.setDevicePixelRatio(scale);
    shown.fill(Qt::transparent);
    window.render(&shown, QPoint(), QRegion(), QWidget::DrawChildren);
    const QSize size = window.size() + QSize(2 * margin, 2 * margin);
    QImage page(size * scale, QImage::Format_RGB32);
    page.setDevicePixelRatio(scale);
    QPainter painter(&page);
    QLinearGradient ground(0, 0, 0, size.height());
    const bool dark = Theme::shared().dark();
    ground.setColorAt(0, dark ? QColor(0x28, 0x33, 0x50) : QColor(0xB8, 0xC6, 0xE8));
    ground.setColorAt(1, dark ? QColor(0x11, 0x15, 0x22) : QColor(0xDF, 0xE4, 0xF1));
    painter.fillRect(QRect(QPoint(), size), ground);
    painter.drawImage(margin, margin, shown);
    painter.end();
    good_ = page.save(folder_ + QLatin1Char('/') + fileName) && good_;
  }
  /// False once a picture could not be written.
  [[nodiscard]] bool good() const { return good_; }

 private:
  QString folder_;
  bool good_ = true;
};

/// A drawing of a person before a wall with a shelf. The shelf is on the left, so that a mirrored preview
/// shows it on the right.
void draw(QPainter& painter) {
  painter.setRenderHint(QPainter::Antialiasing);
  QLinearGradient wall(0, 0, 640, 480);
  wall.setColorAt(0, QColor(0x2E, 0x38, 0x48));
  wall.setColorAt(1, QColor(0x52, 0x62, 0x7A));
  painter.fillRect(0, 0, 640, 480, wall);
  painter.fillRect(70, 120, 130, 12, QColor(0x27, 0x30, 0x3E));
  painter.fillRect(70, 200, 130, 12, QColor(0x27, 0x30, 0x3E));
  for (int i = 0; i < 7; ++i)
    painter.fillRect(80 + i * 16, 150 - i % 3 * 6, 12, 50 + i % 3 * 6, QColor::fromHsv(i * 47, 90, 170));
  painter.fillRect(450, 40, 130, 170, QColor(0x90, 0xB4, 0xD0));
  painter.setPen(Qt::NoPen);
  painter.setBrush(QColor(0x2C, 0x59, 0x6A));
  painter.drawEllipse(QRectF(190, 350, 260, 240));
  painter.setBrush(QColor(0xC9, 0x93, 0x6C));
  painter.drawRect(QRectF(295, 290, 50, 80));
  painter.setBrush(QColor(0x3A, 0x28, 0x22));
  painter.drawEllipse(QRectF(245, 140, 150, 150));
  painter.setBrush(QColor(0xDE, 0xAB, 0x86));
  painter.drawEllipse(QRectF(255, 165, 130, 160));
  painter.setBrush(QColor(0x24, 0x1A, 0x16));
  painter.drawEllipse(QPointF(293, 235), 8, 6);
  painter.drawEllipse(QPointF(347, 235), 8, 6);
  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(QColor(0x24, 0x1A, 0x16), 4));
  painter.drawArc(QRectF(295, 255, 50, 30), 200 * 16, 140 * 16);
}

/// That, as a camera would give it: 640 by 480.
FrameRef drawnPerson() {
  auto frame = std::make_shared<Frame>();
  frame->resize(640, 480);
  QImage image(frame->data(), 640, 480, frame->stride(), QImage::Format_RGB32);
  QPainter painter(&image);
  draw(painter);
  return frame;
}

void press(QWidget& window, const QString& words) {
  for (auto* button : window.findChildren<QAbstractButton*>()) {
    const bool isNamed = button->text() == words || button->accessibleName() == words;
    if (isNamed && button->isVisible()) return button->click();
  }
  std::fprintf(stderr, "no button %s\n", qPrintable(words));
}

void show(QWidget& window) {
  window.show();
  window.activateWindow();
  wait(50);
}

void on(ViewsFixture& fixture) {
  fixture.start();
  fixture.see(fixture.alone, 500);
}
void watched(ViewsFixture& fixture) {
  fixture.start();
  fixture.see(fixture.watched, 1500);
}
void statistics(PopoverWindow& window) {
  window.content().showPage(MenuBarPopoverView::Page::stats);
}
void statisticsConfirm(PopoverWindow& window) {
  statistics(window);
  press(window, "Remettre à zéro…");
}
void about(PopoverWindow& window) {
  window.content().showPage(MenuBarPopoverView::Page::about);
}

void popover(PictureBook& book, const QString& name, const std::function<void(ViewsFixture&)>& bringAbout,
             const std::function<void(PopoverWindow&)>& touch = {}) {
  ViewsFixture fixture;
  bringAbout(fixture);
  PopoverWindow window(fixture.popoverParts(), PopoverWindow::Ground::translucent);
  window.setAttribute(Qt::WA_DeleteOnClose, false);
  show(window);
  if (touch) touch(window);
  book.add(name, window, 0);
}

void pauseChoices(PopoverWindow& window) {
  press(window, "Mettre en pause");
}

/// What is allowed for a while, in the popover.
void relaxations(PictureBook& book, const QString& suffix = {}) {
  constexpr std::int64_t minute = 60'000;
  popover(book, "20-popover-choices" + suffix, on, pauseChoices);
  popover(book, "20-popover-pause" + suffix, [](ViewsFixture& fixture) {
    on(fixture);
    fixture.service->relaxations().pause(14 * minute);
    fixture.machine.settle();
  });
  popover(book, "20-popover-guests" + suffix, [](ViewsFixture& fixture) {
    on(fixture);
    fixture.ignorePoster();
    fixture.remote->welcome(2, 65 * minute);
  });
  popover(book, "20-popover-shared" + suffix, [](ViewsFixture& fixture) {
    on(fixture);
    fixture.changeOptions([](ProtectionOptions& next) { next.whenShared = WhenShared::hideStripes; });
    fixture.desktop.sharing->shared = true;
    fixture.machine.settle();
  });
  popover(book, "20-popover-nobody" + suffix, watched,
          [](PopoverWindow& window) { press(window, "Ce n'est personne"); });
  popover(book, "20-popover-off-by-command" + suffix, [](ViewsFixture& fixture) {
    on(fixture);
    fixture.remote->switchOff();
    fixture.machine.settle();
  });
}

/// Alerts of two weeks, most of them in the afternoon.
void keepJournal(ViewsFixture& fixture) {
  on(fixture);
  ProtectionOptions options = fixture.settings->options;
  options.journal = JournalWish::kept;
  fixture.settings->save(options);
  const QDateTime today(QDate::currentDate(), QTime(0, 0));
  const int perDay[] = {2, 0, 1, 3, 0, 0, 5, 2, 4, 1, 0, 0, 7, 3};
  const int hours[] = {9, 14, 15, 16, 14, 11, 15};
  for (int day = 0; day < 14; ++day) {
    for (int i = 0; i < perDay[day]; ++i)
      fixture.desktop.journal->add(
          {.beganMs = today.addDays(day - 13).addSecs(hours[i] * 3600).toMSecsSinceEpoch(),
           .lengthMs = 8000});
  }
}
void chosenDay(PopoverWindow& window) {
  statistics(window);
  for (auto* widget : window.findChildren<QWidget*>()) {
    if (widget->focusPolicy() != Qt::StrongFocus || !widget->accessibleName().contains("2 alertes")) continue;
    widget->setFocus(Qt::TabFocusReason);
    QTest::keyClick(widget, Qt::Key_End);
    return QTest::keyClick(window.focusWidget(), Qt::Key_Left);
  }
}

/// The journal in the statistics.
void journal(PictureBook& book, const QString& suffix = {}) {
  popover(book, "21-journal-offer" + suffix, on, statistics);
  popover(book, "21-journal" + suffix, keepJournal, chosenDay);
  popover(
      book, "21-journal-trouble" + suffix,
      [](ViewsFixture& fixture) {
        keepJournal(fixture);
        fixture.desktop.journal->records.clear();
        fixture.desktop.journal->trouble = "journal_unwritable";
      },
      statistics);
}

/// What the program claims of privacy: kept, and not kept on a kernel without a filter.
void privacy(PictureBook& book, const QString& suffix = {}) {
  const auto unfold = [](PopoverWindow& window) {
    window.content().showPage(MenuBarPopoverView::Page::privacy);
    press(window, "Une connexion au réseau est refusée");
  };
  popover(book, "22-privacy" + suffix, on, unfold);
  popover(
      book, "22-privacy-unfiltered" + suffix,
      [](ViewsFixture& fixture) {
        on(fixture);
        PrivacyFacts& facts = fixture.desktop.proof->facts;
        facts.filterMode = 0;
        facts.sockets = {{"socket(AF_INET, SOCK_STREAM)", "0"},
                         {"socket(AF_INET6, SOCK_STREAM)", "EAFNOSUPPORT"}};
        facts.program = {"posix_spawn(/bin/true)", "0"};
      },
      [](PopoverWindow& window) { window.content().showPage(MenuBarPopoverView::Page::privacy); });
}

/// What the doctor says of a machine on which something is wrong.
void doctor(PictureBook& book, const QString& suffix = {}) {
  const Report report{
      {QStringLiteral("Sentrel"),
       {{qtTrId("doctor_version"), QStringLiteral("Sentrel 1.0.0, Qt 6.4.2, PipeWire 0.3.65")},
        {qtTrId("doctor_program"), qtTrId("doctor_running").arg(QStringLiteral("0:04:31"))}}},
      {qtTrId("doctor_desktop"),
       {{qtTrId("doctor_notifications"), qtTrId("doctor_none"), qtTrId("doctor_notifications_advice")},
        {qtTrId("doctor_tray"), qtTrId("aucune barre"), qtTrId("doctor_tray_advice")}}},
      {qtTrId("doctor_cameras"),
       {{QStringLiteral("HD Webcam"),
         QStringLiteral("YUY2 640x480@30, 1280x720@10; MJPG 1280x720@30, 1920x1080@30")}}}};
  ViewsFixture fixture;
  on(fixture);
  PopoverWindow window(fixture.popoverParts(), PopoverWindow::Ground::translucent);
  show(window);
  window.content().showPage(MenuBarPopoverView::Page::report);
  book.add("23-doctor-asking" + suffix, window);
  fixture.reportAsked(report);
  book.add("23-doctor" + suffix, window);
}

void popovers(PictureBook& book) {
  const auto counted = [](ViewsFixture& fixture) {
    on(fixture);
    for (int i = 0; i < 12; ++i) fixture.stats->incrementAlerts();
    for (int i = 0; i < 47; ++i) fixture.stats->incrementSessions();
    fixture.stats->addActiveSeconds(127 * 3600 + 300);
  };
  popover(book, "01-popover-active", on);
  popover(book, "02-popover-alert", watched);
  popover(book, "03-popover-inactive", [](ViewsFixture&) {});
  popover(book, "03-popover-camerabusy", [](ViewsFixture& fixture) {
    on(fixture);
    fixture.interruptCamera();
  });
  popover(book, "03-popover-paused", [](ViewsFixture& fixture) {
    on(fixture);
    fixture.desktop.session->observer.emit(SessionEvent::screenIsLocked);
    fixture.machine.settle();
  });
  relaxations(book);
  journal(book);
  privacy(book);
  doctor(book);
  popover(book, "09-statistics", counted, statistics);
  popover(book, "09-statistics-confirm", counted, statisticsConfirm);
  popover(book, "10-about", on, about);
}

/// What the camera sees reaches the preview.
void lookIntoCamera(ViewsFixture& fixture) {
  if (fixture.machine.session->previewTap) fixture.machine.session->previewTap(drawnPerson());
  fixture.machine.settle();
}

void preferences(PictureBook& book) {
  ViewsFixture fixture;
  fixture.start();
  PreferencesView window(fixture.preferencesParts());
  show(window);
  // Where it is drawn.
  const FaceObservation face{{0.39, 0.32, 0.22, 0.34}, 0.0, std::nullopt};
  fixture.see(detectionsOf({face}, {face}), 400);
  lookIntoCamera(fixture);
  book.add("04-preferences-top", window);
  window.scrollTo(630);
  book.add("05-preferences-middle", window);
  window.scrollTo(1110);
  book.add("05-preferences-reactions", window);
  fixture.ignorePoster();
  window.scrollTo(1490);
  book.add("05-preferences-exceptions", window);
  window.scrollTo(5000);
  book.add("06-preferences-bottom", window);
  window.setFixedHeight(window.page()->height());
  book.add("06-preferences-full", window, 0);
}

void calibration(PictureBook& book) {
  ViewsFixture fixture;
  PreferencesView window(fixture.preferencesParts());
  show(window);
  window.scrollTo(1000);
  press(window, "Calibrer…");
  book.add("07-calibration-1-idle", window);
  press(window, "Démarrer");
  wait(50);
  fixture.machine.settle();
  book.add("07-calibration-2-counting", window);
  fixture.machine.advance(3000);
  book.add("07-calibration-3-measuring", window);
  fixture.see(detectionsOf({faceOf(0.149)}, {faceOf(0.149)}), 3200);
  book.add("07-calibration-4-done", window);
  press(window, "Recommencer");
  wait(50);
  press(window, "Démarrer");
  wait(50);
  fixture.machine.advance(6200);
  book.add("07-calibration-5-failed", window);
}

void onboarding(PictureBook& book) {
  ViewsFixture fixture;
  OnboardingView window(fixture.onboardingParts());
  const char* const names[] = {"1-camera", "2-overlay", "3-notifications", "4-calibration", "5-login"};
  for (int page = 0; page < OnboardingView::pages; ++page) {
    window.setPage(page);
    book.add(QStringLiteral("08-onboarding-") + QLatin1String(names[page]), window);
  }
  fixture.consent->answer(false);
  OnboardingView again(fixture.onboardingParts());
  book.add("08-onboarding-1-camera-again", again);
  window.setPage(3);
  fixture.newCalibration()->accept(55);
  book.add("08-onboarding-4-calibrated", window);
}

/// What protection sees, over the preview: somebody beside the person, a poster and faces that do not count.
void liveView(PictureBook& book, const QString& suffix = {}) {
  ViewsFixture fixture;
  fixture.start();
  PreferencesView window(fixture.preferencesParts());
  show(window);
  press(window, QStringLiteral("Montrer ce que Sentrel voit"));
  const auto face = [](double x, double y, double width, double height, double yaw) {
    return FaceObservation{{x, y, width, height}, yaw, std::nullopt};
  };
  const FaceObservation person = face(0.39, 0.32, 0.22, 0.34, -0.15);
  const FaceObservation away = face(0.39, 0.32, 0.22, 0.34, 0.9);
  const FaceObservation other = face(0.78, 0.52, 0.07, 0.12, -0.5);
  const FaceObservation far = face(0.2, 0.6, 0.018, 0.03, 0);
  const auto add = [&](const QString& name) {
    wait(100);
    for (int i = 0; i < 3; ++i) lookIntoCamera(fixture);
    book.add(name + suffix, window);
  };
  fixture.see(detectionsOf({person, other, far}, {person}), 400);
  add(QStringLiteral("21-live-onlooker"));
  fixture.service->relaxations().filter.ignoreOnlooker();
  fixture.see(detectionsOf({person, other}, {person}), 12'000);
  fixture.service->relaxations().addGuest({});
  const FaceObservation guest = face(0.66, 0.36, 0.06, 0.1, 0.2);
  fixture.see(detectionsOf({person, other, guest, far}, {person}), 4500);
  fixture.see(detectionsOf({away, other, guest, far}, {away}), 900);
  add(QStringLiteral("21-live-away"));
}

/// A frame of one colour, new noise in each.
FrameRef plainFrame(int brightness) {
  static int count = 0;
  auto frame = std::make_shared<Frame>();
  frame->resize(640, 480);
  std::fill_n(frame->data(), 640 * 480 * 4, static_cast<std::uint8_t>(brightness));
  std::fill_n(frame->data() + 640 * 4 * 5, 640 * 4, static_cast<std::uint8_t>(++count));
  return frame;
}

/// The camera covered for a while.
void coveredCamera(ViewsFixture& fixture) {
  fixture.start();
  fixture.machine.detector->next = FaceDetections{};
  for (int i = 0; i < 140; ++i) {
    fixture.machine.session->request->onFrame(plainFrame(6));
    fixture.machine.settle();
    fixture.machine.loop->advance(100);
  }
}

void cameraInWords(PictureBook& book, const QString& suffix = {}) {
  popover(book, "22-popover-covered" + suffix, coveredCamera);
  popover(book, "22-popover-used" + suffix, [](ViewsFixture& fixture) {
    on(fixture);
    fixture.machine.session->user = "Un logiciel de réunion au nom qui ne finit pas";
    fixture.machine.session->interrupt(CaptureError::Kind::busy);
    fixture.machine.advance(5000);
  });
  ViewsFixture fixture;
  coveredCamera(fixture);
  PreferencesView window(fixture.preferencesParts());
  show(window);
  lookIntoCamera(fixture);
  book.add("22-preferences-covered" + suffix, window);
}

/// A desktop that cannot be covered, and a machine without a camera.
void missing(PictureBook& book, const QString& suffix = {}) {
  popover(book, "23-popover-uncovered" + suffix, [](ViewsFixture& fixture) {
    on(fixture);
    fixture.backend->cannot = "error_no_overlay";
  });
  ViewsFixture fixture;
  fixture.machine.session->cameras.clear();
  fixture.machine.session->seen = false;
  OnboardingView first(fixture.onboardingParts());
  fixture.machine.settle();
  book.add("23-onboarding-no-camera" + suffix, first);
  PreferencesView window(fixture.preferencesParts());
  show(window);
  window.openCalibration();
  press(window, "Démarrer");
  wait(50);
  fixture.machine.advance(10'000);
  book.add("23-calibration-no-camera" + suffix, window);
}

/// What large text and high contrast make of the windows.
void extremes(PictureBook& book) {
  Theme::shared().setLook({.textScale = 2});
  popover(book, "03-popover-text200", watched);
  relaxations(book, "-text200");
  liveView(book, "-text200");
  cameraInWords(book, "-text200");
  missing(book, "-text200");
  journal(book, "-text200");
  privacy(book, "-text200");
  doctor(book, "-text200");
  popover(book, "09-statistics-confirm-text200", watched, statisticsConfirm);
  popover(book, "10-about-text200", watched, about);
  {
    ViewsFixture fixture;
    on(fixture);
    fixture.ignorePoster();
    PreferencesView window(fixture.preferencesParts());
    book.add("04-preferences-text200", window);
    window.scrollTo(2450);
    book.add("05-preferences-exceptions-text200", window);
    press(window, "Calibrer…");
    book.add("07-calibration-text200", window);
    fixture.consent->answer(false);
    OnboardingView first(fixture.onboardingParts());
    book.add("08-onboarding-text200", first);
    first.setPage(3);
    press(first, "Calibrer maintenant");
    book.add("08-onboarding-4-sheet-text200", first);
  }
  for (const auto scheme : {AppColors::Scheme::light, AppColors::Scheme::dark}) {
    Theme::shared().setLook({.scheme = scheme, .contrast = AppColors::Contrast::high});
    popover(book, "03-popover-highcontrast", on, [](PopoverWindow& window) {
      for (int i = 0; i < 2; ++i) QTest::keyClick(window.focusWidget(), Qt::Key_Tab);
    });
    relaxations(book, "-highcontrast");
    liveView(book, "-highcontrast");
    cameraInWords(book, "-highcontrast");
    missing(book, "-highcontrast");
    journal(book, "-highcontrast");
    privacy(book, "-highcontrast");
    doctor(book, "-highcontrast");
    ViewsFixture fixture;
    on(fixture);
    fixture.ignorePoster();
    PreferencesView window(fixture.preferencesParts());
    book.add("05-preferences-highcontrast", window);
    window.scrollTo(1490);
    book.add("05-preferences-exceptions-highcontrast", window);
  }
}

/// The eye in the panel, on light and dark, and where the panel is not as light or dark as was guessed.
class IconSheet final : public QWidget {
 public:
  IconSheet() { setFixedSize(4 * 280, 240); }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    const QColor light(0xF6, 0xF6, 0xF8);
    const QColor dark(0x16, 0x17, 0x1D);
    const std::pair<QColor, QColor> panels[] = {
        {light, light}, {dark, dark}, {QColor(0x3C, 0x3C, 0x3C), light}, {Qt::white, dark}};
    int left = 0;
    for (const auto& [ground, guessed] : panels) {
      painter.fillRect(left, 0, 280, 240, ground);
      int y = 20;
      for (const auto state : {StatusBarIcon::IconState::nominal, StatusBarIcon::IconState::inactive,
                               StatusBarIcon::IconState::alert, StatusBarIcon::IconState::paused}) {
        int x = left + 20;
        for (const int size : {16, 18, 22, 24, 32, 48}) {
          StatusBarIcon::paint(painter, QRectF(x, y + (48 - size) / 2.0, size, size), state,
                               StatusBarIcon::labelOn(guessed));
          x += size + 14;
        }
        y += 52;
      }
      left += 280;
    }
  }
};

/// What hides a screen of 640 by 360, and one that stands, as a person sees it.
class CoverSheet final : public QWidget {
 public:
  CoverSheet() { setFixedSize(2 * 660, 3 * 380); }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    const std::pair<Cover, Rect> covers[] = {
        {{}, {0, 0, 640, 360}},
        {{.shortcut = true}, {660, 0, 640, 360}},
        {{.shortcut = true, .highContrast = true}, {0, 380, 640, 360}},
        {{.shortcut = true, .textScale = 2}, {660, 380, 640, 360}},
        {{.shortcut = true, .textScale = 2}, {0, 760, 200, 360}},
        {{.shortcut = true, .highContrast = true, .textScale = 2}, {660, 760, 640, 360}},
    };
    constexpr double scale = 2;
    for (const auto& [cover, place] : covers) {
      const auto at = [](const Rect& r) { return QRectF(r.x, r.y, r.width, r.height); };
      painter.fillRect(at(place), coverGround(cover));
      const auto panel = paintCover({0, 0, 2 * place.width, 2 * place.height}, scale, cover).notice;
      const QPointF corner = QPointF(place.x, place.y) + QPointF(panel.at) / scale;
      painter.drawImage(QRectF(corner, QSizeF(panel.image.size()) / scale), panel.image);
    }
  }
};

int writePictures(const QString& folder) {
  PictureBook book(folder);
  IconSheet icons;
  book.addNamed("15-status-icon-sheet.png", icons, 0);
  CoverSheet covers;
  book.addNamed("21-covers.png", covers, 0);
  extremes(book);
  for (const Theme::Look& look : {Theme::Look{}, Theme::Look{.scheme = AppColors::Scheme::dark}}) {
    Theme::shared().setLook(look);
    popovers(book);
    preferences(book);
    liveView(book);
    cameraInWords(book);
    missing(book);
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
