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

TEST_F(OnboardingTest, ItSaysWhileThereIsNoCamera) {
  const QString none =
      QStringLiteral("Aucune caméra trouvée. Branchez‑en une\u00A0: Sentrel la verra aussitôt.");
  open<OnboardingView>(onboardingParts());
  machine.settle();
  EXPECT_FALSE(shows(none));
  machine.session->plug(false);
  EXPECT_TRUE(shows(none));
  machine.session->plug(true);
  EXPECT_FALSE(shows(none));
  machine.session->cameras.clear();
  machine.session->seen = false;
  machine.session->unseen.kind = CaptureError::Kind::noService;
  open<OnboardingView>(onboardingParts());
  EXPECT_FALSE(shows(none)) << "not known yet";
  machine.settle();
  EXPECT_TRUE(shows("Service PipeWire introuvable\u00A0: installez pipewire et wireplumber."));
  machine.session->plug(true);
  EXPECT_TRUE(shows(""));
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
