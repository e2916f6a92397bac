// SPDX-License-Identifier: Apache-2.0
//
// The program itself through what happens to a session: other programs see its state on the bus and whether
// it has the camera open.
#include <QDBusVariant>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "desktop/program_desk.h"

namespace sentrel::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

class ProgramTest : public ProgramDesk {
 protected:
  using ProgramDesk::ProgramDesk;

  void startProtecting() {
    start();
    ASSERT_TRUE(becomes("nominal"));
    ASSERT_TRUE(cameraIs(true));
  }
  [[nodiscard]] std::string state() const { return ProgramRun::state(session.sessionBus()); }
  [[nodiscard]] bool becomes(const char* wanted) const {
    return waitUntil([&] { return state() == wanted; });
  }
  [[nodiscard]] bool cameraIs(bool open) const {
    return waitUntil([&] { return camera.isOpen() == open; }, seconds(20), milliseconds(1));
  }
  /// Once nothing comes and goes any more: a stream is linked some time after it is opened.
  [[nodiscard]] std::map<std::string, int> settledDescriptors() const {
    auto last = ProcessUsage::of(process.pid()).descriptors;
    auto since = steady_clock::now();
    (void)waitUntil([&] {
      auto now = ProcessUsage::of(process.pid()).descriptors;
      if (now != last) since = steady_clock::now();
      last = std::move(now);
      return steady_clock::now() - since > seconds(1);
    });
    return last;
  }
  double wakeUpsPerSecond(seconds duration) const {
    // PipeWire suspends a camera 5 s after it was closed, and tells everybody.
    std::this_thread::sleep_for(seconds(7));
    const auto before = ProcessUsage::of(process.pid()).wakeUps;
    std::this_thread::sleep_for(duration);
    return static_cast<double>(ProcessUsage::of(process.pid()).wakeUps - before) /
           static_cast<double>(duration.count());
  }
};

TEST_F(ProgramTest, ALoginBeforeItsCameraEndsProtected) {
  camera.vanish();
  desktop.stopPipeWire();
  start();
  std::this_thread::sleep_for(seconds(4));
  EXPECT_EQ(state(), "inactive");
  desktop.startPipeWire();
  std::this_thread::sleep_for(seconds(4));
  // Said once the retry that was due has waited for the first listing.
  EXPECT_EQ(state(), "inactive");
  EXPECT_FALSE(isCovered());
  camera.appear();
  EXPECT_TRUE(becomes("nominal"));
  EXPECT_TRUE(cameraIs(true));
}

TEST_F(ProgramTest, WhoeverGoesClosesTheCameraAndAThousandEventsLeaveNothing) {
  startProtecting();
  ASSERT_TRUE(waitUntil([&] { return session.sleepDelays() == 1; }));
  const struct {
    const char* name;
    std::function<void(bool)> happens;
  } ways[] = {
      {"lock", [&](bool away) { session.setLockedHint(away); }},
      {"locker", [&](bool away) { session.setLockerActive(away); }},
      {"unconfirmed lock", [&](bool away) { session.requestLock(away); }},
      {"sleep", [&](bool away) { session.prepareForSleep(away); }},
      {"session switch", [&](bool away) { session.setActive(!away); }},
  };
  for (const auto& [name, happens] : ways) {
    happens(true);
    EXPECT_TRUE(cameraIs(false) && waitUntil([&] { return !isCovered(); })) << name;
    happens(false);
    EXPECT_TRUE(cameraIs(true) && becomes("nominal") && waitUntil([&] { return isCovered(); })) << name;
  }
  ASSERT_TRUE(waitUntil([&] { return session.sleepDelays() == 1; }));
  const auto before = settledDescriptors();
  std::mt19937 random(20261121);  // NOLINT(cert-msc51-cpp): the same day in every run
  for (int i = 0; i < 1000; ++i) {
    const bool away = random() % 2 == 0;
    if (const auto which = random() % 6; which < std::size(ways)) {
      ways[which].happens(away);
    } else {
      session.setBattery(away ? 5 : 80, false);
    }
  }
  session.setLockedHint(true);
  session.setLockerActive(false);
  session.setActive(true);
  session.prepareForSleep(true);
  session.prepareForSleep(false);  // a wake-up while locked
  ASSERT_TRUE(becomes("autoPaused"));
  ASSERT_TRUE(cameraIs(false));
  EXPECT_FALSE(
      waitUntil([&] { return camera.isOpen() || isCovered() || state() != "autoPaused"; }, seconds(2)));
  session.setBattery(80, false);
  session.setLockedHint(false);
  EXPECT_TRUE(becomes("nominal"));
  EXPECT_TRUE(cameraIs(true));
  EXPECT_TRUE(waitUntil([&] { return session.sleepDelays() == 1; }));
  EXPECT_EQ(settledDescriptors(), before);
}

TEST_F(ProgramTest, TheEndOfTheSessionBusDoesNotEndProtection) {
  startProtecting();
  desktop.sessionBus().signal(SIGKILL);
  std::this_thread::sleep_for(seconds(1));
  ASSERT_TRUE(process.isRunning()) << process.output();
  EXPECT_TRUE(camera.isOpen());
  session.prepareForSleep(true);  // the other bus is still there
  EXPECT_TRUE(cameraIs(false));
  session.prepareForSleep(false);
  EXPECT_TRUE(cameraIs(true));

  // The next bus at the same place, with a notification server.
  desktop.replaceSessionBus();
  const BusClient next(desktop, TestBus::session);
  next.waitForName(programName);
  EXPECT_EQ(ProgramRun::state(next), "nominal");
  BusDouble server(desktop, TestBus::session, u"org.freedesktop.Notifications"_s);
  server.answer(u"Notify"_s, [](const QDBusMessage&) -> QVariantList { return {1U}; });
  isWatched = true;
  EXPECT_TRUE(eventually([&] { return !server.calls(u"Notify"_s).empty(); }));
  terminate();
}

TEST_F(ProgramTest, ItBeginsAndEndsInGoodOrderOnADamagedFileAndWhenNoBusAnswers) {
  std::ofstream(settingsFolder() / "defaults.json")
      << "{\n  \"has_completed_onboarding\": true,\n  \"sensitivity\": 1e99,\n  \"stats_al";
  startProtecting();
  EXPECT_EQ(property(session.sessionBus(), "AlertCount").typeId(), QMetaType::LongLong);
  EXPECT_THROW(perform("dance"), std::runtime_error);
  perform("quit");
  expectGoodEnd();
  const std::string told = process.output();
  const std::string words = "Réglages endommagés";
  EXPECT_THAT(told, testing::HasSubstr(words));
  EXPECT_EQ(told.find(words), told.rfind(words)) << "told once";

  startProtecting();
  desktop.sessionBus().signal(SIGSTOP);
  desktop.systemBus().signal(SIGSTOP);
  terminate();
  EXPECT_EQ(process.output(), "");

  process = desktop.spawn(SENTREL_PROGRAM);
  EXPECT_TRUE(cameraIs(true)) << "it protects, though nobody can ask it how it is";
  EXPECT_THAT(process.output(), testing::HasSubstr("no session bus"));
  terminate();
  desktop.sessionBus().signal(SIGCONT);
  desktop.systemBus().signal(SIGCONT);
}

TEST_F(ProgramTest, LongItSleepsWhileOffAndAlmostWhilePaused) {
  startProtecting();
  session.setLockedHint(true);
  ASSERT_TRUE(becomes("autoPaused"));
  EXPECT_LE(wakeUpsPerSecond(seconds(60)), 0.1);
  session.setLockedHint(false);
  ASSERT_TRUE(becomes("nominal"));
  perform("toggle");
  ASSERT_TRUE(becomes("inactive"));
  EXPECT_EQ(wakeUpsPerSecond(seconds(30)), 0);
}

/// On a Wayland desktop.
class ProgramOnWaylandTest : public ProgramTest {
 protected:
  ProgramOnWaylandTest() : ProgramTest({.systemBus = true, .pipeWire = true, .sway = true}) {}
};

TEST_F(ProgramOnWaylandTest, ACompositorThatHangsFreezesNothing) {
  startProtecting();
  perform("preferences");
  // Whether there is anything on the empty desktop's corner.
  const auto isCornerCovered = [&] {
    const auto path = desktop.runtimeFolder() / "screen.png";
    desktop.screenshot(path);
    const QImage corner = QImage(QString::fromStdString(path.string())).copy(0, 0, 100, 100);
    QImage plain(corner.size(), corner.format());
    plain.fill(corner.pixel(0, 0));
    return corner != plain;
  };
  EXPECT_TRUE(waitUntil(isCornerCovered));
  ::kill(desktop.swayPid(), SIGSTOP);
  isWatched = true;
  EXPECT_TRUE(becomes("alert"));
  perform("statistics");
  std::this_thread::sleep_for(seconds(5));  // the alert flashes, and nobody takes what is drawn
  isWatched = false;
  EXPECT_TRUE(becomes("nominal"));
  for (const bool on : {false, true}) {
    perform("toggle");
    EXPECT_TRUE(cameraIs(on));
  }
  ::kill(desktop.swayPid(), SIGCONT);
  EXPECT_TRUE(waitUntil(isCornerCovered)) << "again";
  terminate();
}

}  // namespace
}  // namespace sentrel::test
