// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "views/drive.h"
#include "views/views_fixture.h"

namespace sentrel::test {
namespace {

class OnboardingTest : public testing::Test, protected ViewsFixture {
 protected:
  void open() {
    window = std::make_unique<OnboardingView>(onboardingParts());
    show(*window);
  }
  void press(const QString& words) {
    click(buttonNamed(*window, words));
    machine.settle();
    QCoreApplication::processEvents();
  }

  std::unique_ptr<OnboardingView> window;
};

TEST_F(OnboardingTest, ClosingItUnansweredIsANoThatCanBeAskedAgain) {
  std::optional<bool> answer;
  int asked = 0;
  const Registration asking = consent->asked.connect([&] { ++asked; });
  consent->request([&](bool yes) { answer = yes; });
  const QString refused = QStringLiteral("La caméra n'est pas encore autorisée.");
  open();
  EXPECT_FALSE(shows(*window, refused)) << "nobody has said no yet";
  window->close();
  EXPECT_EQ(answer, false);
  EXPECT_TRUE(onboardingShown) << "it comes again";
  consent->request([&](bool yes) { answer = yes; });
  EXPECT_EQ(asked, 2);
  window.reset();
  open();
  EXPECT_TRUE(shows(*window, refused));
  press("Continuer");
  window->close();
  EXPECT_EQ(answer, true) << "later pages do not take the yes back";
}

TEST_F(OnboardingTest, ItsEndIsWrittenBeforeItClosesThoughTheLoginItemFails) {
  loginItem->failure = "no";
  open();
  window->setPage(4);
  testing::internal::CaptureStdout();
  QTest::mouseClick(buttonNamed(*window, "Activer"), Qt::LeftButton);
  EXPECT_TRUE(onboardingShown);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "SMAppService error: no\n");
  EXPECT_EQ(defaults->value("has_completed_onboarding"), DefaultsValue(true));
  QCoreApplication::processEvents();
  EXPECT_FALSE(onboardingShown);
}

}  // namespace
}  // namespace sentrel::test
