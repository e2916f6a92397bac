// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "views/drive.h"
#include "views/view_room.h"

namespace sentrel::test {
namespace {

using Phase = CalibrationSession::Phase;

class CalibrationTest : public testing::Test {
 protected:
  void open() {
    window = std::make_unique<PreferencesView>(room.preferencesParts());
    show(*window);
    window->openCalibration();
  }
  void press(const QString& words) {
    click(buttonNamed(*window, words));
    room.room.settle();
  }
  void measure(double width) {
    press("Démarrer");
    room.room.advance(3000);
    room.see(detectionsOf({faceOf(width)}, {faceOf(width)}), 3100);
  }
  [[nodiscard]] Phase::Kind phase() const { return room.calibration->phase().get().kind(); }

  ViewRoom room;
  std::unique_ptr<PreferencesView> window;
};

TEST_F(CalibrationTest, TheAdjustedDistanceIsTheOneThatIsKept) {
  open();
  measure(12600.0 / 1280 / 32);  // 32 cm
  ASSERT_TRUE(shows(*window, "Distance estimée\u00A0: 32\u00A0cm"));
  press("Réduire la distance");
  EXPECT_TRUE(shows(*window, "30\u00A0cm"));
  EXPECT_FALSE(buttonNamed(*window, "Réduire la distance")->isEnabled());
  for (int i = 0; i < 9; ++i) press("Augmenter la distance");
  press("Valider");
  EXPECT_EQ(room.settings->settings.get().calibrationDistanceCm, 75);
  EXPECT_TRUE(room.settings->settings.get().isCalibrated);
  EXPECT_TRUE(shows(*window, "75 cm")) << "in the preferences";
  EXPECT_EQ(buttonNamed(*window, "Calibrer…")->accessibleDescription(),
            "Distance mesurée lors de la calibration");
  EXPECT_EQ(buttonNamed(*window, "Démarrer"), nullptr) << "the sheet has gone";
}

TEST_F(CalibrationTest, AFailureIsSaidAndCanBeTriedAgain) {
  open();
  press("Démarrer");
  room.room.advance(6200);
  EXPECT_TRUE(shows(*window, "Aucun visage détecté. Assurez-vous d'être bien en face de la caméra."));
  EXPECT_FALSE(room.room.session->running);
  press("Réessayer");
  EXPECT_NE(buttonNamed(*window, "Démarrer"), nullptr);
}

TEST_F(CalibrationTest, WhatStartsItTwiceDoesNotEndIt) {
  for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Space}) {
    open();
    for (int i = 0; i < 2; ++i) {
      QTest::keyClick(window->focusWidget(), key);
      room.room.settle();
      QCoreApplication::processEvents();
    }
    EXPECT_EQ(phase(), Phase::Kind::counting) << key;
    QTest::keyClick(window->focusWidget(), Qt::Key_Tab);
    EXPECT_EQ(window->focusWidget(), buttonNamed(*window, "Annuler"));
    QTest::keyClick(window->focusWidget(), key);  // now it is meant
    QCoreApplication::processEvents();
    EXPECT_EQ(phase(), Phase::Kind::idle) << key;
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
  enum class Way { escape, button, close };
  for (const Way way : {Way::escape, Way::button, Way::close}) {
    for (std::int64_t moment = 0; moment <= 6500; moment += 500) {
      SCOPED_TRACE(moment);
      open();
      press("Démarrer");
      room.room.advance(moment);
      if (way == Way::escape) {
        QTest::keyClick(window->focusWidget(), Qt::Key_Escape);
      } else if (way == Way::button) {
        click(buttonNamed(*window, "Fermer"));
      } else {
        window->close();
      }
      room.start();  // in the same moment
      EXPECT_TRUE(room.service->isActive());
      room.see(room.alone, 300);
      EXPECT_EQ(room.service->fsmState().get().kind(), FilterState::Kind::nominal);
      room.stop();
      window.reset();
      EXPECT_FALSE(room.room.session->running);
    }
  }
}

TEST_F(CalibrationTest, ProtectionThatRunsKeepsItsCamera) {
  room.start();
  open();
  measure(0.15);
  press("Valider");
  EXPECT_EQ(room.settings->settings.get().calibrationDistanceCm, 66);
  EXPECT_TRUE(room.room.session->running);
  EXPECT_NE(room.camera->analyzer(), nullptr);
}

}  // namespace
}  // namespace sentrel::test
