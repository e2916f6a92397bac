// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "settings/filter_settings.h"
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

TEST_F(OnboardingTest, ClosingItUnansweredIsANoThatCanBeAskedAgain) {
  std::optional<bool> answer;
  int asked = 0;
  const Registration asking = room.consent->asked.connect([&] { ++asked; });
  room.consent->request([&](bool yes) { answer = yes; });
  const QString refused = QStringLiteral("La caméra n'est pas encore autorisée.");
  open();
  EXPECT_FALSE(shows(*window, refused)) << "nobody has said no yet";
  window->close();
  EXPECT_EQ(answer, false);
  EXPECT_FALSE(completed());
  room.consent->request([&](bool yes) { answer = yes; });
  EXPECT_EQ(asked, 2);
  window.reset();
  open();
  EXPECT_TRUE(shows(*window, refused));
  click(buttonNamed(*window, "Continuer"));
  settle();
  window->close();
  EXPECT_EQ(answer, true) << "later pages do not take the yes back";
}

TEST_F(OnboardingTest, ItsEndIsWrittenBeforeItClosesThoughTheLoginItemFails) {
  room.loginItem->failure = "no";
  open();
  window->setPage(4);
  testing::internal::CaptureStdout();
  QTest::mouseClick(buttonNamed(*window, "Activer"), Qt::LeftButton);
  EXPECT_TRUE(room.onboardingShown);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "SMAppService error: no\n");
  EXPECT_TRUE(completed());
  settle();
  EXPECT_FALSE(room.onboardingShown);
}

}  // namespace
}  // namespace sentrel::test
