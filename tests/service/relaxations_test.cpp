// SPDX-License-Identifier: Apache-2.0
//
// What weakens protection for a while: that it does, is told, and ends by itself.
#include "service/relaxations.h"

#include <numbers>

#include "service/remote_control.h"
#include "support/test_core.h"

namespace sentrel {
namespace {

using Kind = FilterState::Kind;

constexpr std::int64_t minute = 60'000;

struct RelaxationsTest : testing::Test, test::TestCore {
  Relaxations& relaxations() { return service->relaxations(); }
  [[nodiscard]] bool isOpen() const { return machine.session->delivers(); }
  void tell(SessionEvent event) {
    desktop.session->tell(event);
    machine.settle();
  }
};

TEST_F(RelaxationsTest, APauseClosesTheCameraAndEndsByItself) {
  start();
  EXPECT_FALSE(relaxations().pause(0));
  EXPECT_FALSE(relaxations().pause(-5));
  EXPECT_FALSE(relaxations().pause(Relaxations::longestMs + 1));
  ASSERT_TRUE(relaxations().pause(15 * minute));
  machine.settle();
  EXPECT_EQ(service->fsmState().get(), FilterState::autoPaused(PauseReason::userPaused(15 * minute)));
  EXPECT_FALSE(isOpen());
  EXPECT_FALSE(overlay->isShowing());
  EXPECT_TRUE(relaxations().pause(60 * minute)) << "another one in its place";
  // The battery neither hides nor ends it.
  desktop.power->source = PowerSourceDescription{5, false};
  machine.advance(31'000, 1000);
  desktop.power->source = PowerSourceDescription{5, true};
  machine.advance(31'000, 1000);
  EXPECT_EQ(state(), Kind::autoPaused);
  machine.advance(60 * minute - 63'000, 1000);
  EXPECT_EQ(state(), Kind::autoPaused);
  EXPECT_FALSE(isOpen());
  machine.advance(1000);
  EXPECT_EQ(state(), Kind::nominal);
  EXPECT_TRUE(isOpen());
  EXPECT_FALSE(relaxations().pauseEndMs().get());
}

TEST_F(RelaxationsTest, AnyComingBackEndsAPauseAndItsEndWhileAwayOpensNothing) {
  start();
  relaxations().pause(60 * minute);
  tell(SessionEvent::screenIsLocked);
  EXPECT_TRUE(relaxations().pauseEndMs().get());
  tell(SessionEvent::screenIsUnlocked);
  EXPECT_FALSE(relaxations().pauseEndMs().get());
  EXPECT_EQ(state(), Kind::nominal);

  relaxations().pause(minute);
  tell(SessionEvent::screensDidSleep);
  machine.advance(2 * minute, 1000);
  EXPECT_FALSE(relaxations().pauseEndMs().get()) << "remembered";
  EXPECT_FALSE(isOpen());
  EXPECT_EQ(state(), Kind::autoPaused);
  tell(SessionEvent::screensDidWake);
  EXPECT_TRUE(isOpen());
  EXPECT_EQ(state(), Kind::nominal);
}

TEST_F(RelaxationsTest, APauseOutlivesTheProgramButNotItsSwitch) {
  const auto restart = [this] {
    service = std::make_shared<PrivacyFilterService>(ServiceDependencies{
        platform(), camera, control, overlay,
        std::make_shared<RetroPiPManager>(overlay, machine.mainLoop, machine.loop), settings, stats});
    start();
  };
  start();
  relaxations().pause(60 * minute);
  control->setRest(CameraControl::Rest::quitting, true);
  stop();
  control->setRest(CameraControl::Rest::quitting, false);
  machine.advance(20 * minute, minute);
  restart();
  EXPECT_FALSE(isOpen());
  EXPECT_TRUE(service->isActive());
  EXPECT_EQ(service->fsmState().get(), FilterState::autoPaused(PauseReason::userPaused(40 * minute)));
  machine.advance(40 * minute, minute);
  EXPECT_EQ(state(), Kind::nominal);

  relaxations().pause(60 * minute);
  stop();
  start();
  EXPECT_EQ(state(), Kind::nominal) << "whoever switches it on wants it on";
  stop();
  for (const DefaultsValue& stored :
       {DefaultsValue(machine.loop->nowMs() + Relaxations::longestMs + 1),
        DefaultsValue(machine.loop->nowMs()), DefaultsValue(std::string("soon"))}) {
    defaults->set("pause_until_ms", stored);
    start();
    EXPECT_EQ(state(), Kind::nominal);
    EXPECT_FALSE(defaults->value("pause_until_ms"));
    stop();
  }
}

TEST_F(RelaxationsTest, GuestsAreWelcomeUntilTheyAreSentAway) {
  start();
  EXPECT_TRUE(relaxations().addGuest(30 * minute));
  see(watched, 5000);
  EXPECT_EQ(state(), Kind::nominal);
  EXPECT_TRUE(relaxations().addGuest(std::nullopt));
  EXPECT_TRUE(relaxations().addGuest(minute));
  EXPECT_FALSE(relaxations().addGuest(30 * minute)) << "three at most";
  EXPECT_FALSE(relaxations().addGuest(0));
  EXPECT_EQ(relaxations().stay().get()->guests, 3);
  see(watched, minute);
  EXPECT_FALSE(relaxations().stay().get());
  see(watched, 700);
  EXPECT_EQ(state(), Kind::alert);
  relaxations().addGuest(std::nullopt);
  see(watched, 3200);
  EXPECT_EQ(state(), Kind::nominal) << "an alert ends as it does when somebody leaves";
  tell(SessionEvent::screenIsLocked);
  EXPECT_FALSE(relaxations().stay().get());
  tell(SessionEvent::screenIsUnlocked);
  relaxations().addGuest(std::nullopt);
  relaxations().pause(minute);
  EXPECT_FALSE(relaxations().stay().get());
  EXPECT_FALSE(relaxations().addGuest(minute)) << "nobody is welcome to whoever comes back";
  // Asked for as soon as it is switched on.
  stop();
  service->start();
  EXPECT_TRUE(relaxations().addGuest(minute));
  machine.settle();
  EXPECT_TRUE(relaxations().stay().get());
}

TEST_F(RelaxationsTest, APosterIsNobodyUntilTheCameraSeesAnew) {
  start();
  see(watched, 700);
  EXPECT_EQ(state(), Kind::alert);
  EXPECT_FALSE(machine.detector->tunings.back().others);
  EXPECT_TRUE(relaxations().filter.ignoreOnlooker());
  see(watched, 9000);
  EXPECT_TRUE(machine.detector->tunings.back().others) << "whether a face is paper must be read off it";
  EXPECT_EQ(state(), Kind::alert) << "not yet known to be paper";
  see(watched, 4500);
  EXPECT_EQ(state(), Kind::nominal);
  tell(SessionEvent::screenIsLocked);
  tell(SessionEvent::screenIsUnlocked);
  EXPECT_EQ(relaxations().filter.ignoredCount().get(), 0);
  see(watched, 700);
  EXPECT_EQ(state(), Kind::alert);
  EXPECT_FALSE(machine.detector->tunings.back().others);
}

TEST_F(RelaxationsTest, WhoeverIsTurnedAwayIsNoOnlooker) {
  const auto with = [](double degrees) {
    const double yaw = degrees * std::numbers::pi / 180;
    return test::detectionsOf({test::faceOf(0.3), test::faceOf(0.1, 0.7, yaw)}, {test::faceOf(0.3)});
  };
  start();
  ProtectionOptions options = settings->options;
  options.onlyFacing = true;
  settings->save(options);
  machine.settle();
  EXPECT_TRUE(machine.detector->tunings.back().others);
  see(with(-60), 2000);
  EXPECT_EQ(state(), Kind::nominal);
  see(with(-30), 700);
  EXPECT_EQ(state(), Kind::alert);
}

TEST_F(RelaxationsTest, AnotherCameraSeesOtherPlaces) {
  start();
  see(watched, 700);
  EXPECT_TRUE(relaxations().filter.ignoreOnlooker());
  changeSettings([](FilterSettings& next) { next.filterStrength = 1; });
  EXPECT_EQ(relaxations().filter.ignoredCount().get(), 1);
  changeSettings([](FilterSettings& next) { next.selectedCameraID = "usb"; });
  EXPECT_EQ(relaxations().filter.ignoredCount().get(), 0);
}

TEST_F(RelaxationsTest, ThePictureShowsTheFaceThatAlerts) {
  start();
  const auto widthShown = [this](const FaceDetections& faces) {
    see(faces, 1500);
    const auto shown = overlay->picture.get();
    return shown && shown->picture ? shown->picture->width : 0;
  };
  const int width = widthShown(watched);
  EXPECT_GT(width, 0);
  see(alone, 4000);
  relaxations().addGuest(std::nullopt);
  EXPECT_EQ(widthShown(test::detectionsOf({test::faceOf(0.2), test::faceOf(0.19, 0.5), test::faceOf(0.05)},
                                          {test::faceOf(0.2)})),
            width)
      << "the guest is wider";
}

TEST_F(RelaxationsTest, CommandsAreToldAndRefusedWhileLocked) {
  using Answer = RemoteControl::Answer;
  bool quits = false;
  RemoteControl remote(service, platform(), [&] { quits = true; });
  auto& shown = desktop.notifications->shown;
  EXPECT_EQ(remote.pause(minute), Answer::off);
  EXPECT_EQ(remote.switchOff(), Answer::done);
  EXPECT_EQ(remote.switchOn(), Answer::done);
  machine.settle();
  EXPECT_EQ(remote.pause(0), Answer::misused);
  EXPECT_EQ(remote.welcome(4, std::nullopt), Answer::misused);
  EXPECT_TRUE(shown.empty());
  EXPECT_FALSE(remote.news().get());
  tell(SessionEvent::screenIsLocked);
  for (const Answer answer : {remote.switchOff(), remote.toggle(), remote.pause(minute),
                              remote.welcome(1, std::nullopt), remote.quit()})
    EXPECT_EQ(answer, Answer::locked);
  tell(SessionEvent::screenIsUnlocked);
  EXPECT_TRUE(service->isActive());

  EXPECT_EQ(remote.welcome(2, minute), Answer::done);
  EXPECT_EQ(shown[RemoteControl::notification].title, "notif_guest_title");
  EXPECT_EQ(remote.news().get(), RemoteControl::Origin::command);
  remote.seen();
  EXPECT_EQ(remote.pause(minute), Answer::done);
  EXPECT_EQ(shown[RemoteControl::notification].title, "notif_pause_title");
  EXPECT_EQ(remote.welcome(1, minute), Answer::paused);
  EXPECT_EQ(remote.resume(), Answer::done);
  EXPECT_FALSE(relaxations().pauseEndMs().get());
  EXPECT_TRUE(shown.empty()) << "it has ended";
  machine.settle();
  remote.welcome(1, minute);
  machine.advance(minute, 1000);
  EXPECT_TRUE(shown.empty()) << "by itself, too";
  remote.pause(minute);
  remote.switchOff();
  EXPECT_EQ(shown[RemoteControl::notification].title, "notif_off_title");
  remote.switchOn();
  EXPECT_TRUE(shown.empty());
  machine.settle();
  remote.seen();

  // The person answers a notification.
  see(watched, 700);
  desktop.notifications->answered.emit("sentrel.alert", "nobody");
  EXPECT_EQ(relaxations().filter.ignoredCount().get(), 1);
  EXPECT_EQ(remote.news().get(), RemoteControl::Origin::notification);
  desktop.notifications->answered.emit("sentrel.camera", "pause");
  desktop.notifications->answered.emit("sentrel.alert", "anything");
  EXPECT_FALSE(relaxations().pauseEndMs().get());
  desktop.notifications->answered.emit("sentrel.alert", "pause");
  EXPECT_TRUE(relaxations().pauseEndMs().get());
  EXPECT_EQ(remote.switchOff(), Answer::done);
  machine.settle();
  EXPECT_FALSE(service->isSwitchedOn());
  EXPECT_EQ(remote.quit(), Answer::done);
  machine.settle();
  EXPECT_TRUE(quits);
}

TEST_F(RelaxationsTest, TheScreensAreCoveredWithoutProtectionAndNeverAboveALock) {
  using Answer = RemoteControl::Answer;
  RemoteControl remote(service, platform(), [] {});
  const auto isCovered = [&] {
    machine.settle();
    return backend->shown.contains(1) && !backend->shown.at(1).scenes.empty() &&
           backend->shown.at(1).scenes.back().cover.has_value();
  };
  EXPECT_EQ(remote.cover(), Answer::done);
  EXPECT_TRUE(isCovered());
  EXPECT_TRUE(remote.isCovered().get());
  EXPECT_FALSE(machine.session->running) << "needs no camera";
  EXPECT_TRUE(desktop.notifications->shown.empty()) << "weakens nothing";
  EXPECT_EQ(remote.cover(), Answer::done);
  EXPECT_FALSE(isCovered());
  EXPECT_EQ(desktop.session->lockFollowers.observerCount(), 0U) << "nothing is listened to for nothing";
  // Asked for while nobody knows yet whether the screen is locked.
  desktop.session->answering = false;
  remote.cover();
  EXPECT_FALSE(isCovered());
  EXPECT_EQ(remote.cover(), Answer::done) << "and taken back";
  EXPECT_EQ(desktop.session->lockFollowers.observerCount(), 0U);
  remote.cover();
  desktop.session->lockFollowers.emit(true);
  desktop.session->lockFollowers.emit(false);
  EXPECT_FALSE(isCovered()) << "it was locked";
  remote.cover();
  desktop.session->lockFollowers.emit(false);
  EXPECT_TRUE(isCovered());
  desktop.session->answering = true;

  tell(SessionEvent::screenIsLocked);
  EXPECT_TRUE(isCovered()) << "a lock uncovers nothing";
  EXPECT_TRUE(backend->held);
  EXPECT_EQ(remote.cover(), Answer::locked);
  tell(SessionEvent::screenIsUnlocked);
  EXPECT_FALSE(backend->held);
  // An alert goes on below it.
  start();
  see(watched, 700);
  EXPECT_EQ(state(), Kind::alert);
  EXPECT_TRUE(isCovered());
  backend->click(1);
  EXPECT_FALSE(isCovered());
  EXPECT_TRUE(backend->shown.at(1).scenes.back().banner);
  stop();
  tell(SessionEvent::screenIsLocked);
  EXPECT_EQ(remote.cover(), Answer::locked);
  tell(SessionEvent::screenIsUnlocked);
  backend->setScreens({});
  EXPECT_EQ(remote.cover(), Answer::impossible);
  EXPECT_FALSE(remote.isCovered().get());
}

TEST_F(RelaxationsTest, TheShortcutCoversWhereItIsWantedAndNothingIsLocked) {
  auto& keys = *desktop.keys;
  machine.settle();
  EXPECT_EQ(keys.coverObserver.observerCount(), 0U);
  ProtectionOptions next;
  next.coverShortcutEnabled = true;
  settings->save(next);
  machine.settle();
  keys.coverObserver.emit();
  machine.settle();
  EXPECT_TRUE(overlay->isCovered());
  EXPECT_TRUE(overlay->coverLook.get().shortcut);
  keys.answer = {ShortcutGrant::Kind::refused};
  keys.grantChanged.emit();
  EXPECT_FALSE(overlay->coverLook.get().shortcut) << "a key that does nothing is not named";
  keys.coverObserver.emit();
  EXPECT_FALSE(overlay->isCovered());
  tell(SessionEvent::screenIsLocked);
  EXPECT_EQ(keys.coverObserver.observerCount(), 0U) << "a password";
  tell(SessionEvent::screenIsUnlocked);
  EXPECT_EQ(keys.coverObserver.observerCount(), 1U);
  settings->save(ProtectionOptions());
  EXPECT_EQ(keys.coverObserver.observerCount(), 0U);
  EXPECT_EQ(desktop.session->lockFollowers.observerCount(), 0U);
}

TEST_F(RelaxationsTest, ASharedScreenHidesTheStripesAndAnAlertOnlyNotifies) {
  const auto options = [this](auto change) {
    ProtectionOptions next = settings->options;
    change(next);
    settings->save(next);
    machine.settle();
  };
  auto& shown = desktop.notifications->shown;
  start();
  EXPECT_TRUE(overlay->isShowing());
  desktop.sharing->shared = true;
  EXPECT_FALSE(overlay->isShowing());
  EXPECT_TRUE(service->relaxations().isScreenShared());
  EXPECT_TRUE(shown.contains("sentrel.shared"));
  see(watched, 700);
  EXPECT_EQ(state(), Kind::alert);
  EXPECT_FALSE(overlay->isShowing());
  EXPECT_FALSE(overlay->isAlertMode);
  EXPECT_FALSE(overlay->picture.get());
  EXPECT_FALSE(shown["sentrel.alert"].silent);
  see(alone, 3200);
  see(watched, 700);
  EXPECT_TRUE(shown["sentrel.alert"].silent) << "again, though it is too soon";
  EXPECT_EQ(stats->stats.get().alertCount, 1);
  EXPECT_EQ(desktop.haptics->performed, 1);
  // Who must not be disturbed by notifications is warned by the screen.
  see(alone, 3200);
  desktop.notifications->heard = false;
  see(watched, 700);
  EXPECT_TRUE(overlay->isAlertMode);
  EXPECT_TRUE(overlay->isShowing());
  see(alone, 40'000);
  EXPECT_FALSE(overlay->isShowing());
  // Whoever is warned by the screen alone, and shares it then, is told.
  desktop.notifications->heard = true;
  desktop.sharing->shared = false;
  options([](auto& next) { next.reaction = Reaction::darkenOnly; });
  shown.clear();
  see(watched, 700);
  EXPECT_TRUE(overlay->picture.get());
  EXPECT_FALSE(shown.contains("sentrel.alert"));
  desktop.sharing->shared = true;
  EXPECT_FALSE(overlay->isAlertMode);
  EXPECT_FALSE(overlay->picture.get());
  EXPECT_TRUE(shown.contains("sentrel.alert"));
  desktop.notifications->heard = false;
  EXPECT_TRUE(overlay->isAlertMode) << "at once";
  desktop.notifications->heard = true;
  see(alone, 40'000);

  options([](auto& next) { next.whenShared = WhenShared::pause; });
  EXPECT_EQ(service->fsmState().get(), FilterState::autoPaused(PauseReason::userPaused(0)));
  EXPECT_FALSE(isOpen());
  tell(SessionEvent::screenIsLocked);
  tell(SessionEvent::screenIsUnlocked);
  EXPECT_FALSE(isOpen()) << "it is still shared";
  relaxations().pause(minute);
  const int starts = machine.session->starts;
  stop();
  EXPECT_FALSE(service->isActive());
  EXPECT_EQ(machine.session->starts, starts) << "not even for a moment";
  start();
  desktop.sharing->shared = false;
  machine.settle();
  EXPECT_TRUE(isOpen());
  EXPECT_TRUE(overlay->isShowing());
  EXPECT_FALSE(shown.contains("sentrel.shared"));
  options([](auto& next) { next.whenShared = WhenShared::changeNothing; });
  desktop.sharing->shared = true;
  EXPECT_TRUE(overlay->isShowing());
}

TEST_F(RelaxationsTest, AnAlertReactsAsThePersonChose) {
  ProtectionOptions next;
  next.reaction = Reaction::notifyOnly;
  settings->save(next);
  start();
  const float before = overlay->currentAlpha;
  see(watched, 700);
  EXPECT_TRUE(service->isAlert());
  EXPECT_FALSE(overlay->isAlertMode);
  EXPECT_EQ(overlay->currentAlpha.get(), before);
  EXPECT_EQ(desktop.notifications->shown.count("sentrel.alert"), 1U);
  next.reaction = Reaction::darkenOnly;
  settings->save(next);
  EXPECT_TRUE(overlay->isAlertMode) << "at once";
  see(alone, 40'000);
  see(watched, 700);
  EXPECT_TRUE(overlay->isAlertMode);
  EXPECT_EQ(desktop.notifications->shown.count("sentrel.alert"), 0U);
  EXPECT_EQ(stats->stats.get().alertCount, 2) << "counted and felt as always";
  EXPECT_EQ(desktop.haptics->performed, 2);
}

}  // namespace
}  // namespace sentrel
