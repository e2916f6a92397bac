// SPDX-License-Identifier: Apache-2.0

#include <QAccessible>

#include "views/window_test.h"

namespace sentrel::test {
namespace {

struct PreferencesTest : WindowTest {
  PreferencesView* open() { return WindowTest::open<PreferencesView>(preferencesParts()); }
  /// Of several choices side by side, the first.
  [[nodiscard]] QAbstractButton* choiceOf(const char* name) const {
    const auto* picker = named<SegmentedPicker>(name);
    return picker != nullptr ? picker->findChild<QAbstractButton*>() : nullptr;
  }
  void keyOn(const char* name, Qt::Key pressed) {
    QWidget* choice = choiceOf(name);
    (choice != nullptr ? choice : named<QWidget>(name))->setFocus();
    QTest::keyClick(window->focusWidget(), pressed);
  }
  [[nodiscard]] const FilterSettings& saved() const { return settings->settings.get(); }
};

TEST_F(PreferencesTest, EveryControlSavesAtOnceAndShowsWhatIsSaved) {
  open();
  FilterSettings filter = saved();
  ProtectionOptions options = settings->options;
  const char* const hiding = "Masquer les autres notifications pendant une alerte";
  const struct {
    const char* name;
    Qt::Key key;
    std::function<void()> change;
  } cases[] = {
      {"Force du filtre", Qt::Key_Right, [&] { filter.filterStrength = 4; }},
      {"Sensibilité", Qt::Key_Home, [&] { filter.sensitivity = 1; }},
      {"Coefficient de distance", Qt::Key_End, [&] { filter.privacyMatrixCoefficient = 4; }},
      {"Opacité des bandes", Qt::Key_End, [&] { filter.matrixStripeAlpha = 1; }},
      {"2 s", Qt::Key_Space, [&] { filter.inattentionDelayMs = 2000; }},
      {"5 fps", Qt::Key_Space, [&] { filter.captureFps = 5; }},
      {"Désactivé", Qt::Key_Space, [&] { filter.batteryThresholdPercent = 0; }},
      {"Mode lunettes", Qt::Key_Space, [&] { filter.glassesCompat = false; }},
      {"Raccourci global Super+Maj+C", Qt::Key_Space, [&] { filter.globalShortcutEnabled = false; }},
      {"Couvrir tous les écrans", Qt::Key_Space, [&] { filter.coverAllScreens = false; }},
      {"Vibration lors d'une alerte", Qt::Key_Space, [&] { filter.hapticOnAlert = false; }},
      {"Activer la matrice", Qt::Key_Space, [&] { filter.privacyMatrixEnabled = false; }},
      {"Lancer au démarrage", Qt::Key_Space, [&] { filter.launchAtLogin = true; }},
      {"Quand quelqu'un regarde", Qt::Key_Down, [&] { options.reaction = Reaction::notifyOnly; }},
      {"Quand quelqu'un regarde", Qt::Key_Down, [&] { options.reaction = Reaction::darkenOnly; }},
      {"Pendant un partage d'écran", Qt::Key_Down, [&] { options.whenShared = WhenShared::changeNothing; }},
      {"Pendant un partage d'écran", Qt::Key_End, [&] { options.whenShared = WhenShared::pause; }},
      {"Surveiller jusqu'à", Qt::Key_Down, [&] { options.watchUpToCm = 350; }},
      {"Surveiller jusqu'à", Qt::Key_End, [&] { options.watchUpToCm = 150; }},
      {"Alerter après", Qt::Key_Right, [&] { options.alertAfterMs = 1000; }},
      {"Seulement si l'on regarde l'écran", Qt::Key_Space, [&] { options.onlyFacing = true; }},
      {hiding, Qt::Key_Space, [&] { options.hideOtherNotifications = true; }},
  };
  for (const auto& [name, pressed, change] : cases) {
    SCOPED_TRACE(name);
    keyOn(name, pressed);
    change();
    EXPECT_EQ(saved(), filter);
    EXPECT_EQ(settings->options.get(), options);
    const SettingsRepository stored(defaults, loginItem);
    EXPECT_EQ(stored.settings.get(), filter);
    EXPECT_EQ(stored.options.get(), options);
  }
  EXPECT_FALSE(named<QWidget>("Opacité des bandes")->isEnabled()) << "without the matrix";

  loginItem->failure = "no";
  press("Lancer au démarrage");
  EXPECT_TRUE(named("Lancer au démarrage")->isChecked()) << "as it is";
  EXPECT_EQ(named("Lancer au démarrage")->accessibleDescription(), qtTrId("error_login_item"));

  options = {.watchUpToCm = 300};
  settings->save(options);
  EXPECT_EQ(named<MenuPicker>("Quand quelqu'un regarde")->currentText(), "Assombrir et prévenir");
  EXPECT_TRUE(choiceOf("Alerter après")->isChecked());
  EXPECT_EQ(named<MenuPicker>("Surveiller jusqu'à")->currentIndex(), -1) << "none of these";
  EXPECT_EQ(settings->options.get(), options);

  desktop.notifications->hidesOthers = false;
  EXPECT_FALSE(named(hiding)->isEnabled());
  EXPECT_EQ(named(hiding)->accessibleDescription(),
            "Ce bureau ne permet pas de masquer celles des autres programmes");
}

TEST_F(PreferencesTest, WhatDesktopAndCameraCannotDoIsSaid) {
  open();
  EXPECT_TRUE(shows("Bandes : X11, 1 écran couvert"));
  EXPECT_TRUE(shows("Raccourci : Super+Maj+C"));
  EXPECT_TRUE(shows("Icône : StatusNotifier"));
  start();
  interruptCamera();
  EXPECT_TRUE(shows("Caméra occupée")) << "above the preview";
  const Screen second{2, "two", {1920, 0, 800, 600}, false};
  backend->setScreens({backend->screenList[0], second});
  EXPECT_TRUE(shows("Bandes : X11, 2 écrans couverts"));
  press("Couvrir tous les écrans");
  EXPECT_TRUE(shows("Bandes : X11, 1 écran couvert"));
  backend->cannot = "error_no_overlay";
  backend->limitationChanged.emit();
  EXPECT_TRUE(shows("Ce bureau ne permet pas de couvrir l'écran"));
  tray = Tray::none;
  std::string keys(10'000, 'k');
  keys[3] = '\n';
  desktop.keys->answer = {ShortcutGrant::Kind::granted, keys};
  desktop.keys->grantChanged.emit();
  EXPECT_TRUE(shows("Icône : aucune barre"));
  EXPECT_TRUE(shows("Raccourci : attribué par le bureau : kkk " + QString(35, u'k') + "…"));
  desktop.keys->answer = {ShortcutGrant::Kind::refused};
  desktop.keys->grantChanged.emit();
  EXPECT_TRUE(shows("Raccourci : refusé"));
}

TEST_F(PreferencesTest, IgnoredFacesAreListedAndForgottenOneByOne) {
  start();
  open();
  EXPECT_TRUE(shows("Aucun visage ignoré"));
  see(watched, 1500);
  service->relaxations().filter.ignoreOnlooker();
  EXPECT_TRUE(shows("depuis 1 min"));
  const auto crowd = detectionsOf({faceOf(0.2), faceOf(0.05), faceOf(0.06, 0.5)}, {faceOf(0.2)});
  see(crowd, 14'000);
  service->relaxations().filter.ignoreOnlooker();
  see(crowd, 11'000);
  const auto places = service->relaxations().filter.ignored().get();
  ASSERT_EQ(places.size(), 2);
  press("Oublier");
  EXPECT_EQ(service->relaxations().filter.ignored().get(), std::vector{places[1]}) << "the first row";
  see(watched, 4 * 60'000);
  open();
  EXPECT_TRUE(shows("depuis 4 min"));
  press("Oublier");
  EXPECT_EQ(named("Oublier"), nullptr);
  EXPECT_TRUE(shows("Aucun visage ignoré"));
}

TEST_F(PreferencesTest, APickerIsOneStopOfTheTabKeyAndArrowsPick) {
  open();
  named<QWidget>("Sensibilité")->setFocus();
  key(Qt::Key_Tab);
  key(Qt::Key_Right);
  EXPECT_EQ(saved().inattentionDelayMs, 2000);
  key(Qt::Key_Tab);
  key(Qt::Key_Space);
  EXPECT_FALSE(saved().glassesCompat);
}

TEST_F(PreferencesTest, WhatIsOutOfRangeStaysUntilItIsTouched) {
  FilterSettings odd;
  odd.filterStrength = 9;
  odd.inattentionDelayMs = 700;
  odd.matrixStripeAlpha = 0.02F;
  settings->save(odd);
  open();
  EXPECT_EQ(named<ValueSlider>("Force du filtre")->words(), "9");
  press("Mode lunettes");
  odd.glassesCompat = false;
  EXPECT_EQ(saved(), odd);
  keyOn("Force du filtre", Qt::Key_Left);
  EXPECT_EQ(saved().filterStrength, 4);
  // A screen reader reads and sets what the words show.
  auto* opacity = QAccessible::queryAccessibleInterface(named<QWidget>("Opacité des bandes"));
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
  auto* picker = named<MenuPicker>("Caméra");
  keyOn("Caméra", Qt::Key_End);
  EXPECT_EQ(saved().selectedCameraID, "rtl");
  machine.settle();
  EXPECT_EQ(machine.session->request->deviceID, "rtl");
  machine.session->cameras.pop_back();
  machine.session->devicesChanged.emit();
  EXPECT_EQ(saved().selectedCameraID, "rtl") << "while it is unplugged";
  EXPECT_EQ(picker->currentData().toString(), "rtl");
  keyOn("Caméra", Qt::Key_Home);
  EXPECT_EQ(saved().selectedCameraID, std::nullopt);
}

TEST_F(PreferencesTest, ThePreviewAndWhatSentrelSeesCostNothingUnseen) {
  start();
  const auto expectLooking = [this](bool looking, const char* when) {
    see(watched, 300);
    EXPECT_EQ(machine.session->previewTap != nullptr, looking) << when;
    EXPECT_EQ(static_cast<bool>(camera->analyzer()->onDetections), looking) << when;
  };
  /// For those who do not see the boxes.
  const auto describes = [this](const QString& words) {
    return std::ranges::any_of(window->findChildren<QWidget*>(), [&](const QWidget* widget) {
      return widget->accessibleDescription() == words;
    });
  };
  open();
  expectLooking(true, "open");
  press("Montrer ce que Sentrel voit");
  expectLooking(true, "open");
  EXPECT_TRUE(describes("vous, quelqu'un"));
  tell(SessionEvent::screenIsLocked);
  EXPECT_EQ(machine.session->previewTap, nullptr) << "locked";
  tell(SessionEvent::screenIsUnlocked);
  expectLooking(true, "unlocked");
  window->hide();
  expectLooking(false, "hidden");
  window->show();
  expectLooking(true, "shown again");
  press("Montrer ce que Sentrel voit");
  EXPECT_FALSE(describes("vous, quelqu'un"));
  EXPECT_EQ(machine.freeFrames(), 8U) << "no picture is kept";
  close();
  expectLooking(false, "closed");
}

TEST(PreviewCutTest, FollowsTheFaceCalmly) {
  Theme::shared().setLook({.reducedMotion = true});
  QWidget view;
  PreviewCut cut(view);
  std::int64_t nowMs = 0;
  // Where the part begins that a view of 512 by 160 shows of a picture of 640 by 480, from above.
  const auto beginsAfter = [&](std::int64_t ms, std::optional<double> faceMiddle) {
    LiveFrame frame;
    frame.timestampMs = nowMs += ms;
    frame.faces.push_back({{0.1, 0, 0.05, 0.05}, {}, FaceRole::onlooker});
    if (faceMiddle) frame.faces.push_back({{0.4, 1 - *faceMiddle - 0.15, 0.2, 0.3}, {}, FaceRole::person});
    cut.follow(frame);
    const QRectF part = cut.of({640, 480}, {512, 160});
    EXPECT_EQ(part.size(), QSizeF(640, 200)) << "filled";
    EXPECT_EQ(part.left(), 0);
    return part.top();
  };
  EXPECT_NEAR(beginsAfter(0, {}), 140, 0.01) << "the middle, while there is no face";
  EXPECT_NEAR(beginsAfter(200, 0.35), 68, 0.01);
  EXPECT_NEAR(beginsAfter(200, 0.43), 68, 0.01) << "a small movement";
  EXPECT_NEAR(beginsAfter(200, 0.5), 140, 0.01);
  EXPECT_NEAR(beginsAfter(200, 0.1), 0, 0.01) << "no farther than the picture";
  EXPECT_NEAR(beginsAfter(200, {}), 0, 0.01) << "overlooked";
  EXPECT_NEAR(beginsAfter(4000, {}), 140, 0.01) << "gone";
  EXPECT_EQ(cut.of({480, 640}, {160, 512}).size(), QSizeF(200, 640)) << "cut at its sides";
  Theme::shared().setLook({});
}

}  // namespace
}  // namespace sentrel::test
