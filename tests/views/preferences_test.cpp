// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <QAccessible>

#include "views/drive.h"
#include "views/views_fixture.h"

namespace sentrel::test {
namespace {

class PreferencesTest : public testing::Test, protected ViewsFixture {
 protected:
  void open() {
    window = std::make_unique<PreferencesView>(preferencesParts());
    show(*window);
  }
  template <class Control>
  [[nodiscard]] Control* control(const QString& name) const {
    for (auto* widget : window->findChildren<QWidget*>()) {
      auto* found = dynamic_cast<Control*>(widget);
      if (found != nullptr && widget->accessibleName() == name) return found;
    }
    return nullptr;
  }
  void key(const QString& slider, Qt::Key pressed) { QTest::keyClick(control<ValueSlider>(slider), pressed); }
  void flip(const QString& name) { click(control<ToggleSwitch>(name)); }
  [[nodiscard]] const FilterSettings& saved() const { return settings->settings.get(); }

  std::unique_ptr<PreferencesView> window;
};

TEST_F(PreferencesTest, EveryControlSavesItsSettingAtOnce) {
  open();
  FilterSettings expected = saved();
  const auto expectSaved = [&](const char* what, auto& field, auto value) {
    field = value;
    EXPECT_EQ(saved(), expected) << what;
    EXPECT_EQ(SettingsRepository(defaults, loginItem).settings.get(), expected) << what << ", as stored";
  };
  const auto slide = [&](const char* name, Qt::Key pressed, auto& field, auto value) {
    key(name, pressed);
    expectSaved(name, field, value);
  };
  const auto pick = [&](const char* choice, std::int64_t& field, std::int64_t value) {
    click(buttonNamed(*window, choice));
    expectSaved(choice, field, value);
  };
  const auto turn = [&](const char* name, bool& field) {
    flip(name);
    expectSaved(name, field, !field);
  };
  slide("Force du filtre", Qt::Key_Right, expected.filterStrength, 4);
  slide("Sensibilité", Qt::Key_Home, expected.sensitivity, 1);
  slide("Coefficient de distance", Qt::Key_End, expected.privacyMatrixCoefficient, 4.0F);
  slide("Opacité des bandes", Qt::Key_End, expected.matrixStripeAlpha, 1.0F);
  pick("2 s", expected.inattentionDelayMs, 2000);
  pick("5 fps", expected.captureFps, 5);
  pick("Désactivé", expected.batteryThresholdPercent, 0);
  turn("Mode lunettes", expected.glassesCompat);
  turn("Raccourci global Super+Maj+C", expected.globalShortcutEnabled);
  turn("Couvrir tous les écrans", expected.coverAllScreens);
  turn("Vibration lors d'une alerte", expected.hapticOnAlert);
  turn("Activer la matrice", expected.privacyMatrixEnabled);
  turn("Lancer au démarrage", expected.launchAtLogin);
  EXPECT_FALSE(control<ValueSlider>("Opacité des bandes")->isEnabled()) << "without the matrix";
}

TEST_F(PreferencesTest, TheLoginItemIsShownAsItIs) {
  open();
  auto* login = control<ToggleSwitch>("Lancer au démarrage");
  for (const auto& [fails, on] : {std::pair(false, true), std::pair(true, true), std::pair(false, false)}) {
    loginItem->failure = fails ? std::optional<std::string>("no") : std::nullopt;
    testing::internal::CaptureStdout();
    flip("Lancer au démarrage");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), fails ? "SMAppService error: no\n" : "");
    EXPECT_EQ(login->isChecked(), on);
    EXPECT_EQ(login->accessibleDescription() == qtTrId("error_login_item"), fails);
  }
}

TEST_F(PreferencesTest, APickerIsOneStopOfTheTabKeyAndArrowsPick) {
  open();
  control<ValueSlider>("Sensibilité")->setFocus();
  QTest::keyClick(window->focusWidget(), Qt::Key_Tab);
  QTest::keyClick(window->focusWidget(), Qt::Key_Right);
  EXPECT_EQ(saved().inattentionDelayMs, 2000);
  QTest::keyClick(window->focusWidget(), Qt::Key_Tab);
  QTest::keyClick(window->focusWidget(), Qt::Key_Space);
  EXPECT_FALSE(saved().glassesCompat);
}

TEST_F(PreferencesTest, WhatIsOutOfRangeStaysUntilItIsTouched) {
  FilterSettings odd;
  odd.filterStrength = 9;
  odd.inattentionDelayMs = 700;
  odd.matrixStripeAlpha = 0.02F;
  settings->save(odd);
  open();
  EXPECT_EQ(control<ValueSlider>("Force du filtre")->words(), "9");
  flip("Mode lunettes");
  odd.glassesCompat = false;
  EXPECT_EQ(saved(), odd);
  key("Force du filtre", Qt::Key_Left);
  EXPECT_EQ(saved().filterStrength, 4);
  // A screen reader reads and sets what the words show.
  auto* opacity = QAccessible::queryAccessibleInterface(control<ValueSlider>("Opacité des bandes"));
  EXPECT_EQ(opacity->valueInterface()->currentValue().toDouble(), 2);
  opacity->valueInterface()->setCurrentValue(55);
  EXPECT_EQ(opacity->text(QAccessible::Value), "55%");
  EXPECT_EQ(saved().matrixStripeAlpha, 0.55F);
}

TEST_F(PreferencesTest, ACameraIsChosenByItsIdWhateverItsName) {
  machine.session->cameras.push_back({"usb", std::string(300, 'W'), CameraPosition::unspecified});
  machine.session->cameras.push_back({"rtl", "مصلمة \u202E Cam", CameraPosition::unspecified});
  start();
  open();
  auto* picker = control<MenuPicker>("Caméra");
  picker->setFocus();
  QTest::keyClick(picker, Qt::Key_End);
  EXPECT_EQ(saved().selectedCameraID, "rtl");
  machine.settle();
  EXPECT_EQ(machine.session->request->deviceID, "rtl");
  machine.session->cameras.pop_back();
  machine.session->devicesChanged.emit();
  EXPECT_EQ(saved().selectedCameraID, "rtl") << "while it is unplugged";
  EXPECT_EQ(picker->currentData().toString(), "rtl");
  QTest::keyClick(picker, Qt::Key_Home);
  EXPECT_EQ(saved().selectedCameraID, std::nullopt);
}

TEST_F(PreferencesTest, ThePreviewTakesFramesOnlyWhileItIsSeen) {
  start();
  const auto tapped = [this] { return machine.session->previewTap != nullptr; };
  open();
  EXPECT_TRUE(tapped());
  desktop.session->observer.emit(SessionEvent::screenIsLocked);
  machine.settle();
  EXPECT_FALSE(tapped()) << "locked";
  desktop.session->observer.emit(SessionEvent::screenIsUnlocked);
  machine.settle();
  EXPECT_TRUE(tapped());
  window->hide();
  EXPECT_FALSE(tapped());
  window->show();
  window.reset();
  EXPECT_FALSE(tapped());
}

}  // namespace
}  // namespace sentrel::test
