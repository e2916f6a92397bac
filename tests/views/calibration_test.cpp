// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "views/drive.h"
#include "views/views_fixture.h"

namespace sentrel::test {
namespace {

using Phase = CalibrationSession::Phase;

class CalibrationTest : public testing::Test, protected ViewsFixture {
 protected:
  void open() {
    window = std::make_unique<PreferencesView>(preferencesParts());
    show(*window);
    window->openCalibration();
  }
  void press(const QString& words) {
    click(buttonNamed(*window, words));
    machine.settle();
  }
  void key(Qt::Key pressed) {
    QTest::keyClick(window->focusWidget(), pressed);
    machine.settle();
    QCoreApplication::processEvents();
  }
  [[nodiscard]] Phase::Kind phase() const { return calibration->phase().get().kind(); }

  std::unique_ptr<PreferencesView> window;
};

TEST_F(CalibrationTest, TheAdjustedDistanceIsTheOneThatIsKept) {
  open();
  press("Démarrer");
  machine.advance(6200);
  EXPECT_TRUE(shows(*window, "Aucun visage détecté. Assurez-vous d'être bien en face de la caméra."));
  EXPECT_FALSE(machine.session->running);
  press("Réessayer");
  press("Démarrer");
  machine.advance(3000);
  const double width = 12600.0 / 1280 / 32;  // 32 cm
  see(detectionsOf({faceOf(width)}, {faceOf(width)}), 3100);
  ASSERT_TRUE(shows(*window, "Distance estimée\u00A0: 32\u00A0cm"));
  press("Réduire la distance");
  EXPECT_TRUE(shows(*window, "30\u00A0cm"));
  EXPECT_FALSE(buttonNamed(*window, "Réduire la distance")->isEnabled());
  for (int i = 0; i < 9; ++i) press("Augmenter la distance");
  press("Valider");
  EXPECT_EQ(settings->settings.get().calibrationDistanceCm, 75);
  EXPECT_TRUE(settings->settings.get().isCalibrated);
  EXPECT_TRUE(shows(*window, "75 cm")) << "in the preferences";
  EXPECT_EQ(buttonNamed(*window, "Calibrer…")->accessibleDescription(),
            "Distance mesurée lors de la calibration");
  EXPECT_EQ(buttonNamed(*window, "Démarrer"), nullptr) << "the sheet has gone";
}

TEST_F(CalibrationTest, WhatStartsItTwiceDoesNotEndIt) {
  for (const Qt::Key pressed : {Qt::Key_Return, Qt::Key_Space}) {
    open();
    key(pressed);
    key(pressed);
    EXPECT_EQ(phase(), Phase::Kind::counting) << pressed;
    key(Qt::Key_Tab);
    EXPECT_EQ(window->focusWidget(), buttonNamed(*window, "Annuler"));
    key(pressed);  // now it is meant
    EXPECT_EQ(phase(), Phase::Kind::idle) << pressed;
    window.reset();
  }
  open();
  press("Démarrer");
  auto* cancel = buttonNamed(*window, "Annuler");
  QTest::mouseEvent(QTest::MouseDClick, cancel, Qt::LeftButton, {}, cancel->rect().center());
  QTest::mouseRelease(cancel, Qt::LeftButton);
  QCoreApplication::processEvents();
  EXPECT_EQ(phase(), Phase::Kind::counting);
}

TEST_F(CalibrationTest, ClosedAtAnyMomentItLeavesTheCameraToProtection) {
  const std::function<void()> ways[] = {[this] { key(Qt::Key_Escape); }, [this] { press("Fermer"); },
                                        [this] { window->close(); }};
  for (std::int64_t moment = 0; moment <= 6500; moment += 1300) {
    for (const auto& close : ways) {
      SCOPED_TRACE(moment);
      open();
      press("Démarrer");
      machine.advance(moment);
      close();
      start();  // in the same moment
      EXPECT_TRUE(service->isActive());
      see(alone, 300);
      EXPECT_EQ(service->fsmState().get().kind(), FilterState::Kind::nominal);
      stop();
      window.reset();
      EXPECT_FALSE(machine.session->running);
    }
  }
}

}  // namespace
}  // namespace sentrel::test
