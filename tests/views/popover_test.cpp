// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <QClipboard>
#include <limits>

#include "views/drive.h"
#include "views/popover.h"
#include "views/stats_view.h"
#include "views/view_room.h"

namespace sentrel::test {
namespace {

class PopoverTest : public testing::Test {
 protected:
  PopoverTest() : window(new PopoverWindow(room.popoverParts(), PopoverWindow::Ground::translucent)) {
    show(*window);
  }
  ~PopoverTest() override { delete window; }

  [[nodiscard]] ToggleSwitch* protection() const {
    return dynamic_cast<ToggleSwitch*>(buttonNamed(*window, "Protection"));
  }

  ViewRoom room;
  QPointer<PopoverWindow> window;
};

TEST_F(PopoverTest, TheSwitchFollowsTheServiceAndNotTheClick) {
  click(protection());
  EXPECT_FALSE(protection()->isChecked());
  EXPECT_TRUE(protection()->waiting());
  room.room.settle();
  EXPECT_TRUE(protection()->isChecked());
  EXPECT_FALSE(protection()->waiting());
  EXPECT_TRUE(shows(*window, "Protection active"));

  room.see(room.watched, 1500);
  EXPECT_TRUE(shows(*window, "Regard indiscret détecté"));
  click(protection());
  EXPECT_FALSE(room.service->isActive());
  EXPECT_FALSE(protection()->isChecked());
  EXPECT_TRUE(shows(*window, "Protection désactivée"));
}

TEST_F(PopoverTest, AStartWithoutACameraSaysWhyAndWaitsUntilAClickGivesUp) {
  for (const char* time : {"the first time", "and again, for the same reason"}) {
    SCOPED_TRACE(time);
    room.room.session->cameras.clear();
    room.room.session->seen = false;
    click(protection());
    room.room.advance(7000);
    EXPECT_FALSE(protection()->isChecked());
    EXPECT_TRUE(protection()->waiting());
    EXPECT_TRUE(shows(*window, "Caméra introuvable"));
    delete window;  // opened later, it shows the same
    window = new PopoverWindow(room.popoverParts(), PopoverWindow::Ground::translucent);
    show(*window);
    EXPECT_TRUE(protection()->waiting());
    click(protection());
    room.room.advance(7000);
    EXPECT_FALSE(protection()->waiting());
    EXPECT_FALSE(shows(*window, "Caméra introuvable"));
    EXPECT_FALSE(room.service->isActive());
  }
  click(protection());
  room.room.settle();
  room.room.session->cameras = {{"front", "Front", CameraPosition::front}};
  room.room.session->devicesChanged.emit();
  room.room.settle();
  EXPECT_TRUE(protection()->isChecked());
  EXPECT_FALSE(protection()->waiting());
  EXPECT_FALSE(shows(*window, "Caméra introuvable"));
}

TEST_F(PopoverTest, ItGrowsWithWhatItHasToSay) {
  delete window;
  auto parts = room.popoverParts();
  parts.notice = qtTrId("error_no_pipewire");  // three lines
  window = new PopoverWindow(std::move(parts), PopoverWindow::Ground::translucent);
  window->content().showPage(MenuBarPopoverView::Page::about);
  show(*window);
  window->content().showPage(MenuBarPopoverView::Page::home);
  const auto* page = window->findChild<QScrollArea*>();
  for (int i = 0; i < 20; ++i) QCoreApplication::processEvents();
  EXPECT_EQ(page->verticalScrollBar()->maximum(), 0);
  EXPECT_GT(window->content().height(), 280);
}

TEST_F(PopoverTest, TheKeyboardReachesEverything) {
  EXPECT_EQ(window->focusWidget(), protection());
  QTest::keyClick(window->focusWidget(), Qt::Key_Down);
  QTest::keyClick(window->focusWidget(), Qt::Key_Return);
  EXPECT_EQ(window->content().page(), MenuBarPopoverView::Page::stats);
  QTest::keyClick(window->focusWidget(), Qt::Key_Escape);
  EXPECT_EQ(window->content().page(), MenuBarPopoverView::Page::home);
  for (int i = 0; i < 2; ++i) QTest::keyClick(window->focusWidget(), Qt::Key_Tab);
  QTest::keyClick(window->focusWidget(), Qt::Key_Space);
  EXPECT_EQ(room.preferencesOpened, 1);
  for (int i = 0; i < 2; ++i) QTest::keyClick(window->focusWidget(), Qt::Key_Tab);
  QTest::keyClick(window->focusWidget(), Qt::Key_Return);
  EXPECT_EQ(room.quits, 1);
  QTest::keyClick(window->focusWidget(), Qt::Key_Escape);
  EXPECT_FALSE(window->isVisible());
}

TEST_F(PopoverTest, CountersAreResetOnlyAfterTheQuestion) {
  room.stats->incrementAlerts();
  window->content().showPage(MenuBarPopoverView::Page::stats);
  click(buttonNamed(*window, "Remettre à zéro…"));
  EXPECT_TRUE(window->content().asks());
  // The focus stays within the question, and begins where nothing is lost.
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(window->focusWidget(), buttonNamed(*window, i % 2 == 0 ? "Annuler" : "Remettre à zéro"));
    QTest::keyClick(window->focusWidget(), Qt::Key_Tab);
  }
  QTest::keyClick(window->focusWidget(), Qt::Key_Escape);
  EXPECT_FALSE(window->content().asks());
  EXPECT_EQ(room.stats->stats.get().alertCount, 1);
  click(buttonNamed(*window, "Remettre à zéro…"));
  click(buttonNamed(*window, "Remettre à zéro"));
  EXPECT_FALSE(window->content().asks());
  EXPECT_EQ(room.stats->stats.get(), FilterStats{});
}

TEST_F(PopoverTest, AQuestionGoesWithThePageThatAskedIt) {
  room.stats->incrementAlerts();
  window->content().showPage(MenuBarPopoverView::Page::stats);
  click(buttonNamed(*window, "Remettre à zéro…"));
  const QPointer<QWidget> question = buttonNamed(*window, "Remettre à zéro")->parentWidget();
  window->content().showPage(MenuBarPopoverView::Page::about);  // as other programs can ask for it
  EXPECT_FALSE(window->content().asks());
  EXPECT_EQ(window->focusWidget(), buttonNamed(*window, "Fermer"));
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_FALSE(question) << "nobody can answer it any more";
  click(buttonNamed(*window, "Nos autres projets"));
  room.linkFailed();
  window->content().showPage(MenuBarPopoverView::Page::stats);
  EXPECT_FALSE(window->content().asks());
  EXPECT_EQ(window->focusWidget(), buttonNamed(*window, "Retour"));
  EXPECT_EQ(room.stats->stats.get().alertCount, 1);
}

TEST_F(PopoverTest, AnAddressThatNothingOpensCanBeCopied) {
  window->content().showPage(MenuBarPopoverView::Page::about);
  click(buttonNamed(*window, "Nos autres projets"));
  room.linkFailed();
  EXPECT_TRUE(window->content().asks());
  EXPECT_TRUE(shows(*window, "https://example.org"));
  click(buttonNamed(*window, "Copier l'adresse"));
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "https://example.org");
  click(buttonNamed(*window, "Nos autres projets"));
  const auto late = room.linkFailed;
  delete window;
  late();
}

TEST(StatusWords, AreAsGivenForEveryState) {
  const struct {
    FilterState state;
    const char* words;
    QColor AppColors::*color;
  } cases[] = {
      {FilterState::nominal(3), "Protection active", &AppColors::success},
      {FilterState::inattention(3), "Protection active", &AppColors::success},
      {FilterState::autoPaused(PauseReason::lowBattery()), "En pause", &AppColors::textSecondary},
      {FilterState::cameraBusy(5000), "Caméra indisponible", &AppColors::success},
      {FilterState::inactive(), "Protection désactivée", &AppColors::textSecondary},
      {FilterState::alert(), "Regard indiscret détecté", &AppColors::error},
  };
  for (const auto& [state, words, color] : cases) {
    EXPECT_EQ(statusWords(state).words, words);
    EXPECT_EQ(statusWords(state).color, color) << words;
  }
}

TEST(FormatTime, DropsSecondsAndKnowsNoDays) {
  const std::pair<std::int64_t, const char*> cases[] = {
      {0, "0m"},         {59, "0m"},
      {2820, "47m"},     {3599, "59m"},
      {3600, "1h 0m"},   {7500, "2h 5m"},
      {90000, "25h 0m"}, {std::numeric_limits<std::int64_t>::max(), "2562047788015215h 30m"}};
  for (const auto& [seconds, words] : cases) EXPECT_EQ(formatTime(seconds), words);
}

TEST(PlacePopover, StaysByItsIconAndInsideTheWorkArea) {
  const QRect workArea(0, 30, 1920, 1050);
  const QSize size(320, 280);
  const struct {
    QRect anchor;
    QPoint corner;
  } cases[] = {
      {{1700, 0, 24, 30}, {1404, 38}},      // a panel at the top
      {{1900, 0, 20, 30}, {1592, 38}},      // at its end
      {{1700, 1056, 24, 24}, {1404, 768}},  // a panel at the bottom
      {{10, 0, 24, 30}, {8, 38}},           // at the left
  };
  for (const auto& [anchor, corner] : cases)
    EXPECT_EQ(placePopover(anchor, workArea, size), QRect(corner, size));
}

}  // namespace
}  // namespace sentrel::test
