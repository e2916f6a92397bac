// SPDX-License-Identifier: Apache-2.0
//
// What weakens protection for a while, beyond the rules that hold in every order of things: what is told,
// what is kept, and what each ends with.
#include "service/relaxations.h"

#include "service/remote_control.h"
#include "support/test_core.h"

namespace sentrel {
namespace {

using Kind = FilterState::Kind;
using Answer = RemoteControl::Answer;

constexpr std::int64_t minute = 60'000;

struct RelaxationsTest : testing::Test, test::TestCore {
  Relaxations& relaxations() { return service->relaxations(); }
  [[nodiscard]] std::int64_t ignored() { return relaxations().filter.ignoredCount().get(); }

  bool quits = false;
  RemoteControl remote{service, platform(), [this] { quits = true; }};
  std::map<std::string, NotificationContent>& shown = desktop.notifications->shown;
};

TEST_F(RelaxationsTest, AGuestEndsAnAlertAndThePictureShowsTheFaceThatAlerts) {
  start();
  const auto widthShown = [this](const FaceDetections& faces) {
    see(faces, 1500);
    const auto picture = overlay->picture.get();
    return picture && picture->picture ? picture->picture->width : 0;
  };
  // Of the four columns of a frame.
  EXPECT_EQ(widthShown(watched), 1);
  EXPECT_TRUE(relaxations().addGuest(std::nullopt));
  see(watched, 3200);
  EXPECT_EQ(state(), Kind::nominal) << "as when somebody leaves";
  EXPECT_EQ(widthShown(test::detectionsOf({test::faceOf(0.2), test::faceOf(0.19, 0.5), test::faceOf(0.05)},
                                          {test::faceOf(0.2)})),
            1)
      << "the guest is wider";
}

TEST_F(RelaxationsTest, APosterIsNobodyUntilTheCameraSeesAnew) {
  const auto readsOthers = [this] { return machine.detector->tunings.back().others; };
  start();
  see(watched, 700);
  EXPECT_FALSE(readsOthers());
  EXPECT_TRUE(relaxations().filter.ignoreOnlooker());
  see(watched, 9000);
  EXPECT_TRUE(readsOthers()) << "whether a face is paper must be read off it";
  EXPECT_EQ(state(), Kind::alert) << "not yet known to be paper";
  see(watched, 4500);
  EXPECT_EQ(state(), Kind::nominal);
  tell(SessionEvent::screenIsLocked);
  tell(SessionEvent::screenIsUnlocked);
  see(watched, 700);
  EXPECT_EQ(state(), Kind::alert);
  EXPECT_FALSE(readsOthers());
  EXPECT_TRUE(relaxations().filter.ignoreOnlooker());
  changeSettings([](FilterSettings& next) { next.filterStrength = 1; });
  EXPECT_EQ(ignored(), 1);
  changeSettings([](FilterSettings& next) { next.selectedCameraID = "usb"; });
  EXPECT_EQ(ignored(), 0) << "another camera sees other places";
}

TEST_F(RelaxationsTest, WhatACommandDidIsToldForAsLongAsItLasts) {
  const auto title = [this] {
    const auto found = shown.find(RemoteControl::notification);
    return found == shown.end() ? std::string() : found->second.title;
  };
  EXPECT_EQ(remote.pause(minute), Answer::off);
  EXPECT_EQ(remote.switchOn(), Answer::done);
  machine.settle();
  EXPECT_EQ(remote.pause(0), Answer::misused);
  EXPECT_EQ(remote.welcome(4, std::nullopt), Answer::misused);
  EXPECT_EQ(title(), "");
  remote.welcome(2, minute);
  EXPECT_EQ(title(), "notif_guest_title");
  remote.pause(minute);
  EXPECT_EQ(title(), "notif_pause_title");
  EXPECT_EQ(remote.welcome(1, minute), Answer::paused);
  EXPECT_EQ(remote.resume(), Answer::done);
  EXPECT_EQ(title(), "");
  machine.settle();
  remote.welcome(1, minute);
  machine.advance(minute, 1000);
  EXPECT_EQ(title(), "") << "by itself, too";
  remote.switchOff();
  EXPECT_EQ(title(), "notif_off_title");
  remote.switchOn();
  EXPECT_EQ(title(), "");
  machine.settle();
  EXPECT_EQ(remote.quit(), Answer::done);
  machine.settle();
  EXPECT_TRUE(quits);
}

TEST_F(RelaxationsTest, TheScreensAreCoveredWithoutProtectionAndNeverAboveALock) {
  auto& followers = desktop.session->lockFollowers;
  const auto isCovered = [&] {
    machine.settle();
    return backend->shown.contains(1) && !backend->shown.at(1).scenes.empty() &&
           backend->shown.at(1).scenes.back().cover.has_value();
  };
  EXPECT_EQ(remote.cover(), Answer::done);
  EXPECT_TRUE(isCovered() && remote.isCovered().get());
  EXPECT_FALSE(machine.session->running) << "needs no camera";
  EXPECT_TRUE(shown.empty()) << "weakens nothing";
  EXPECT_EQ(remote.cover(), Answer::done);
  EXPECT_FALSE(isCovered());
  // Asked for while nobody knows yet whether the screen is locked.
  desktop.session->answering = false;
  remote.cover();
  EXPECT_FALSE(isCovered());
  EXPECT_EQ(remote.cover(), Answer::done) << "and taken back";
  EXPECT_EQ(followers.observerCount(), 0U) << "nothing is listened to for nothing";
  remote.cover();
  followers.emit(true);
  followers.emit(false);
  EXPECT_FALSE(isCovered()) << "it was locked";
  remote.cover();
  followers.emit(false);
  EXPECT_TRUE(isCovered());
  desktop.session->answering = true;

  tell(SessionEvent::screenIsLocked);
  EXPECT_TRUE(isCovered() && backend->held) << "a lock uncovers nothing";
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
  backend->setScreens({});
  EXPECT_EQ(remote.cover(), Answer::impossible);
}

TEST_F(RelaxationsTest, TheShortcutCoversWhereItIsWantedAndNothingIsLocked) {
  auto& keys = *desktop.keys;
  const auto isObserved = [&] { return keys.coverObserver.observerCount() == 1; };
  machine.settle();
  EXPECT_FALSE(isObserved());
  changeOptions([](ProtectionOptions& next) { next.coverShortcutEnabled = true; });
  machine.settle();
  keys.coverObserver.emit();
  machine.settle();
  EXPECT_TRUE(overlay->isCovered() && overlay->coverLook.get().shortcut);
  keys.answer = {ShortcutGrant::Kind::refused};
  keys.grantChanged.emit();
  EXPECT_FALSE(overlay->coverLook.get().shortcut) << "a key that does nothing is not named";
  keys.coverObserver.emit();
  EXPECT_FALSE(overlay->isCovered());
  tell(SessionEvent::screenIsLocked);
  EXPECT_FALSE(isObserved()) << "a password";
  tell(SessionEvent::screenIsUnlocked);
  EXPECT_TRUE(isObserved());
  settings->save(ProtectionOptions());
  EXPECT_FALSE(isObserved());
}

TEST_F(RelaxationsTest, OnASharedScreenAnAlertOnlyNotifiesAndIsCountedOnce) {
  start();
  desktop.sharing->shared = true;
  EXPECT_TRUE(shown.contains("sentrel.shared"));
  see(watched, 700);
  EXPECT_FALSE(overlay->picture.get());
  EXPECT_FALSE(shown["sentrel.alert"].silent);
  see(alone, 3200);
  see(watched, 700);
  EXPECT_TRUE(shown["sentrel.alert"].silent) << "again, though it is too soon";
  EXPECT_EQ(stats->stats.get().alertCount, 1);
  EXPECT_EQ(desktop.haptics->performed, 1);
  see(alone, 40'000);
  // Whoever is warned by the screen alone, and shares it then, is told.
  desktop.sharing->shared = false;
  EXPECT_FALSE(shown.contains("sentrel.shared"));
  changeOptions([](ProtectionOptions& next) { next.reaction = Reaction::darkenOnly; });
  see(watched, 700);
  EXPECT_TRUE(overlay->picture.get());
  EXPECT_FALSE(shown.contains("sentrel.alert"));
  EXPECT_EQ(stats->stats.get().alertCount, 2) << "counted and felt as always";
  EXPECT_EQ(desktop.haptics->performed, 2);
  desktop.sharing->shared = true;
  EXPECT_FALSE(overlay->picture.get());
  EXPECT_TRUE(shown.contains("sentrel.alert"));
  desktop.notifications->heard = false;
  EXPECT_TRUE(overlay->isAlertMode) << "at once";
  see(alone, 40'000);

  changeOptions([](ProtectionOptions& next) { next.whenShared = WhenShared::pause; });
  machine.settle();
  EXPECT_EQ(service->fsmState().get(), FilterState::autoPaused(PauseReason::userPaused(0)));
  tell(SessionEvent::screenIsLocked);
  tell(SessionEvent::screenIsUnlocked);
  EXPECT_FALSE(machine.session->delivers()) << "it is still shared";
  const int starts = machine.session->starts;
  stop();
  EXPECT_EQ(machine.session->starts, starts) << "not even for a moment";
}

}  // namespace
}  // namespace sentrel
