// SPDX-License-Identifier: Apache-2.0
#include "views/window_test.h"

namespace sentrel::test {
namespace {

using Kind = CalibrationSession::Phase::Kind;

struct CalibrationTest : WindowTest {
  void openSheet() { open<PreferencesView>(preferencesParts())->openCalibration(); }
  [[nodiscard]] Kind phase() const { return calibration->phase().get().kind; }
};

TEST_F(CalibrationTest, AFailureSaysWhyAndTheAdjustedDistanceIsTheOneThatIsKept) {
  machine.session->cameras.clear();
  machine.session->seen = false;
  openSheet();
  press("Démarrer");
  machine.advance(10'000);
  EXPECT_TRUE(shows("Aucun visage détecté. Assurez-vous d'être bien en face de la caméra."));
  EXPECT_TRUE(shows("Caméra introuvable")) << "what ails the camera";
  machine.session->plug(true);
  press("Réessayer");
  press("Démarrer");
  machine.advance(3000);
  const double width = 12600.0 / 1280 / 32;  // 32 cm
  see(detectionsOf({faceOf(width)}, {faceOf(width)}), 3100);
  ASSERT_TRUE(shows("Distance estimée\u00A0: 32\u00A0cm"));
  press("Réduire la distance");
  EXPECT_TRUE(shows("30\u00A0cm"));
  EXPECT_FALSE(named("Réduire la distance")->isEnabled());
  for (int i = 0; i < 9; ++i) press("Augmenter la distance");
  press("Valider");
  EXPECT_EQ(settings->settings.get().calibrationDistanceCm, 75);
  EXPECT_TRUE(shows("75 cm")) << "in the preferences";
  EXPECT_EQ(named("Calibrer…")->accessibleDescription(), "Distance mesurée lors de la calibration");
  EXPECT_EQ(named("Démarrer"), nullptr) << "the sheet has gone";
}

TEST_F(CalibrationTest, WhatStartsItTwiceDoesNotEndIt) {
  for (const Qt::Key pressed : {Qt::Key_Return, Qt::Key_Space}) {
    openSheet();
    key(pressed);
    key(pressed);
    EXPECT_EQ(phase(), Kind::counting) << pressed;
    key(Qt::Key_Tab);
    EXPECT_EQ(window->focusWidget(), named("Annuler"));
    key(pressed);  // now it is meant
    EXPECT_EQ(phase(), Kind::idle) << pressed;
  }
  press("Démarrer");
  auto* cancel = named("Annuler");
  QTest::mouseEvent(QTest::MouseDClick, cancel, Qt::LeftButton, {}, cancel->rect().center());
  QTest::mouseRelease(cancel, Qt::LeftButton);
  QCoreApplication::processEvents();
  EXPECT_EQ(phase(), Kind::counting);
}

TEST_F(CalibrationTest, ClosedAtAnyMomentItLeavesTheCameraToProtection) {
  const std::function<void()> ways[] = {[this] { key(Qt::Key_Escape); }, [this] { press("Fermer"); },
                                        [this] { window->close(); }};
  for (std::int64_t moment = 0; moment <= 6500; moment += 1300) {
    for (const auto& leave : ways) {
      SCOPED_TRACE(moment);
      openSheet();
      press("Démarrer");
      machine.advance(moment);
      leave();
      start();  // in the same moment
      see(alone, 300);
      EXPECT_EQ(state(), FilterState::Kind::nominal);
      stop();
      close();
      EXPECT_FALSE(machine.session->running);
    }
  }
}

}  // namespace
}  // namespace sentrel::test
