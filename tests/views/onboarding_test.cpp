// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "settings/settings_key.h"
#include "views/drive.h"
#include "views/view_room.h"

namespace sentrel::test {
namespace {

class OnboardingTest : public testing::Test {
 protected:
  void open() {
    window = std::make_unique<OnboardingView>(room.onboardingParts());
    show(*window);
  }
  void settle() {
    room.room.settle();
    QCoreApplication::processEvents();
  }
  [[nodiscard]] bool completed() const {
    return room.defaults->value(rawValue(SettingsKey::hasCompletedOnboarding)) == DefaultsValue(true);
  }

  ViewRoom room;
  std::unique_ptr<OnboardingView> window;
};

TEST_F(OnboardingTest, TheKeyboardAloneGoesThroughIt) {
  std::optional<bool> answer;
  room.consent->request([&](bool yes) { answer = yes; });
  open();
  for (int page = 0; page < 3; ++page) {
    EXPECT_EQ(window->currentPage(), page);
    EXPECT_EQ(answer.has_value(), page > 0) << "only the first page's button is a yes";
    QTest::keyClick(window->focusWidget(), Qt::Key_Return);
    settle();
  }
  EXPECT_EQ(answer, true);
  EXPECT_EQ(window->currentPage(), 3);
  QTest::keyClick(window->focusWidget(), Qt::Key_Return);
  settle();
  ASSERT_NE(room.calibration, nullptr);
  QTest::keyClick(window->focusWidget(), Qt::Key_Escape);
  settle();
  room.newCalibration()->accept(55);
  EXPECT_NE(buttonNamed(*window, "✓ Calibré (55 cm)"), nullptr);
  QTest::keyClick(window->focusWidget(), Qt::Key_Tab);
  QTest::keyClick(window->focusWidget(), Qt::Key_Space);  // later
  settle();
  EXPECT_EQ(window->currentPage(), 4);
  EXPECT_FALSE(completed());
  QTest::keyClick(window->focusWidget(), Qt::Key_Return);
  EXPECT_TRUE(completed());
  EXPECT_TRUE(room.onboardingShown) << "done is written before the window closes";
  settle();
  EXPECT_FALSE(room.onboardingShown);
  EXPECT_TRUE(room.loginItem->enabled);
}

TEST_F(OnboardingTest, ClosingItUnansweredIsANoThatCanBeAskedAgain) {
  std::optional<bool> answer;
  int asked = 0;
  const Registration asking = room.consent->asked.connect([&] { ++asked; });
  room.consent->request([&](bool yes) { answer = yes; });
  open();
  window->close();
  EXPECT_EQ(answer, false);
  EXPECT_FALSE(completed());
  room.consent->request([&](bool yes) { answer = yes; });
  EXPECT_EQ(asked, 2);
  window.reset();
  open();
  click(buttonNamed(*window, "Continuer"));
  settle();
  window->close();
  EXPECT_EQ(answer, true) << "later pages do not take the yes back";
}

TEST_F(OnboardingTest, ALoginItemThatFailsEndsItAllTheSame) {
  room.loginItem->failure = "no";
  open();
  window->setPage(4);
  testing::internal::CaptureStdout();
  click(buttonNamed(*window, "Activer"));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "SMAppService error: no\n");
  EXPECT_TRUE(completed());
}

}  // namespace
}  // namespace sentrel::test
