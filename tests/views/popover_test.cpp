// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <QClipboard>
#include <limits>

#include "views/drive.h"
#include "views/popover_pages.h"
#include "views/views_fixture.h"

namespace sentrel::test {
namespace {

class PopoverTest : public testing::Test, protected ViewsFixture {
 protected:
  PopoverTest() { open(); }
  ~PopoverTest() override { delete window; }

  void open(const QString& notice = {}) {
    delete window;
    auto parts = popoverParts();
    parts.notice = notice;
    window = new PopoverWindow(std::move(parts), PopoverWindow::Ground::translucent);
    show(*window);
  }
  void showPage(Page page) { window->content().showPage(page); }
  void press(const QString& words) { click(buttonNamed(*window, words)); }
  void key(Qt::Key pressed, int times = 1) {
    for (int i = 0; i < times; ++i) QTest::keyClick(window->focusWidget(), pressed);
  }
  [[nodiscard]] ToggleSwitch* protection() const {
    return dynamic_cast<ToggleSwitch*>(buttonNamed(*window, "Protection"));
  }
  void expectSwitch(bool on, bool waiting, const char* words) {
    EXPECT_EQ(protection()->isChecked(), on) << words;
    EXPECT_EQ(protection()->waiting(), waiting) << words;
    EXPECT_TRUE(shows(*window, words)) << words;
  }

  QPointer<PopoverWindow> window;
};

TEST_F(PopoverTest, TheSwitchFollowsTheServiceAndNotTheClick) {
  click(protection());
  expectSwitch(false, true, "Protection désactivée");
  machine.settle();
  expectSwitch(true, false, "Protection active");
  see(watched, 1500);
  expectSwitch(true, false, "Regard indiscret détecté");
  click(protection());
  EXPECT_FALSE(service->isActive());
  expectSwitch(false, false, "Protection désactivée");
}

TEST_F(PopoverTest, AStartWithoutACameraSaysWhyAndWaitsUntilAClickGivesUp) {
  machine.session->cameras.clear();
  machine.session->seen = false;
  click(protection());
  machine.advance(7000);
  expectSwitch(false, true, "Caméra introuvable");
  open();  // later, it shows the same
  expectSwitch(false, true, "Caméra introuvable");
  click(protection());
  machine.advance(7000);
  expectSwitch(false, false, "Protection désactivée");
  EXPECT_FALSE(shows(*window, "Caméra introuvable"));
}

TEST_F(PopoverTest, ItGrowsWithWhatItHasToSay) {
  open(qtTrId("error_no_pipewire"));  // three lines
  showPage(Page::about);
  showPage(Page::home);
  for (int i = 0; i < 20; ++i) QCoreApplication::processEvents();
  EXPECT_EQ(window->findChild<QScrollArea*>()->verticalScrollBar()->maximum(), 0);
  EXPECT_GT(window->content().height(), 280);
}

TEST_F(PopoverTest, TheKeyboardReachesEverything) {
  EXPECT_EQ(window->focusWidget(), protection());
  key(Qt::Key_Down);
  key(Qt::Key_Return);
  EXPECT_EQ(window->content().page(), Page::stats);
  key(Qt::Key_Escape);
  EXPECT_EQ(window->content().page(), Page::home);
  key(Qt::Key_Tab, 2);
  key(Qt::Key_Space);
  EXPECT_EQ(preferencesOpened, 1);
  key(Qt::Key_Tab, 2);
  key(Qt::Key_Return);
  EXPECT_EQ(quits, 1);
  key(Qt::Key_Escape);
  EXPECT_FALSE(window->isVisible());
}

TEST_F(PopoverTest, CountersAreResetOnlyAfterTheQuestion) {
  stats->incrementAlerts();
  showPage(Page::stats);
  press("Remettre à zéro…");
  EXPECT_TRUE(window->content().asks());
  // The focus stays within the question, and begins where nothing is lost.
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(window->focusWidget(), buttonNamed(*window, i % 2 == 0 ? "Annuler" : "Remettre à zéro"));
    key(Qt::Key_Tab);
  }
  key(Qt::Key_Escape);
  EXPECT_FALSE(window->content().asks());
  EXPECT_EQ(stats->stats.get().alertCount, 1);
  press("Remettre à zéro…");
  press("Remettre à zéro");
  EXPECT_FALSE(window->content().asks());
  EXPECT_EQ(stats->stats.get(), FilterStats{});
}

TEST_F(PopoverTest, AQuestionGoesWithThePageThatAskedIt) {
  showPage(Page::stats);
  press("Remettre à zéro…");
  const QPointer<QWidget> question = buttonNamed(*window, "Remettre à zéro")->parentWidget();
  showPage(Page::about);  // as other programs can ask for it
  EXPECT_FALSE(window->content().asks());
  EXPECT_EQ(window->focusWidget(), buttonNamed(*window, "Fermer"));
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_FALSE(question) << "nobody can answer it any more";
  press("Nos autres projets");
  linkFailed();
  EXPECT_TRUE(shows(*window, "https://example.org"));
  press("Copier l'adresse");
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "https://example.org");
  linkFailed();
  showPage(Page::stats);
  EXPECT_FALSE(window->content().asks());
  EXPECT_EQ(window->focusWidget(), buttonNamed(*window, "Retour"));
  delete window;
  linkFailed();  // too late
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
      {59, "0m"},        {3599, "59m"},
      {3600, "1h 0m"},   {7500, "2h 5m"},
      {90000, "25h 0m"}, {std::numeric_limits<std::int64_t>::max(), "2562047788015215h 30m"}};
  for (const auto& [seconds, words] : cases) EXPECT_EQ(formatTime(seconds), words);
}

TEST(PlacePopover, StaysByItsIconAndInsideTheWorkArea) {
  const std::pair<QRect, QPoint> cases[] = {
      {{1700, 0, 24, 30}, {1404, 38}},      // a panel at the top
      {{1900, 0, 20, 30}, {1592, 38}},      // at its end
      {{1700, 1056, 24, 24}, {1404, 768}},  // a panel at the bottom
      {{10, 0, 24, 30}, {8, 38}},           // at the left
  };
  for (const auto& [anchor, corner] : cases)
    EXPECT_EQ(placePopover(anchor, {0, 30, 1920, 1050}, {320, 280}), QRect(corner, QSize(320, 280)));
}

}  // namespace
}  // namespace sentrel::test
