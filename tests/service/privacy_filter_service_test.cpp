// SPDX-License-Identifier: Apache-2.0
//
// What protection makes of what the camera sees, of the person's settings and of the desktop.
#include "service/privacy_filter_service.h"

#include <limits>

#include "support/test_core.h"

namespace sentrel {
namespace {

using Kind = FilterState::Kind;

struct PrivacyFilterServiceTest : testing::Test, test::TestCore {};

TEST_F(PrivacyFilterServiceTest, SettingsReachMachineOverlayAndDetector) {
  start();
  EXPECT_THAT(machine.detector->tunings, testing::ElementsAre(FaceTuning{3, true}));
  see(test::detectionsOf({test::faceOf(1.0 / 6)}, {test::faceOf(1.0 / 6)}), 300);
  EXPECT_EQ(overlay->matrixDistanceCm, 120);
  changeSettings([](FilterSettings& next) {
    next.filterStrength = 5;
    next.matrixColorArgb = 0xFF00FF00;
    next.inattentionDelayMs = 500;
    next.coverAllScreens = false;
  });
  machine.settle();
  EXPECT_FALSE(overlay->coverAllScreens);
  EXPECT_EQ(overlay->matrixColorArgb, 0xFF00FF00U);
  EXPECT_EQ(overlay->matrixDistanceCm, 120) << "the last distance";
  see(lookingAway, 700);
  EXPECT_EQ(service->fsmState().get(), FilterState::inattention(5));
  EXPECT_EQ(machine.detector->tunings.size(), 1U) << "nothing new for the detector";

  changeSettings([](FilterSettings& next) {
    next.sensitivity = 9;
    next.glassesCompat = false;
  });
  machine.settle();
  EXPECT_EQ(machine.detector->tunings.back(), (FaceTuning{5, false}));
  stop();
  changeSettings([](FilterSettings& next) {
    next.captureFps = 100'000;
    next.matrixStripeAlpha = 1.0F;
  });
  EXPECT_NE(overlay->matrixStripeAlpha, 1.0F) << "off: the next start takes it";
  start();
  EXPECT_EQ(camera->analyzer()->minIntervalMs(), 33) << "more than a control gives";
  EXPECT_EQ(machine.session->demand, (FrameDemand{true, 34}));
  EXPECT_EQ(overlay->matrixStripeAlpha, 1.0F);
}

TEST_F(PrivacyFilterServiceTest, AnAlertIsFeltToldShownAndCountedOnceInHalfAMinute) {
  start();
  const auto alertOnce = [&] {
    see(watched, 700);
    EXPECT_EQ(state(), Kind::alert);
    machine.detector->next = alone;
  };
  auto& shown = desktop.notifications->shown;
  alertOnce();
  EXPECT_EQ(shown["sentrel.alert"].title, "notif_alert_title");
  see(watched, 200);
  ASSERT_TRUE(overlay->picture.get());
  EXPECT_TRUE(overlay->picture.get()->picture);
  see(alone, 3200);
  EXPECT_TRUE(shown.empty()) << "withdrawn";
  EXPECT_FALSE(overlay->picture.get()) << "hidden";

  see(alone, 15'000);
  alertOnce();
  EXPECT_EQ(desktop.notifications->added, 1) << "too soon after the first";
  see(alone, 11'000);
  changeSettings([](FilterSettings& next) { next.hapticOnAlert = false; });
  alertOnce();
  EXPECT_EQ(desktop.notifications->added, 2);
  EXPECT_EQ(desktop.haptics->performed, 1);
  EXPECT_EQ(stats->stats.get().alertCount, 2);
  tell(SessionEvent::screenIsLocked);
  EXPECT_EQ(shown.size(), 1U) << "a pause leaves it where it is";
  EXPECT_EQ(desktop.session->closings, 1) << "sleep may go on";
  stop();
  EXPECT_TRUE(shown.empty());
}

TEST_F(PrivacyFilterServiceTest, EachAlertIsALineOfTheJournalWhereOneIsWanted) {
  const auto crowd = test::detectionsOf({test::faceOf(0.2), test::faceOf(0.05), test::faceOf(0.08, 0.6)},
                                        {test::faceOf(0.2)});
  const auto leave = [&] { see(alone, 4000); };
  const struct {
    AlertEnd end;
    std::function<void()> bringAbout;
    Reaction reaction = Reaction::darkenAndNotify;
    JournalWish journal = JournalWish::kept;
  } cases[] = {
      {AlertEnd::gone, leave},
      {AlertEnd::gone, leave, Reaction::notifyOnly},
      {AlertEnd::gone, leave, Reaction::darkenOnly},
      {AlertEnd::gone, leave, Reaction::darkenAndNotify, JournalWish::refused},
      {AlertEnd::gone, leave, Reaction::darkenAndNotify, JournalWish::unasked},
      {AlertEnd::nobody, [&] { service->relaxations().filter.ignoreOnlooker(), see(watched, 15'000); }},
      {AlertEnd::welcomed, [&] { service->relaxations().welcome(2, std::nullopt), see(watched, 15'000); }},
      {AlertEnd::paused, [&] { service->relaxations().pause(60'000); }},
      {AlertEnd::away, [&] { desktop.session->tell(SessionEvent::screenIsLocked); }},
      {AlertEnd::blind, [&] { machine.session->interrupt(CaptureError::Kind::busy); }},
      {AlertEnd::off, [&] { stop(); }},
      {AlertEnd::off, [&] { service->countSession(); }},
  };
  auto& records = desktop.journal->records;
  for (const auto& each : cases) {
    SCOPED_TRACE(&each - cases);
    changeOptions([&](ProtectionOptions& next) {
      next.journal = each.journal;
      next.reaction = each.reaction;
    });
    start();
    see(alone, 31'000);  // the next notification may come
    see(watched, 600);
    const std::int64_t began = machine.loop->nowMs();
    see(crowd, 500);
    see(watched, 500);
    EXPECT_THAT(records, testing::IsEmpty()) << "it is not over";
    each.bringAbout();
    machine.settle();
    const std::size_t expected = each.journal == JournalWish::kept ? 1 : 0;
    ASSERT_THAT(records, testing::SizeIs(expected));
    for (const AlertRecord& record : records) {
      EXPECT_EQ(record.end, each.end);
      EXPECT_NEAR(static_cast<double>(record.beganMs - began), 0, 300);
      EXPECT_NEAR(static_cast<double>(machine.loop->nowMs() - began - record.lengthMs), 0, 12'000);
      EXPECT_GE(record.lengthMs, 1000);
      EXPECT_EQ(record.faces, 3);
      EXPECT_EQ(record.widestFace, 0.08);
      EXPECT_EQ(record.camera, "Front");
      EXPECT_EQ(record.darkened, each.reaction != Reaction::notifyOnly);
      EXPECT_EQ(record.notified, each.reaction != Reaction::darkenOnly);
    }
    stop();
    machine.session->cause.reset();
    tell(SessionEvent::screenIsUnlocked);
    EXPECT_THAT(records, testing::SizeIs(expected)) << "once";
    records.clear();
  }
}

TEST_F(PrivacyFilterServiceTest, APauseOutlivesTheProgramButNotItsSwitch) {
  start();
  service->relaxations().pause(3'600'000);
  control->setRest(CameraControl::Rest::quitting, true);
  stop();
  control->setRest(CameraControl::Rest::quitting, false);
  machine.advance(1'200'000, 60'000);
  service = newService();
  start();
  EXPECT_FALSE(machine.session->delivers());
  EXPECT_EQ(service->fsmState().get(), FilterState::autoPaused(PauseReason::userPaused(2'400'000)));
  machine.advance(2'400'000, 60'000);
  EXPECT_EQ(state(), Kind::nominal);

  service->relaxations().pause(3'600'000);
  stop();
  start();
  EXPECT_EQ(state(), Kind::nominal) << "whoever switches it on wants it on";
  for (const DefaultsValue& stored :
       {DefaultsValue(machine.loop->nowMs() + Relaxations::longestMs + 1),
        DefaultsValue(machine.loop->nowMs()), DefaultsValue(std::string("soon"))}) {
    stop();
    defaults->set("pause_until_ms", stored);
    start();
    EXPECT_EQ(state(), Kind::nominal);
    EXPECT_FALSE(defaults->value("pause_until_ms"));
  }
}

TEST_F(PrivacyFilterServiceTest, TheBatteryPausesBelowItsThreshold) {
  start();
  const auto low = FilterState::autoPaused(PauseReason::lowBattery());
  const auto on = FilterState::nominal(3);
  using Power = std::optional<PowerSourceDescription>;
  const struct {
    Power power;
    std::int64_t threshold;
    FilterState expected;
  } checks[] = {
      {Power{{9, false}}, 10, low},           {std::nullopt, 10, low},    {Power{{10, false}}, 10, on},
      {Power{{9, std::nullopt}}, 10, low},    {Power{{5, true}}, 10, on}, {Power{{9, false}}, 10, low},
      {Power{{std::nullopt, false}}, 10, on}, {Power{{0, false}}, -3, on}};
  for (const auto& [power, threshold, expected] : checks) {
    changeSettings([&](FilterSettings& next) { next.batteryThresholdPercent = threshold; });
    desktop.power->source = power;
    const FilterState before = service->fsmState();
    see(alone, 29'900);
    EXPECT_EQ(service->fsmState().get(), before);
    machine.advance(100);
    EXPECT_EQ(service->fsmState().get(), expected) << power->currentCapacity.value_or(-1) << " " << threshold;
  }
  changeSettings([](FilterSettings& next) { next.batteryThresholdPercent = 10; });
  machine.advance(30'000, 5000);
  EXPECT_EQ(service->fsmState().get(), low);
  tell(SessionEvent::screenIsLocked);
  tell(SessionEvent::screenIsUnlocked);
  EXPECT_EQ(service->fsmState().get(), on) << "who comes back resumes from every pause";
}

TEST_F(PrivacyFilterServiceTest, TheShortcutIsNamedWhereItWorks) {
  const auto& hint = overlay->shortcutKeys.get();
  start();
  const std::pair<ShortcutGrant, const char*> grants[] = {
      {{ShortcutGrant::Kind::refused}, ""},
      {{ShortcutGrant::Kind::granted, "Ctrl+F1"}, "Ctrl+F1"},
      {{ShortcutGrant::Kind::observed}, "⌘⇧C"},
  };
  for (const auto& [grant, keys] : grants) {
    desktop.keys->answer = grant;
    desktop.keys->grantChanged.emit();
    EXPECT_EQ(hint, keys);
  }
  EXPECT_FALSE(desktop.keys->forgotten.contains(Shortcut::toggle));
  desktop.keys->observer.emit();
  machine.settle();
  changeSettings([](FilterSettings& next) { next.globalShortcutEnabled = false; });
  EXPECT_TRUE(desktop.keys->forgotten.contains(Shortcut::toggle));
  start();
  EXPECT_EQ(hint, "");
}

TEST(ViewingDistance, IsBoundedAndTruncated) {
  constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
  const struct {
    float ratio;
    float coefficient;
    std::int64_t cm;
  } cases[] = {{0.05F, 2, 300}, {0.05F, 1, 200}, {0.01F, 1, 200},  {0.5F, 1, 20},          {0.9F, 4, 80},
               {0.2F, 2, 100},  {0.3F, 1, 33},   {0.2F, 0.1F, 20}, {0.2F, notANumber, 20}, {0.2F, -1, 20}};
  for (const auto& [ratio, coefficient, cm] : cases)
    EXPECT_EQ(matrixDistanceFor(ratio, coefficient), cm) << ratio << " x " << coefficient;
  for (const std::int64_t cm : {49, 50, 60, 70, 71})
    EXPECT_EQ(isNewMatrixDistance(cm, 60), cm < 50 || cm > 70) << cm;
}

}  // namespace
}  // namespace sentrel
