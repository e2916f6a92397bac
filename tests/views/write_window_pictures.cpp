// SPDX-License-Identifier: Apache-2.0
//
// write-window-pictures FOLDER: one picture of every window in every state, light and dark.
#include <QApplication>
#include <cstdio>
#include <functional>

#include "views/picture_book.h"
#include "views/popover_window.h"
#include "views/stats_view.h"
#include "views/view_room.h"

namespace sentrel::test {
namespace {

constexpr Theme::Look light{};
constexpr Theme::Look dark{.scheme = AppColors::Scheme::dark};

void popover(PictureBook& book, const QString& name, const std::function<void(ViewRoom&)>& bringAbout,
             const std::function<void(PopoverWindow&)>& touch = {}) {
  ViewRoom room;
  bringAbout(room);
  auto* window = new PopoverWindow(room.popoverParts(), PopoverWindow::Ground::translucent);
  window->show();
  window->activateWindow();
  PictureBook::wait(50);
  if (touch) touch(*window);
  book.add(name, *window, 0);
  delete window;
}

void popovers(PictureBook& book) {
  const auto on = [](ViewRoom& room) {
    room.start();
    room.see(room.alone, 500);
  };
  const auto off = [](ViewRoom& /*room*/) {};
  const auto watched = [on](ViewRoom& room) {
    on(room);
    room.see(room.watched, 1500);
  };
  const auto counted = [on](ViewRoom& room) {
    on(room);
    for (int i = 0; i < 12; ++i) room.stats->incrementAlerts();
    for (int i = 0; i < 48; ++i) room.stats->incrementSessions();
    room.stats->addActiveSeconds(127 * 3600 + 300);
  };
  const auto statistics = [](PopoverWindow& window) {
    window.content().showPage(MenuBarPopoverView::Page::stats);
  };
  popover(book, "01-popover-active", on);
  popover(book, "02-popover-alert", watched);
  popover(book, "03-popover-inactive", off);
  popover(book, "03-popover-camerabusy", [on](ViewRoom& room) {
    on(room);
    room.interruptCamera();
  });
  popover(book, "09-statistics", counted, statistics);
  popover(book, "09-statistics-confirm", counted, [statistics](PopoverWindow& window) {
    statistics(window);
    window.findChild<StatsView*>()->askForReset();
  });
  popover(book, "10-about", on,
          [](PopoverWindow& window) { window.content().showPage(MenuBarPopoverView::Page::about); });
}

int writePictures(const QString& folder) {
  PictureBook book(folder);
  for (const Theme::Look& look : {light, dark}) {
    book.setLook(look);
    popovers(book);
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
  qputenv("QT_SCALE_FACTOR", "2");
  const QApplication application(argc, argv);
  QApplication::setStyle(QStringLiteral("fusion"));
  return sentrel::test::writePictures(QString::fromLocal8Bit(argv[1]));
}
