// SPDX-License-Identifier: Apache-2.0
//
// The program itself through what happens to a session: other programs see its state on the bus and whether
// it has the camera open.

#include "app/program_desk.h"

namespace sentrel::test {
namespace {

using ProgramTest = ProgramDesk;

TEST_F(ProgramTest, ALoginBeforeItsCameraEndsProtected) {
  camera.vanish();
  desktop.stopPipeWire();
  start();
  std::this_thread::sleep_for(seconds(4));
  desktop.startPipeWire();
  std::this_thread::sleep_for(seconds(4));
  // Said once the retry that was due has waited for the first listing.
  EXPECT_EQ(state(), "inactive");
  EXPECT_FALSE(isCovered());
  camera.appear();
  EXPECT_TRUE(becomes("nominal"));
  EXPECT_TRUE(cameraIs(true));
}

TEST_F(ProgramTest, WhoeverGoesClosesTheCamera) {
  startProtecting();
  const std::pair<const char*, std::function<void(bool)>> ways[] = {
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
  EXPECT_TRUE(waitUntil([&] { return session.sleepDelays() == 1; }));
}

TEST_F(ProgramTest, TheSessionBusMayEndAndOnTheNextOneThePersonIsTold) {
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
  replaceBus();
  bus->waitForName(programName);
  EXPECT_EQ(state(), "nominal");
  BusDouble server(desktop, TestBus::session, u"org.freedesktop.Notifications"_s);
  server.answer(u"Notify"_s, [id = 0U](const QDBusMessage&) mutable -> QVariantList { return {++id}; });
  const auto told = [&](const QString& member) {
    const auto calls = server.calls(member);
    return calls.empty() ? QVariantList() : calls.back().arguments();
  };
  isWatched = true;
  EXPECT_TRUE(eventually([&] { return told(u"Notify"_s).value(3) == u"Regard indiscret détecté"_s; }));
  isWatched = false;
  perform("toggle");
  EXPECT_TRUE(eventually([&] { return told(u"Notify"_s).value(3) == u"Protection désactivée"_s; }));
  perform("toggle");
  EXPECT_TRUE(eventually([&] { return told(u"CloseNotification"_s).value(0) == 2U; })) << "it is on again";
  perform("quit");
  EXPECT_TRUE(eventually([&] { return server.calls(u"Notify"_s).size() == 3; })) << "nobody else will tell";
  expectGoodEnd();
}

TEST_F(ProgramTest, ItBeginsAndEndsInGoodOrderOnADamagedFileAndWhenNoBusAnswers) {
  std::ofstream(settingsFolder() / "defaults.json")
      << "{\n  \"has_completed_onboarding\": true,\n  \"sensitivity\": 1e99,\n  \"stats_al";
  startProtecting();
  EXPECT_EQ(property(u"AlertCount"_s).typeId(), QMetaType::LongLong);
  EXPECT_THROW(perform("dance"), std::runtime_error);
  perform("quit");
  expectGoodEnd();
  EXPECT_EQ(QString::fromStdString(process.output()).count(u"Réglages endommagés"_s), 1);

  startProtecting();
  desktop.sessionBus().signal(SIGSTOP);
  desktop.systemBus().signal(SIGSTOP);
  terminate();
  EXPECT_EQ(process.output(), "");

  ASSERT_TRUE(cameraIs(false)) << "that of the one that has ended";
  process = desktop.spawn(SENTREL_PROGRAM);
  EXPECT_TRUE(cameraIs(true)) << "it protects, though nobody can ask it how it is";
  EXPECT_THAT(process.output(), testing::HasSubstr("Aucun bus de session"));
  terminate();
  desktop.sessionBus().signal(SIGCONT);
  desktop.systemBus().signal(SIGCONT);
}

TEST_F(ProgramTest, TheBusStartsItAndOnlyWhatIsAskedIsDone) {
  fs::create_directory(desktop.serviceFolder());
  std::ofstream(desktop.serviceFolder() / "expert.mardeck.sentrel.service")
      << "[D-BUS Service]\nName=expert.mardeck.sentrel\nExec=" << SENTREL_PROGRAM << " --service\n";
  replaceBus();
  const auto startAgain = [&] {
    ChildProcess second = spawn();
    EXPECT_EQ(second.waitForExit(seconds(10)), 0);
    EXPECT_THAT(second.output(), testing::HasSubstr("sa fenêtre vient de s'ouvrir"));
  };
  // It fails where there are none, and complains of one that goes while it looks.
  const auto hasWindow = [&] {
    return desktop.spawn("xdotool", {"search", "--onlyvisible", "--class", "sentrel"})
               .waitForExit(seconds(10)) == 0;
  };
  const auto opensWindow = [&] { return waitUntil(hasWindow); };
  const auto quit = [&] {
    perform("quit");
    EXPECT_TRUE(waitUntil([&] { return !bus->hasName(programName); }));
    EXPECT_TRUE(waitUntil([&] { return !camera.isOpen() && !hasWindow(); })) << "the bus hears of it first";
  };
  const auto staysClosed = [&] {
    return !waitUntil([&] { return camera.isOpen() || hasWindow(); }, seconds(1));
  };

  EXPECT_EQ(state(), "inactive");
  EXPECT_TRUE(staysClosed()) << "nobody has asked for protection";
  startAgain();
  EXPECT_TRUE(cameraIs(true));
  EXPECT_TRUE(opensWindow()) << "there is no panel to show that it runs";
  quit();
  EXPECT_EQ(state(), "inactive");
  EXPECT_TRUE(staysClosed()) << "the person has quit";
  perform("toggle");
  EXPECT_TRUE(cameraIs(true));
  perform("toggle");
  EXPECT_TRUE(cameraIs(false));
  startAgain();
  EXPECT_TRUE(opensWindow());
  EXPECT_FALSE(waitUntil([&] { return camera.isOpen(); }, seconds(1))) << "it was switched off";
  quit();
  perform("toggle");
  EXPECT_TRUE(cameraIs(true)) << "started in order to be switched on";
  quit();
  const auto command = [&](const QString& method, const QVariantList& values = {}) {
    bus->call(programName, programPath, u"expert.mardeck.sentrel1"_s, method, values);
  };
  EXPECT_THROW(command(u"Pause"_s, {qint64{60'000}}), std::runtime_error) << "there is nothing to pause";
  EXPECT_TRUE(staysClosed());
  command(u"SwitchOn"_s);
  EXPECT_TRUE(cameraIs(true));
  quit();
  perform("quit");  // it is started again, only to do what it is asked
}

TEST_F(ProgramTest, EveryEndCountsTheSessionsSeconds) {
  qint64 counted = 0;
  int sessions = 0;
  for (const int end : {SIGTERM, SIGINT, SIGHUP, 0, SIGKILL, -1}) {
    SCOPED_TRACE(end);
    startProtecting();
    std::this_thread::sleep_for(milliseconds(1100));
    if (end > 0) {
      process.signal(end);
    } else if (end == 0) {
      perform("quit");
    } else {
      desktop.killX();
    }
    const auto code = process.waitForExit(seconds(10));
    EXPECT_EQ(code, end == SIGKILL ? 128 + SIGKILL : end == -1 ? EXIT_FAILURE : 0) << process.output();
    EXPECT_EQ(number("stats_session_count"), ++sessions);
    // What is not counted at the end of a crash is the running session alone.
    const qint64 now = number("stats_total_active_seconds");
    EXPECT_GE(now, end == SIGKILL ? counted : counted + 1) << settings();
    counted = now;
  }
}

struct ProgramOnWaylandTest : ProgramDesk {
  ProgramOnWaylandTest() : ProgramDesk({.systemBus = true, .pipeWire = true, .sway = true}) {}
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
