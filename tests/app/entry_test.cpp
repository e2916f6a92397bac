// SPDX-License-Identifier: Apache-2.0
//
// How the program begins and ends: once, wherever it is started, and whole whenever it is killed.
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <set>
#include <vector>

#include "app/program_run.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// Where nobody answers, and whoever comes is noticed. Gives a descriptor, which lasts as long as the test.
int silentSocket(const fs::path& path) {
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  path.string().copy(address.sun_path, sizeof address.sun_path - 1);
  if (bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(socket, 8) != 0)
    throw std::runtime_error("no socket at " + path.string());
  return socket;
}

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

TEST_F(Entry, WhatSwitchesProtectionOffFromOutsideIsTold) {
  BusDouble server(desktop, TestBus::session, QStringLiteral("org.freedesktop.Notifications"));
  server.answer(QStringLiteral("GetServerInformation"), [](const QDBusMessage&) {
    return QVariantList{QStringLiteral("x"), QStringLiteral("x"), QStringLiteral("1"), QStringLiteral("1.2")};
  });
  server.answer(QStringLiteral("Notify"), [](const QDBusMessage&) { return QVariantList{7U}; });
  server.answer(QStringLiteral("CloseNotification"), [](const QDBusMessage&) { return QVariantList(); });
  const auto wasAsked = [&](const char* member, std::size_t times) {
    return waitUntil([&] {
      QCoreApplication::processEvents();
      return server.calls(QLatin1String(member)).size() >= times;
    });
  };
  ChildProcess process = spawn();
  bus.waitForName(programName);
  perform(bus, "toggle");
  ASSERT_TRUE(wasAsked("Notify", 1)) << process.output();
  EXPECT_EQ(server.calls(QStringLiteral("Notify"))[0].arguments().at(3),
            QStringLiteral("Protection désactivée"));
  perform(bus, "toggle");
  EXPECT_TRUE(wasAsked("CloseNotification", 1)) << "it is on again";
  perform(bus, "quit");
  EXPECT_EQ(process.waitForExit(seconds(10)), 0);
  EXPECT_TRUE(wasAsked("Notify", 2)) << "nobody else will ever tell";
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

TEST_F(Entry, ArgumentsAreAnsweredInWordsAndAskNobody) {
  const fs::path folder = desktop.runtimeFolder();
  const std::string path = (folder / "silent").string();
  pollfd nobody{.fd = silentSocket(path), .events = POLLIN, .revents = 0};
  Environment session = desktop.environment();
  for (const char* name : {"WAYLAND_DISPLAY", "PIPEWIRE_REMOTE"}) session[name] = path;
  for (const char* name : {"DBUS_SESSION_BUS_ADDRESS", "DBUS_SYSTEM_BUS_ADDRESS"})
    session[name] = "unix:path=" + path;
  session["DISPLAY"] = ":4711";
  Environment nothing = desktop.environment();
  std::erase_if(nothing, [](const auto& entry) { return !entry.first.ends_with("SAN_OPTIONS"); });
  Environment english = session;
  english["LANG"] = "C.UTF-8";
  english["LANGUAGE"] = "de:en:fr";
  const struct {
    std::vector<std::string> arguments;
    const Environment& environment;
    const char* redirection;
    int status;
    std::string out;  // part of it; nothing at all where it is empty
    std::string err;
  } cases[] = {
      {{"--help"}, session, "", 0, "Utilisation\u00A0: sentrel [OPTION]\n", ""},
      {{"--help"}, english, "", 0, "\n  --version  print the version", ""},
      {{"--help"}, nothing, "", 0, "\n  --help     affiche cette aide", ""},
      {{"--version"}, session, "", 0, "sentrel " SENTREL_VERSION "\n", ""},
      {{"--nonsense"}, session, "", 2, "", "sentrel: argument inconnu\u00A0: «\u00A0--nonsense\u00A0»"},
      {{"--service", "--nonsense"}, english, "", 2, "", "“--nonsense”"},
      {{"--help", "nonsense"}, english, "", 2, "", "“nonsense”"},
      {{"-platform", "xcb"}, english, "", 2, "", "“-platform”"},
      {{"\x1b]0;%2\a\xff"}, english, "", 2, "", "“?]0;%2?\uFFFD”"},
      {{"--help"}, session, ">/dev/full", 1, "", "sentrel: No space left on device\n"},
      {{"--version"}, session, ">&-", 1, "", "sentrel: Bad file descriptor\n"},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(testing::PrintToString(given.arguments) + given.redirection);
    const std::string out = (folder / "program.out").string();
    const std::string err = (folder / "program.err").string();
    std::vector<std::string> command{
        "-c", R"(exec "$0" "$@" >)" + out + " 2>" + err + " " + given.redirection, SENTREL_PROGRAM};
    command.insert(command.end(), given.arguments.begin(), given.arguments.end());
    ChildProcess process(
        {.program = "sh", .arguments = command, .environment = given.environment, .log = {}});
    ASSERT_EQ(process.waitForExit(seconds(10)), given.status);
    const auto expectPart = [](const std::string& text, const std::string& part) {
      EXPECT_NE(text.find(part), std::string::npos) << text;
      EXPECT_EQ(text.empty(), part.empty()) << text;
    };
    expectPart(contentOf(out), given.out);
    expectPart(contentOf(err), given.err);
    EXPECT_EQ(poll(&nobody, 1, 0), 0) << "somebody was asked";
  }
}

/// With a display and windows, without a panel, and with a camera: without one nothing is protected.
class EntryWithCamera : public ProgramRun {
 protected:
  EntryWithCamera() : ProgramRun({.pipeWire = true, .x11 = true}) {
    desktop.exportToProcess();
    camera.appear();
  }

  [[nodiscard]] std::string windows() {
    ChildProcess search = desktop.spawn("xdotool", {"search", "--onlyvisible", "--class", "sentrel"});
    // It fails where there are none, and complains of one that goes while it looks.
    return search.waitForExit(seconds(10)) == 0 ? search.output() : std::string();
  }

  BusClient bus{desktop, TestBus::session};
  VirtualCamera camera{{}};
};

TEST_F(EntryWithCamera, ASecondStartOpensThePopoverOfTheFirst) {
  ChildProcess first = spawn();
  bus.waitForName(programName);
  ChildProcess words = desktop.spawn(SENTREL_PROGRAM, {"--help"});
  EXPECT_EQ(words.waitForExit(seconds(10)), 0);
  EXPECT_NE(state(bus), "") << "the first has had its turn";
  EXPECT_EQ(windows(), "");
  ChildProcess second = spawn();
  EXPECT_EQ(second.waitForExit(seconds(10)), 0);
  EXPECT_TRUE(waitUntil([&] { return !windows().empty(); }));
  EXPECT_EQ(owner(bus), first.pid());
}

TEST_F(EntryWithCamera, TheBusStartsItAndOnlyWhatIsAskedIsDone) {
  fs::create_directory(desktop.serviceFolder());
  std::ofstream(desktop.serviceFolder() / "expert.mardeck.sentrel.service")
      << "[D-BUS Service]\nName=expert.mardeck.sentrel\nExec=" << SENTREL_PROGRAM << " --service\n";
  desktop.replaceSessionBus();
  const BusClient asker(desktop, TestBus::session);
  const auto activate = [&] {  // what a login or the desktop's menu ends in
    asker.call(programName, QStringLiteral("/expert/mardeck/sentrel"),
               QStringLiteral("org.freedesktop.Application"), QStringLiteral("Activate"), {QVariantMap()});
  };
  const auto quit = [&] {
    perform(asker, "quit");
    EXPECT_TRUE(waitUntil([&] { return !asker.hasName(programName); }));
  };
  const auto opensCamera = [&] { return waitUntil([&] { return camera.isOpen(); }); };
  const auto opensWindow = [&] { return waitUntil([&] { return !windows().empty(); }); };
  const auto staysClosed = [&] {
    return !waitUntil([&] { return camera.isOpen() || !windows().empty(); }, seconds(1));
  };

  EXPECT_EQ(state(asker), "inactive");
  EXPECT_TRUE(staysClosed()) << "nobody has asked for protection";
  activate();
  EXPECT_TRUE(opensCamera());
  EXPECT_TRUE(opensWindow()) << "there is no panel to show that it runs";
  quit();
  EXPECT_EQ(state(asker), "inactive");
  EXPECT_TRUE(staysClosed()) << "the person has quit";
  perform(asker, "toggle");
  EXPECT_TRUE(opensCamera());
  perform(asker, "toggle");
  EXPECT_TRUE(waitUntil([&] { return !camera.isOpen(); }));
  activate();
  EXPECT_TRUE(opensWindow());
  EXPECT_FALSE(waitUntil([&] { return camera.isOpen(); }, seconds(1))) << "it was switched off";
  quit();
  perform(asker, "toggle");
  EXPECT_TRUE(opensCamera()) << "started in order to be switched on";
  quit();
  perform(asker, "quit");  // it is started again, only to do what it is asked
}

TEST_F(EntryWithCamera, EveryEndCountsTheSessionsSeconds) {
  long counted = 0;
  long sessions = 1;
  for (const int end : {SIGTERM, SIGINT, SIGHUP, 0, SIGKILL, -1}) {
    SCOPED_TRACE(end);
    ChildProcess process = spawn();
    bus.waitForName(programName);
    ASSERT_TRUE(waitUntil([&] { return number("stats_session_count") == sessions; })) << settings();
    ASSERT_TRUE(waitUntil([&] { return state(bus) == "nominal"; })) << process.output();
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
