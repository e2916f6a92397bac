// SPDX-License-Identifier: Apache-2.0
#include <QDBusVariant>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>

#include "linux/desktop/desktop_notifications.h"
#include "linux/desktop/event_desk.h"
#include "linux/desktop/upower_power_source.h"
#include "stage/bus_doubles.h"

namespace sentrel::test {
namespace {

using namespace Qt::StringLiterals;
using enum SessionEvent;
using testing::ElementsAre;
using testing::IsEmpty;

const auto gnomePath = u"/org/gnome/ScreenSaver"_s;
const auto gnome = u"org.gnome.ScreenSaver"_s;

class SessionEventsTest : public SessionEventsDesk {
 protected:
  // What the login manager says of this process goes before it.
  SessionEventsTest() { ::setenv("XDG_SESSION_ID", "c9", 1); }
};

TEST_F(SessionEventsTest, ASleepWaitsUntilTheCameraIsClosed) {
  const MockSession session(desktop);
  const auto delaysAre = [&](std::size_t count) {
    return runUntil([&] { return session.sleepDelays() == count; });
  };
  closesCamera = false;
  install();
  ASSERT_TRUE(delaysAre(1));
  session.prepareForSleep(true);
  ASSERT_TRUE(runUntilDelivered(1));
  EXPECT_EQ(session.sleepDelays(), 1U) << "the camera is still open";
  events.cameraIsClosed();
  ASSERT_TRUE(delaysAre(0));
  session.prepareForSleep(false);
  ASSERT_TRUE(delaysAre(1)) << "the next sleep is delayed again";
  events.cameraIsClosed();  // of no sleep
  session.setLockedHint(true);
  ASSERT_TRUE(runUntilDelivered(3));
  EXPECT_TRUE(events.isLocked());
  EXPECT_EQ(session.sleepDelays(), 1U);
  registration.reset();
  EXPECT_TRUE(delaysAre(0)) << "nobody observes any more";
  EXPECT_THAT(delivered, ElementsAre(screensDidSleep, screensDidWake, screenIsLocked));
}

TEST_F(SessionEventsTest, WhereNobodyAnswersNothingWaits) {
  install();
  bool known = false;
  events.whenKnown([&] { known = true; });
  EXPECT_FALSE(known) << "in a later turn";
  EXPECT_TRUE(runUntil([&] { return known; }));
  registration.reset();
  events.whenKnown([&] { FAIL() << "nobody observes any more"; });
  desktop.sessionBus().signal(SIGSTOP);
  install();
  known = false;
  events.whenKnown([&] { known = true; });
  EXPECT_TRUE(runUntil([&] { return known; })) << "a bus that hangs holds up nothing";
  desktop.sessionBus().signal(SIGCONT);
}

TEST_F(SessionEventsTest, FindsItsSessionByTheEnvironment) {
  const BusMock logind(desktop, systemBus, u"org.freedesktop.login1"_s, u"logind"_s);
  const auto lock = [&](const char* session, bool locked) {
    logind.call(u"/org/freedesktop/login1/session/"_s + QString::fromLatin1(session),
                u"org.freedesktop.login1.Session"_s, u"SetLockedHint"_s, {locked});
  };
  for (const char* session : {"c2", "c9"}) {
    logind.control(u"/org/freedesktop/login1"_s, u"AddSession"_s,
                   {QString::fromLatin1(session), u"seat0"_s, 1000U, u"user"_s, true});
    lock(session, true);
  }
  install();
  EXPECT_TRUE(runUntilDelivered(1));
  lock("c9", false);
  EXPECT_TRUE(runUntilDelivered(2));
  EXPECT_THAT(delivered, ElementsAre(screenIsLocked, screenIsUnlocked));
}

TEST_F(SessionEventsTest, FoundLockedAndInactiveIsOneEvent) {
  const MockSession session(desktop);
  session.setLockedHint(true);
  session.setActive(false);
  session.setLockerActive(true);
  install();
  std::optional<std::size_t> deliveredWhenKnown;
  events.whenKnown([&] { deliveredWhenKnown = delivered.size(); });
  EXPECT_THAT(delivered, IsEmpty()) << "never before install returns";
  ASSERT_TRUE(runUntil([&] { return deliveredWhenKnown.has_value(); }));
  EXPECT_EQ(deliveredWhenKnown, 1U) << "who waited for the answers has heard it";
  // A second observer, as a second start has it, hears it too; the first one's registration is worth nothing
  // then.
  std::vector<SessionEvent> second;
  Registration replacing = events.install([&](SessionEvent event) { second.push_back(event); });
  registration.reset();
  ASSERT_TRUE(runUntil([&] { return !second.empty(); }));
  session.setActive(true);
  session.setLockedHint(false);
  session.setLockerActive(false);
  ASSERT_TRUE(runUntil([&] { return second.size() == 2; }));
  EXPECT_THAT(second, ElementsAre(screenIsLocked, screenIsUnlocked));
  EXPECT_THAT(delivered, ElementsAre(screenIsLocked));
}

TEST_F(SessionEventsTest, FollowsBothScreenSaversThroughTheirRestarts) {
  std::optional<BusMock> saver(std::in_place, desktop, sessionBus, gnome, u"gnome_screensaver"_s);
  BusDouble other(desktop, TestBus::session, u"org.freedesktop.ScreenSaver"_s);
  // Stands where one desktop has it, and not where the other has it.
  other.answer(u"GetActive"_s, [&](const QDBusMessage& call) -> QVariantList {
    return call.path() == u"/ScreenSaver"_s ? QVariantList{true} : QVariantList{u"what?"_s};
  });
  install();
  ASSERT_TRUE(runUntilDelivered(1));
  saver->call(gnomePath, gnome, u"SetActive"_s, {true});
  other.emitSignal(u"/ScreenSaver"_s, u"org.freedesktop.ScreenSaver"_s, u"ActiveChanged"_s, {false});
  // Garbage, and a stranger that says the same words.
  other.emitSignal(u"/ScreenSaver"_s, u"org.freedesktop.ScreenSaver"_s, u"ActiveChanged"_s, {7, u"true"_s});
  BusDouble stranger(desktop, TestBus::session, u"org.example.Stranger"_s);
  stranger.emitSignal(gnomePath, gnome, u"ActiveChanged"_s, {false});
  saver->kill();
  saver.emplace(desktop, sessionBus, gnome, u"gnome_screensaver"_s);  // without its cover
  ASSERT_TRUE(runUntilDelivered(2));
  EXPECT_THAT(delivered, ElementsAre(screenIsLocked, screenIsUnlocked));
}

TEST_F(SessionEventsTest, FollowsGnomesDisplays) {
  const auto display = u"org.gnome.Mutter.DisplayConfig"_s;
  const auto displayPath = u"/org/gnome/Mutter/DisplayConfig"_s;
  BusMock mutter = BusMock::empty(desktop, sessionBus, display, displayPath);
  mutter.control(displayPath, u"AddProperty"_s,
                 {display, u"PowerSaveMode"_s, QVariant::fromValue(QDBusVariant(3))});
  install();
  ASSERT_TRUE(runUntilDelivered(1));
  for (const int mode : {0, 1, 3, 99, 0}) {
    mutter.setProperty(displayPath, display, u"PowerSaveMode"_s, mode);
  }
  ASSERT_TRUE(runUntilDelivered(4));
  EXPECT_THAT(delivered, ElementsAre(screensDidSleep, screensDidWake, screensDidSleep, screensDidWake));
}

/// Everything that speaks with a bus is in use while one hangs: whatever waited for an answer would wait
/// until the bus library gives up, 25 s.
TEST_F(SessionEventsTest, ABusThatHangsHoldsUpNeitherTheMainLoopNorTheOther) {
  const MockSession session(desktop);
  const struct {
    const ChildProcess& hangs;
    std::function<void(bool)> lock;  // told on the other bus
  } cases[] = {
      {desktop.sessionBus(), [&](bool on) { session.setLockedHint(on); }},
      {desktop.systemBus(), [&](bool on) { session.setLockerActive(on); }},
  };
  for (const auto& [hangs, lock] : cases) {
    // Buses that are new to all: they also have to connect while one of them hangs.
    const auto freshSession = std::make_shared<Bus>(loop, BusKind::session);
    const auto freshSystem = std::make_shared<Bus>(loop, BusKind::system);
    DesktopSessionEvents freshEvents({loop, clock, freshSession, freshSystem, displays});
    DesktopNotifications centre(loop, freshSession);
    FeedbackdHaptics haptics(freshSession);
    UPowerPowerSource power(freshSystem);
    std::vector<SessionEvent> heard;
    hangs.signal(SIGSTOP);
    lock(true);
    const auto begin = std::chrono::steady_clock::now();
    const Registration observing = freshEvents.install([&](SessionEvent event) { heard.push_back(event); });
    const Registration battery = power.observe();
    for (const std::size_t wanted : {1U, 2U}) {
      EXPECT_TRUE(runUntil([&] {
        centre.requestAuthorization([](bool) {});
        centre.add("a", {"Titre", "Texte"});
        centre.remove("a");
        haptics.perform();
        freshEvents.cameraIsClosed();
        return heard.size() == wanted;
      }));
      lock(false);
    }
    const std::chrono::duration<double> lasted = std::chrono::steady_clock::now() - begin;
    EXPECT_LT(lasted.count(), 5);
    hangs.signal(SIGCONT);
    EXPECT_TRUE(runUntil([&] { return power.first().has_value() && session.sleepDelays() == 1; }))
        << "the bus that has come to itself is heard again";
  }
}

}  // namespace
}  // namespace sentrel::test
