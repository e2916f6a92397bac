// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_session_events.h"

#include <QDBusArgument>
#include <QDBusVariant>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <optional>

#include "linux/desktop/event_desk.h"

namespace sentrel::test {
namespace {

using enum SessionEvent;
using testing::ElementsAre;
using testing::IsEmpty;

const auto manager = QStringLiteral("org.freedesktop.login1.Manager");
const auto managerPath = QStringLiteral("/org/freedesktop/login1");
const auto session = QStringLiteral("org.freedesktop.login1.Session");
const auto sessionPath = QStringLiteral("/org/freedesktop/login1/session/c2");
const auto gnomePath = QStringLiteral("/org/gnome/ScreenSaver");
const auto gnome = QStringLiteral("org.gnome.ScreenSaver");

class SessionEventsTest : public EventDesk {
 protected:
  SessionEventsTest() { ::setenv("XDG_SESSION_ID", "c2", 1); }

  void startLogind() {
    logind.emplace(desktop, systemBus, QStringLiteral("org.freedesktop.login1"), QStringLiteral("logind"));
    logind->control(managerPath, QStringLiteral("AddSession"),
                    {QStringLiteral("c2"), QStringLiteral("seat0"), 1000U, QStringLiteral("user"), true});
  }
  void startGnome() { saver.emplace(desktop, sessionBus, gnome, QStringLiteral("gnome_screensaver")); }

  void install() {
    registration = events.install([this](SessionEvent event) {
      delivered.push_back(event);
      if (isGoingAway(event) && closesCamera) events.cameraIsClosed();
    });
  }
  /// Observes a session whose witnesses have all answered: the sleep delay is taken after the first answers.
  void installAndSettle() {
    install();
    ASSERT_TRUE(runUntil([this] { return delays() == 1; }));
    // Repeated requests deliver nothing, so they can be made until one is heard; what the session was asked
    // before is answered by then.
    ASSERT_TRUE(runUntil([this] {
      logind->call(sessionPath, session, QStringLiteral("Lock"));
      return !delivered.empty();
    }));
    logind->call(sessionPath, session, QStringLiteral("Unlock"));
    ASSERT_TRUE(runUntilDelivered(2));
    delivered.clear();
  }
  [[nodiscard]] bool runUntilDelivered(std::size_t count) {
    return runUntil([&] { return delivered.size() >= count; });
  }
  /// How many programs delay the sleep of the machine.
  std::size_t delays() {
    const QDBusMessage reply = logind->call(managerPath, manager, QStringLiteral("ListInhibitors"));
    const auto list = reply.arguments().constFirst().value<QDBusArgument>();
    std::size_t count = 0;
    for (list.beginArray(); !list.atEnd(); ++count) (void)list.asVariant();
    list.endArray();
    return count;
  }
  void lockedHint(bool locked) {
    logind->call(sessionPath, session, QStringLiteral("SetLockedHint"), {locked});
  }
  void active(bool now) { logind->setProperty(sessionPath, session, QStringLiteral("Active"), now); }
  void sleep(bool begins) {
    logind->emitSignal(managerPath, manager, QStringLiteral("PrepareForSleep"), QStringLiteral("b"),
                       {begins});
  }
  void saverActive(bool covers) { saver->call(gnomePath, gnome, QStringLiteral("SetActive"), {covers}); }

  std::optional<BusMock> logind;
  std::optional<BusMock> saver;
  DesktopSessionEvents events{loop, clock, buses, displays};
  std::vector<SessionEvent> delivered;
  bool closesCamera = true;
  Registration registration;
};

TEST_F(SessionEventsTest, FollowsTheLoginManager) {
  startLogind();
  installAndSettle();
  lockedHint(true);
  active(false);
  lockedHint(false);  // held: another session is in front
  active(true);
  ASSERT_TRUE(runUntilDelivered(3));
  EXPECT_FALSE(events.isLocked());
  lockedHint(true);
  lockedHint(true);
  ASSERT_TRUE(runUntil([&] { return events.isLocked(); }));
  lockedHint(false);
  ASSERT_TRUE(runUntilDelivered(5));
  EXPECT_THAT(delivered, ElementsAre(screenIsLocked, sessionDidResignActive, sessionDidBecomeActive,
                                     screenIsLocked, screenIsUnlocked));
}

TEST_F(SessionEventsTest, ASleepWaitsUntilTheCameraIsClosed) {
  startLogind();
  closesCamera = false;
  installAndSettle();
  sleep(true);
  ASSERT_TRUE(runUntilDelivered(1));
  EXPECT_EQ(delays(), 1U) << "the camera is still open";
  events.cameraIsClosed();
  ASSERT_TRUE(runUntil([&] { return delays() == 0; }));
  sleep(false);
  ASSERT_TRUE(runUntil([&] { return delays() == 1; })) << "the next sleep is delayed again";
  events.cameraIsClosed();  // of no sleep
  lockedHint(true);
  ASSERT_TRUE(runUntilDelivered(3));
  EXPECT_EQ(delays(), 1U);
  registration.reset();
  EXPECT_TRUE(runUntil([&] { return delays() == 0; })) << "nobody observes any more";
  EXPECT_THAT(delivered, ElementsAre(screensDidSleep, screensDidWake, screenIsLocked));
}

TEST_F(SessionEventsTest, FindsItsSessionInEachWay) {
  const auto otherPath = QStringLiteral("/org/freedesktop/login1/session/c9");
  struct Way {
    const char* name;
    std::function<void()> prepare;
  };
  const std::vector<Way> ways{
      {"by process",
       [&] {
         ::setenv("XDG_SESSION_ID", "c2", 1);
         logind->control(managerPath, QStringLiteral("AddMethod"),
                         {manager, QStringLiteral("GetSessionByPID"), QStringLiteral("u"),
                          QStringLiteral("o"), QStringLiteral("ret = '/org/freedesktop/login1/session/c9'")});
       }},
      {"by environment", [&] { ::setenv("XDG_SESSION_ID", "c9", 1); }},
  };
  for (const Way& way : ways) {
    SCOPED_TRACE(way.name);
    startLogind();
    logind->control(managerPath, QStringLiteral("AddSession"),
                    {QStringLiteral("c9"), QStringLiteral("seat0"), 1000U, QStringLiteral("user"), true});
    way.prepare();
    lockedHint(true);  // of a session that is not ours
    logind->call(otherPath, session, QStringLiteral("SetLockedHint"), {true});
    install();
    EXPECT_TRUE(runUntilDelivered(1));
    logind->call(otherPath, session, QStringLiteral("SetLockedHint"), {false});
    EXPECT_TRUE(runUntilDelivered(2));
    EXPECT_THAT(delivered, ElementsAre(screenIsLocked, screenIsUnlocked));
    registration.reset();
    delivered.clear();
    logind.reset();
  }
}

TEST_F(SessionEventsTest, FoundLockedAndInactiveIsOneEvent) {
  startLogind();
  startGnome();
  lockedHint(true);
  active(false);
  saverActive(true);
  install();
  EXPECT_THAT(delivered, IsEmpty()) << "never before install returns";
  ASSERT_TRUE(runUntilDelivered(1));
  // A second observer, as a second start has it, hears it too; the first one's registration is worth nothing
  // then.
  std::vector<SessionEvent> second;
  Registration replacing = events.install([&](SessionEvent event) { second.push_back(event); });
  registration.reset();
  ASSERT_TRUE(runUntil([&] { return !second.empty(); }));
  active(true);
  lockedHint(false);
  saverActive(false);
  ASSERT_TRUE(runUntil([&] { return second.size() == 2; }));
  EXPECT_THAT(second, ElementsAre(screenIsLocked, screenIsUnlocked));
  EXPECT_THAT(delivered, ElementsAre(screenIsLocked));
}

TEST_F(SessionEventsTest, FollowsBothScreenSaversThroughTheirRestarts) {
  startGnome();
  BusDouble other(desktop, TestBus::session, QStringLiteral("org.freedesktop.ScreenSaver"));
  // Stands where one desktop has it, and not where the other has it.
  other.answer(QStringLiteral("GetActive"), [&](const QDBusMessage& call) -> QVariantList {
    return call.path() == QStringLiteral("/ScreenSaver") ? QVariantList{true}
                                                         : QVariantList{QStringLiteral("what?")};
  });
  install();
  ASSERT_TRUE(runUntilDelivered(1));
  saverActive(true);
  other.emitSignal(QStringLiteral("/ScreenSaver"), QStringLiteral("org.freedesktop.ScreenSaver"),
                   QStringLiteral("ActiveChanged"), {false});
  // Garbage, and a stranger that says the same words.
  other.emitSignal(QStringLiteral("/ScreenSaver"), QStringLiteral("org.freedesktop.ScreenSaver"),
                   QStringLiteral("ActiveChanged"), {7, QStringLiteral("true")});
  BusDouble stranger(desktop, TestBus::session, QStringLiteral("org.example.Stranger"));
  stranger.emitSignal(gnomePath, gnome, QStringLiteral("ActiveChanged"), {false});
  saver->kill();
  startGnome();  // restarted without its cover
  ASSERT_TRUE(runUntilDelivered(2));
  EXPECT_THAT(delivered, ElementsAre(screenIsLocked, screenIsUnlocked));
}

TEST_F(SessionEventsTest, FollowsGnomesDisplays) {
  const auto display = QStringLiteral("org.gnome.Mutter.DisplayConfig");
  const auto displayPath = QStringLiteral("/org/gnome/Mutter/DisplayConfig");
  BusMock mutter = BusMock::empty(desktop, sessionBus, display, displayPath);
  mutter.control(displayPath, QStringLiteral("AddProperty"),
                 {display, QStringLiteral("PowerSaveMode"), QVariant::fromValue(QDBusVariant(3))});
  install();
  ASSERT_TRUE(runUntilDelivered(1));
  for (const int mode : {0, 1, 3, 99, 0}) {
    mutter.setProperty(displayPath, display, QStringLiteral("PowerSaveMode"), mode);
  }
  ASSERT_TRUE(runUntilDelivered(4));
  EXPECT_THAT(delivered, ElementsAre(screensDidSleep, screensDidWake, screensDidSleep, screensDidWake));
}

TEST_F(SessionEventsTest, ABusThatHangsHoldsUpNothingOfTheOther) {
  startLogind();
  startGnome();
  const struct {
    const char* name;
    const ChildProcess& hangs;
    std::function<void(bool)> lock;  // by a witness on the other bus
  } cases[] = {
      {"session bus", desktop.sessionBus(), [&](bool on) { lockedHint(on); }},
      {"system bus", desktop.systemBus(), [&](bool on) { saverActive(on); }},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    // Buses that are new to the class: it also has to connect while one of them hangs.
    DesktopSessionEvents fresh(loop, clock, std::make_shared<BusThread>(), displays);
    std::vector<SessionEvent> heard;
    one.hangs.signal(SIGSTOP);
    one.lock(true);
    const Registration observing = fresh.install([&](SessionEvent event) { heard.push_back(event); });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(runUntil([&] { return heard.size() == 1; }));
    one.lock(false);
    EXPECT_TRUE(runUntil([&] { return heard.size() == 2; }));
    const std::chrono::duration<double> lasted = std::chrono::steady_clock::now() - begin;
    one.hangs.signal(SIGCONT);
    std::cout << one.name << " hangs: lock and unlock heard within " << lasted.count() << " s\n";
    EXPECT_LT(lasted.count(), 5) << "the bus library gives up after 25 s";
    // The bus that has come to itself is heard again.
    if (one.hangs.pid() == desktop.sessionBus().pid()) {
      EXPECT_TRUE(runUntil([&] {
        saverActive(true);
        return heard.size() >= 3;
      }));
      saverActive(false);
    }
  }
}

}  // namespace
}  // namespace sentrel::test
