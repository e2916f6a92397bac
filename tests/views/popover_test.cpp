// SPDX-License-Identifier: Apache-2.0
#include <QClipboard>

#include "views/popover_pages.h"
#include "views/window_test.h"

namespace sentrel::test {
namespace {

struct PopoverTest : WindowTest {
  PopoverTest() { openPopover(); }

  [[nodiscard]] MenuBarPopoverView& content() const {
    return dynamic_cast<PopoverWindow&>(*window).content();
  }
  [[nodiscard]] ToggleSwitch* protection() const { return named<ToggleSwitch>("Protection"); }
  void expectSwitch(bool on, bool waiting, const char* words) {
    EXPECT_EQ(protection()->isChecked(), on) << words;
    EXPECT_EQ(protection()->waiting(), waiting) << words;
    EXPECT_TRUE(shows(words)) << words;
  }
};

TEST_F(PopoverTest, TheSwitchFollowsTheServiceAndNotTheClick) {
  click(protection());
  expectSwitch(false, true, "Protection désactivée");
  machine.settle();
  expectSwitch(true, false, "Protection active");
  see(watched, 1500);
  expectSwitch(true, false, "Regard indiscret détecté");
  interruptCamera();
  expectSwitch(true, false, "Caméra indisponible");
  desktop.session->tell(SessionEvent::screenIsLocked);
  machine.settle();
  expectSwitch(true, false, "En pause");
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
  openPopover();  // later, it shows the same
  expectSwitch(false, true, "Caméra introuvable");
  click(protection());
  machine.advance(7000);
  expectSwitch(false, false, "Protection désactivée");
  EXPECT_FALSE(shows("Caméra introuvable"));
}

TEST_F(PopoverTest, CountersAreResetOnlyAfterTheQuestion) {
  stats->incrementAlerts();
  content().showPage(Page::stats);
  press("Remettre à zéro…");
  EXPECT_TRUE(content().asks());
  // The focus stays within the question, and begins where nothing is lost.
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(window->focusWidget(), named(i % 2 == 0 ? "Annuler" : "Remettre à zéro"));
    key(Qt::Key_Tab);
  }
  key(Qt::Key_Escape);
  EXPECT_FALSE(content().asks());
  EXPECT_EQ(stats->stats.get().alertCount, 1);
  press("Remettre à zéro…");
  press("Remettre à zéro");
  EXPECT_EQ(stats->stats.get(), FilterStats{});
}

TEST_F(PopoverTest, AQuestionGoesWithThePageThatAskedIt) {
  content().showPage(Page::stats);
  press("Remettre à zéro…");
  const QPointer<QWidget> question = named("Remettre à zéro")->parentWidget();
  content().showPage(Page::about);  // as other programs can ask for it
  EXPECT_FALSE(content().asks());
  EXPECT_EQ(window->focusWidget(), named("Fermer"));
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_FALSE(question) << "nobody can answer it any more";
  press("Nos autres projets");
  linkFailed();
  EXPECT_TRUE(shows("https://example.org"));
  press("Copier l'adresse");
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "https://example.org");
  linkFailed();
  content().showPage(Page::stats);
  EXPECT_FALSE(content().asks());
  close();
  linkFailed();  // too late
}

TEST(FormatTime, DropsSecondsAndKnowsNoDays) {
  EXPECT_EQ(formatTime(3599), "59m");
  EXPECT_EQ(formatTime(90000), "25h 0m");
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
