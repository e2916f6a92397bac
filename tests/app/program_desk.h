// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusVariant>
#include <QJsonDocument>
#include <atomic>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include "stage/bus_doubles.h"
#include "stage/pictures.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using namespace Qt::StringLiterals;

inline std::string contentOf(const fs::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

const auto programName = u"expert.mardeck.sentrel"_s;
const auto programPath = u"/expert/mardeck/sentrel"_s;

/// A desktop on which the program is started, asked and ended.
struct ProgramRun : testing::Test {
  explicit ProgramRun(const HeadlessDesktop::Options& options) : desktop(options) {
    fs::create_directories(settingsFolder());
    std::ofstream(settingsFolder() / "defaults.json")
        << "{\n  \"filter_strength\": 5,\n  \"has_completed_onboarding\": true\n}\n";
  }

  [[nodiscard]] fs::path settingsFolder() const { return desktop.configFolder() / "sentrel"; }
  [[nodiscard]] std::string settings() const { return contentOf(settingsFolder() / "defaults.json"); }
  /// The whole number under a key; -1 where there is none, or the file is damaged.
  [[nodiscard]] qint64 number(const char* key) const {
    const auto document = QJsonDocument::fromJson(QByteArray::fromStdString(settings()));
    return document[QLatin1String(key)].toInteger(-1);
  }

  /// Starts it with changes of its environment, as `env` takes them.
  [[nodiscard]] ChildProcess spawn(std::vector<std::string> changes = {}) {
    changes.emplace_back(SENTREL_PROGRAM);
    return desktop.spawn("env", changes);
  }

  /// Waits until it has the program's name.
  [[nodiscard]] bool owns(const ChildProcess& process) {
    return waitUntil([&] { return owner() == process.pid(); });
  }
  /// SIGTERM, as at a session's end.
  static void terminate(ChildProcess& process) {
    process.signal(SIGTERM);
    EXPECT_EQ(process.waitForExit(seconds(10)), 0) << process.output();
  }

  /// A command that has ended.
  struct Said {
    int status = 0;
    std::string out;
    std::string err;
  };
  /// Runs the program as a command, from any thread. What `redirection` says is the shell's.
  [[nodiscard]] Said say(const std::vector<std::string>& words, const Environment& environment,
                         const std::string& redirection = "") {
    const std::string log = (desktop.runtimeFolder() / ("said." + std::to_string(spawned_++))).string();
    std::vector<std::string> shell{
        "-c", R"(exec "$0" "$@" >)" + log + ".out 2>" + log + ".err " + redirection, SENTREL_PROGRAM};
    shell.insert(shell.end(), words.begin(), words.end());
    ChildProcess command({.program = "sh", .arguments = shell, .environment = environment, .log = {}});
    const int status = command.waitForExit(seconds(20)).value_or(-1);
    return {status, contentOf(log + ".out"), contentOf(log + ".err")};
  }
  [[nodiscard]] Said say(const std::vector<std::string>& words) { return say(words, desktop.environment()); }

  /// A new session bus at the same address.
  void replaceBus() {
    desktop.replaceSessionBus();
    bus.emplace(desktop, TestBus::session);
  }
  void perform(const char* action) const {
    bus->call(programName, programPath, u"org.freedesktop.Application"_s, u"ActivateAction"_s,
              {QString::fromLatin1(action), QVariantList(), QVariantMap()});
  }
  /// One of the program's own on the bus.
  [[nodiscard]] QVariant property(const QString& name) const {
    const QDBusMessage reply = bus->call(programName, programPath, u"org.freedesktop.DBus.Properties"_s,
                                         u"Get"_s, {u"expert.mardeck.sentrel1"_s, name});
    return reply.arguments().constFirst().value<QDBusVariant>().variant();
  }
  /// Empty where it does not tell.
  [[nodiscard]] std::string state() const {
    try {
      return property(u"State"_s).toString().toStdString();
    } catch (const std::exception&) {
      return {};
    }
  }
  [[nodiscard]] bool becomes(const std::string& wanted, milliseconds limit = seconds(20)) const {
    return waitUntil([&] { return state() == wanted; }, limit, milliseconds(20));
  }
  /// The process that owns the program's name.
  [[nodiscard]] pid_t owner() {
    const QDBusReply<uint> reply = bus->handle().interface()->servicePid(programName);
    return reply.isValid() ? static_cast<pid_t>(reply.value()) : 0;
  }

  int argumentCount = 1;
  QCoreApplication application{argumentCount, &program_invocation_name};
  HeadlessDesktop desktop;
  std::optional<BusClient> bus{std::in_place, desktop, TestBus::session};
  std::atomic<int> spawned_ = 0;
};

/// The program itself on a private desktop, before a virtual camera that sees its user, alone or watched. The
/// person has agreed to the camera long ago.
struct ProgramDesk : ProgramRun {
  ProgramDesk() : ProgramDesk({.systemBus = true, .pipeWire = true, .x11 = true}) {}
  explicit ProgramDesk(const HeadlessDesktop::Options& options) : ProgramRun(options) {
    desktop.exportToProcess();  // the camera is in this process
    camera.appear();
    desktop.waitForNode("virtual_camera");
    camera.setSource([this](std::int64_t) { return (isWatched ? watched : alone).constBits(); });
  }
  void start() {
    process = spawn();
    bus->waitForName(programName);
  }
  void startProtecting() {
    start();
    ASSERT_TRUE(becomes("nominal")) << process.output();
    ASSERT_TRUE(cameraIs(true));
  }
  [[nodiscard]] bool cameraIs(bool open) const {
    return waitUntil([&] { return camera.isOpen() == open; }, seconds(20), milliseconds(1));
  }
  [[nodiscard]] bool isCovered() {
    return desktop.run("xwininfo", {"-root", "-children"}).find("1920x1080+0+0") != std::string::npos;
  }
  /// Waits while the services that the test offers itself answer.
  [[nodiscard]] static bool eventually(const std::function<bool()>& condition,
                                       milliseconds limit = seconds(20)) {
    return waitUntil(
        [&] {
          QCoreApplication::processEvents();
          return condition();
        },
        limit, milliseconds(20));
  }
  void press(const std::string& key) { desktop.run("xdotool", {"key", "--clearmodifiers", key}); }
  void expectGoodEnd() { EXPECT_EQ(process.waitForExit(seconds(10)), 0) << process.output(); }
  void terminate() { ProgramRun::terminate(process); }

  MockSession session{desktop};
  const PortraitScene portrait;
  const QImage alone = portrait.frame({});
  const QImage watched = portrait.frame({.secondFace = SecondFace{}});
  std::atomic<bool> isWatched = false;
  VirtualCamera camera{{}};
  ChildProcess process;
};

}  // namespace sentrel::test
