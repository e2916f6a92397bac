// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <QAccessible>
#include <functional>

#include "views/drive.h"
#include "views/view_room.h"

namespace sentrel::test {
namespace {

class PreferencesTest : public testing::Test {
 protected:
  void open() {
    window = std::make_unique<PreferencesView>(room.preferencesParts());
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
  [[nodiscard]] const FilterSettings& settings() const { return room.settings->settings.get(); }

  ViewRoom room;
  std::unique_ptr<PreferencesView> window;
};

TEST_F(PreferencesTest, EveryControlSavesItsSettingAtOnce) {
  open();
  const struct {
    const char* what;
    std::function<void()> act;
    std::function<void(FilterSettings&)> expected;
  } cases[] = {
      {"strength", [&] { key("Force du filtre", Qt::Key_Right); }, [](auto& s) { s.filterStrength = 4; }},
      {"sensitivity", [&] { key("Sensibilité", Qt::Key_Home); }, [](auto& s) { s.sensitivity = 1; }},
      {"delay", [&] { click(buttonNamed(*window, "2 s")); }, [](auto& s) { s.inattentionDelayMs = 2000; }},
      {"glasses", [&] { flip("Mode lunettes"); }, [](auto& s) { s.glassesCompat = false; }},
      {"shortcut", [&] { flip("Raccourci global Super+Maj+C"); },
       [](auto& s) { s.globalShortcutEnabled = false; }},
      {"screens", [&] { flip("Couvrir tous les écrans"); }, [](auto& s) { s.coverAllScreens = false; }},
      {"haptics", [&] { flip("Vibration lors d'une alerte"); }, [](auto& s) { s.hapticOnAlert = false; }},
      {"coefficient", [&] { key("Coefficient de distance", Qt::Key_End); },
       [](auto& s) { s.privacyMatrixCoefficient = 4; }},
      {"opacity", [&] { key("Opacité des bandes", Qt::Key_End); }, [](auto& s) { s.matrixStripeAlpha = 1; }},
      {"matrix", [&] { flip("Activer la matrice"); }, [](auto& s) { s.privacyMatrixEnabled = false; }},
      {"rate", [&] { click(buttonNamed(*window, "5 fps")); }, [](auto& s) { s.captureFps = 5; }},
      {"battery", [&] { click(buttonNamed(*window, "Désactivé")); },
       [](auto& s) { s.batteryThresholdPercent = 0; }},
      {"login", [&] { flip("Lancer au démarrage"); }, [](auto& s) { s.launchAtLogin = true; }},
  };
  FilterSettings expected = settings();
  for (const auto& [what, act, change] : cases) {
    SCOPED_TRACE(what);
    act();
    change(expected);
    EXPECT_EQ(settings(), expected);
    EXPECT_EQ(SettingsRepository(room.defaults, room.loginItem).settings.get(), expected) << "as stored";
  }
  EXPECT_FALSE(control<ValueSlider>("Opacité des bandes")->isEnabled()) << "without the matrix";
  room.loginItem->failure = "no";
  testing::internal::CaptureStdout();
  flip("Lancer au démarrage");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "SMAppService error: no\n");
  auto* login = control<ToggleSwitch>("Lancer au démarrage");
  EXPECT_TRUE(login->isChecked()) << "as it still is";
  EXPECT_EQ(login->accessibleDescription(), qtTrId("error_login_item"));
  room.loginItem->failure.reset();
  flip("Lancer au démarrage");
  EXPECT_FALSE(login->isChecked());
  EXPECT_NE(login->accessibleDescription(), qtTrId("error_login_item"));
}

TEST_F(PreferencesTest, APickerIsOneStopOfTheTabKeyAndArrowsPick) {
  open();
  control<ValueSlider>("Sensibilité")->setFocus();
  QTest::keyClick(window->focusWidget(), Qt::Key_Tab);
  QTest::keyClick(window->focusWidget(), Qt::Key_Right);
  EXPECT_EQ(settings().inattentionDelayMs, 2000);
  QTest::keyClick(window->focusWidget(), Qt::Key_Tab);
  QTest::keyClick(window->focusWidget(), Qt::Key_Space);
  EXPECT_FALSE(settings().glassesCompat);
}

TEST_F(PreferencesTest, WhatIsOutOfRangeStaysUntilItIsTouched) {
  FilterSettings odd;
  odd.filterStrength = 9;
  odd.inattentionDelayMs = 700;
  odd.matrixStripeAlpha = 0.02F;
  room.settings->save(odd);
  open();
  EXPECT_EQ(control<ValueSlider>("Force du filtre")->words(), "9");
  flip("Mode lunettes");
  odd.glassesCompat = false;
  EXPECT_EQ(settings(), odd);
  key("Force du filtre", Qt::Key_Left);
  EXPECT_EQ(settings().filterStrength, 4);
  // A screen reader reads and sets what the words show.
  auto* opacity = QAccessible::queryAccessibleInterface(control<ValueSlider>("Opacité des bandes"));
  EXPECT_EQ(opacity->valueInterface()->currentValue().toDouble(), 2);
  opacity->valueInterface()->setCurrentValue(55);
  EXPECT_EQ(opacity->text(QAccessible::Value), "55%");
  EXPECT_EQ(settings().matrixStripeAlpha, 0.55F);
}

TEST_F(PreferencesTest, ACameraIsChosenByItsIdWhateverItsName) {
  room.room.session->cameras.push_back({"usb", std::string(300, 'W'), CameraPosition::unspecified});
  room.room.session->cameras.push_back({"rtl", "مصلمة \u202E Cam", CameraPosition::unspecified});
  room.start();
  open();
  auto* picker = control<MenuPicker>("Caméra");
  picker->setFocus();
  QTest::keyClick(picker, Qt::Key_End);
  EXPECT_EQ(settings().selectedCameraID, "rtl");
  room.room.settle();
  EXPECT_EQ(room.room.session->request->deviceID, "rtl");
  room.room.session->cameras.pop_back();
  room.room.session->devicesChanged.emit();
  EXPECT_EQ(settings().selectedCameraID, "rtl") << "while it is unplugged";
  EXPECT_EQ(picker->currentData().toString(), "rtl");
  QTest::keyClick(picker, Qt::Key_Home);
  EXPECT_EQ(settings().selectedCameraID, std::nullopt);
}

TEST_F(PreferencesTest, ThePreviewTakesFramesOnlyWhileItIsSeen) {
  room.start();
  const auto tapped = [this] { return room.room.session->previewTap != nullptr; };
  open();
  EXPECT_TRUE(tapped());
  room.desktop.session->observer.tell(SessionEvent::screenIsLocked);
  room.room.settle();
  EXPECT_FALSE(tapped()) << "locked";
  room.desktop.session->observer.tell(SessionEvent::screenIsUnlocked);
  room.room.settle();
  EXPECT_TRUE(tapped());
  window->hide();
  EXPECT_FALSE(tapped());
  window->show();
  window.reset();
  EXPECT_FALSE(tapped());
}

}  // namespace
}  // namespace sentrel::test
