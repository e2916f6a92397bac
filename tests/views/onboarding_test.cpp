// SPDX-License-Identifier: Apache-2.0
#include "views/window_test.h"

namespace sentrel::test {
namespace {

using OnboardingTest = WindowTest;

TEST_F(OnboardingTest, ClosingItUnansweredIsANoThatCanBeAskedAgain) {
  std::optional<bool> answer;
  consent->request([&](bool yes) { answer = yes; });
  const QString refused = QStringLiteral("La caméra n'est pas encore autorisée.");
  open<OnboardingView>(onboardingParts());
  EXPECT_FALSE(shows(refused)) << "nobody has said no yet";
  window->close();
  EXPECT_EQ(answer, false);
  EXPECT_TRUE(onboardingShown) << "it comes again";
  consent->request([&](bool yes) { answer = yes; });
  open<OnboardingView>(onboardingParts());
  EXPECT_TRUE(shows(refused));
  press("Continuer");
  window->close();
  EXPECT_EQ(answer, true) << "later pages do not take the yes back";
}

TEST_F(OnboardingTest, ItsEndIsWrittenBeforeItClosesThoughTheLoginItemFails) {
  loginItem->failure = "no";
  open<OnboardingView>(onboardingParts())->setPage(4);
  QTest::mouseClick(named("Activer"), Qt::LeftButton);
  EXPECT_TRUE(onboardingShown);
  EXPECT_EQ(defaults->value("has_completed_onboarding"), DefaultsValue(true));
  QCoreApplication::processEvents();
  EXPECT_FALSE(onboardingShown);
}

}  // namespace
}  // namespace sentrel::test
