// SPDX-License-Identifier: Apache-2.0
//
// How the program begins and ends: once, wherever it is started, and whole whenever it is killed.
#include <signal.h>

#include <array>
#include <set>
#include <vector>

#include "app/program_run.h"

namespace sentrel::test {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// Without a display and without a camera: quick to start.
class Entry : public ProgramRun {
 protected:
  Entry() : ProgramRun({}) {}

  void startPairs(int pairs) {
    for (int i = 0; i < pairs; ++i) {
      SCOPED_TRACE(i);
      std::array<ChildProcess, 2> both{spawn(), spawn()};
      ASSERT_TRUE(waitUntil([&] { return !both[0].isRunning() || !both[1].isRunning(); }));
      ChildProcess& other = both[0].isRunning() ? both[1] : both[0];
      ChildProcess& first = both[0].isRunning() ? both[0] : both[1];
      EXPECT_EQ(other.waitForExit(seconds(1)), 0);
      EXPECT_NE(other.output().find("already running"), std::string::npos) << other.output();
      ASSERT_TRUE(first.isRunning()) << first.output();
      EXPECT_EQ(owner(bus), first.pid());
      first.signal(SIGTERM);
      EXPECT_EQ(first.waitForExit(seconds(10)), 0);
    }
  }

  /// Kills it `count` times, later and later after its start.
  void killAtEveryStage(int count, milliseconds longest) {
    const std::set<fs::path> before = runtimeFiles();
    for (int i = 0; i < count; ++i) {
      ChildProcess process = spawn();
      std::this_thread::sleep_for(longest * i / count);
      process.kill();
      ASSERT_TRUE(waitUntil([&] { return !bus.hasName(programName); }));
      ASSERT_EQ(number("filter_strength"), 5) << "after kill " << i << ": " << settings();
    }
    ChildProcess process = spawn();
    ASSERT_TRUE(waitUntil([&] { return owner(bus) == process.pid(); })) << process.output();
    process.signal(SIGTERM);
    EXPECT_EQ(process.waitForExit(seconds(10)), 0);
    EXPECT_NE(settings().find("\"has_completed_onboarding\": true"), std::string::npos);
    EXPECT_GE(number("stats_session_count"), 1);
    for (const auto& file : fs::directory_iterator(settingsFolder()))
      EXPECT_EQ(file.path().filename(), "defaults.json");
    EXPECT_EQ(runtimeFiles(), before);
  }

  /// But for what the program printed.
  [[nodiscard]] std::set<fs::path> runtimeFiles() const {
    std::set<fs::path> files;
    for (const auto& file : fs::directory_iterator(desktop.runtimeFolder())) {
      if (!file.path().filename().string().starts_with("program.")) files.insert(file.path());
    }
    return files;
  }

  BusClient bus{desktop, TestBus::session};
};

TEST_F(Entry, OfTwoStartsAtOnceOneStays) {
  startPairs(4);
}

TEST_F(Entry, LongOfAHundredPairsStartedAtOnceOneStaysEachTime) {
  startPairs(100);
}

TEST_F(Entry, ItCanBeKilledAtAnyStageOfItsStart) {
  killAtEveryStage(6, milliseconds(600));
}

TEST_F(Entry, LongItCanBeKilledAHundredTimesOnItsWay) {
  killAtEveryStage(100, milliseconds(1500));
}

TEST_F(Entry, AStartWhileTheFirstOneEndsTakesItsPlace) {
  ChildProcess process = spawn();
  for (const int delayMs : {0, 20, 60, 150}) {
    bus.waitForName(programName);
    ASSERT_TRUE(waitUntil([&] { return owner(bus) == process.pid(); })) << process.output();
    process.signal(SIGTERM);
    std::this_thread::sleep_for(milliseconds(delayMs));
    ChildProcess next = spawn();
    EXPECT_EQ(process.waitForExit(seconds(10)), 0) << process.output();
    EXPECT_TRUE(waitUntil([&] { return owner(bus) == next.pid(); })) << delayMs << ": " << next.output();
    process = std::move(next);
  }
}

TEST_F(Entry, AnInstanceThatHangsHoldsUpNoOther) {
  ChildProcess first = spawn();
  bus.waitForName(programName);
  first.signal(SIGSTOP);
  ChildProcess second = spawn();
  EXPECT_EQ(second.waitForExit(seconds(20)), 0);
  first.signal(SIGCONT);
  EXPECT_EQ(owner(bus), first.pid());
}

TEST_F(Entry, ItDoesWithoutWhatOthersTakeForGranted) {
  struct Case {
    const char* what;
    std::vector<const char*> without;
    Environment with;
    bool onBus = true;
  };
  const std::vector<Case> cases{
      {"no home", {"HOME", "XDG_CONFIG_HOME"}, {}},
      {"a home that cannot be written", {}, {{"HOME", "/proc/1"}, {"XDG_CONFIG_HOME", "/proc/1/config"}}},
      {"an X display that is not there", {}, {{"DISPLAY", ":4711"}}},
      {"a Wayland display that is not there", {}, {{"WAYLAND_DISPLAY", "wayland-4711"}}},
      {"no session bus", {"DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"}, {}, false},
      {"a session bus of nonsense", {}, {{"DBUS_SESSION_BUS_ADDRESS", "nonsense"}}, false},
      {"a session bus on the network",
       {},
       {{"DBUS_SESSION_BUS_ADDRESS", "tcp:host=127.0.0.1,port=9"}},
       false},
  };
  for (const Case& given : cases) {
    SCOPED_TRACE(given.what);
    Environment environment = desktop.environment();
    for (const char* variable : given.without) environment.erase(variable);
    for (const auto& [name, value] : given.with) environment[name] = value;
    ChildProcess process = spawn(environment);
    EXPECT_TRUE(waitUntil([&] {
      return given.onBus ? owner(bus) == process.pid()
                         : process.output().find("no session bus") != std::string::npos;
    })) << process.output();
    std::this_thread::sleep_for(milliseconds(200));
    ASSERT_TRUE(process.isRunning()) << process.output();
    process.signal(SIGTERM);
    EXPECT_EQ(process.waitForExit(seconds(10)), 0) << process.output();
    EXPECT_TRUE(waitUntil([&] { return !bus.hasName(programName); }));
  }
}

/// With a display and windows, and without a panel.
class EntryOnScreen : public ProgramRun {
 protected:
  EntryOnScreen() : ProgramRun({.x11 = true}) {}

  [[nodiscard]] std::string windows() {
    ChildProcess search = desktop.spawn("xdotool", {"search", "--onlyvisible", "--class", "sentrel"});
    (void)search.waitForExit(seconds(10));  // it fails where there are none
    return search.output();
  }

  BusClient bus{desktop, TestBus::session};
};

TEST_F(EntryOnScreen, ASecondStartOpensThePopoverOfTheFirst) {
  ChildProcess first = spawn();
  bus.waitForName(programName);
  EXPECT_EQ(windows(), "");
  ChildProcess second = spawn();
  EXPECT_EQ(second.waitForExit(seconds(10)), 0);
  EXPECT_TRUE(waitUntil([&] { return !windows().empty(); }));
  EXPECT_EQ(owner(bus), first.pid());
}

TEST_F(EntryOnScreen, TheBusStartsItAndWhatWasAskedIsDone) {
  const fs::path services = desktop.runtimeFolder() / "services";
  fs::create_directory(services);
  std::ofstream(services / "expert.mardeck.sentrel.service")
      << "[D-BUS Service]\nName=expert.mardeck.sentrel\nExec=" << SENTREL_PROGRAM << "\n";
  const fs::path socket = desktop.runtimeFolder() / "activating_bus";
  const fs::path configuration = desktop.runtimeFolder() / "activating_bus.conf";
  std::ofstream(configuration)
      << "<busconfig><listen>unix:path=" << socket.string() << "</listen><servicedir>" << services.string()
      << "</servicedir><policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
         "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n";
  Environment environment = desktop.environment();
  environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + socket.string();
  ChildProcess daemon({.program = "dbus-daemon",
                       .arguments = {"--nofork", "--config-file=" + configuration.string()},
                       .environment = environment,
                       .log = desktop.runtimeFolder() / "activating_bus.log"});
  ASSERT_TRUE(waitUntil([&] { return fs::exists(socket); })) << daemon.output();
  QDBusConnection connection = QDBusConnection::connectToBus(
      QString::fromStdString(environment["DBUS_SESSION_BUS_ADDRESS"]), QStringLiteral("asker"));
  const auto ask = [&](const char* member, const QVariantList& words) {
    QDBusMessage call =
        QDBusMessage::createMethodCall(programName, QStringLiteral("/expert/mardeck/sentrel"),
                                       QStringLiteral("org.freedesktop.Application"), QLatin1String(member));
    call.setArguments(words);
    const QDBusMessage answer = connection.call(call);
    EXPECT_EQ(answer.type(), QDBusMessage::ReplyMessage) << answer.errorMessage().toStdString();
  };
  ask("Activate", {QVariantMap()});
  EXPECT_TRUE(waitUntil([&] { return !windows().empty(); })) << "there is no panel to show that it runs";
  const QVariantList quit{QStringLiteral("quit"), QVariantList(), QVariantMap()};
  ask("ActivateAction", quit);
  EXPECT_TRUE(waitUntil([&] { return windows().empty(); }));
  ask("ActivateAction", quit);  // it is started again, only to do what it is asked
  QDBusConnection::disconnectFromBus(QStringLiteral("asker"));
}

TEST_F(EntryOnScreen, TheFirstStartOfAllAsksForTheCamera) {
  fs::remove(settingsFolder() / "defaults.json");
  ChildProcess process = spawn();
  EXPECT_TRUE(waitUntil([&] { return !windows().empty(); })) << process.output();
  EXPECT_EQ(state(bus), "inactive");
  process.signal(SIGTERM);
  EXPECT_EQ(process.waitForExit(seconds(10)), 0);
  EXPECT_EQ(settings().find("\"has_completed_onboarding\": true"), std::string::npos);
}

TEST_F(EntryOnScreen, EveryEndCountsTheSessionsSeconds) {
  long counted = 0;
  long sessions = 1;
  for (const int end : {SIGTERM, SIGINT, SIGHUP, 0, SIGKILL, -1}) {
    SCOPED_TRACE(end);
    ChildProcess process = spawn();
    bus.waitForName(programName);
    ASSERT_TRUE(waitUntil([&] { return number("stats_session_count") == sessions; })) << settings();
    ++sessions;
    std::this_thread::sleep_for(milliseconds(1100));
    if (end > 0) {
      process.signal(end);
    } else if (end == 0) {
      perform(bus, "quit");
    } else {
      desktop.killX();
    }
    const auto code = process.waitForExit(seconds(10));
    EXPECT_EQ(code, end == SIGKILL ? 128 + SIGKILL : end == -1 ? EXIT_FAILURE : 0) << process.output();
    // What is not counted at the end of a crash is the running session alone.
    const long now = number("stats_total_active_seconds");
    EXPECT_GE(now, end == SIGKILL ? counted : counted + 1) << settings();
    counted = now;
  }
}

}  // namespace
}  // namespace sentrel::test
