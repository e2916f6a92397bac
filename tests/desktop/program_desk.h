// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include <QCoreApplication>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include "stage/bus_doubles.h"
#include "stage/headless_desktop.h"
#include "stage/pictures.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {

using namespace Qt::StringLiterals;

inline const auto program = u"expert.mardeck.sentrel"_s;
inline const auto objectPath = u"/expert/mardeck/sentrel"_s;

/// The program itself on a private desktop, before a virtual camera that sees its user, alone or watched.
class ProgramDesk : public testing::Test {
 protected:
  ProgramDesk() : ProgramDesk({.systemBus = true, .pipeWire = true, .x11 = true}) {}
  explicit ProgramDesk(const HeadlessDesktop::Options& options) : desktop(options) {
    desktop.exportToProcess();  // the camera is in this process
    camera.appear();
    desktop.waitForNode("virtual_camera");
    camera.setSource([this](std::int64_t) { return (isWatched ? watched : alone).constBits(); });
  }
  void start() {
    process = desktop.spawn(SENTREL_PROGRAM);
    session.sessionBus().waitForName(program);
  }
  void perform(const char* action) const {
    session.sessionBus().call(program, objectPath, u"org.freedesktop.Application"_s, u"ActivateAction"_s,
                              {QString::fromLatin1(action), QVariantList(), QVariantMap()});
  }
  [[nodiscard]] std::filesystem::path settingsPath() const {
    return desktop.configFolder() / "sentrel" / "defaults.json";
  }
  void writeSettings(const std::string& text) const {
    std::filesystem::create_directories(settingsPath().parent_path());
    std::ofstream(settingsPath()) << text;
  }
  /// The person has agreed to the camera long ago.
  void completeOnboarding() const { writeSettings("{\n  \"has_completed_onboarding\": true\n}\n"); }
  [[nodiscard]] std::string settings() const {
    std::ifstream file(settingsPath());
    return {std::istreambuf_iterator<char>(file), {}};
  }
  [[nodiscard]] bool isCovered() {
    return desktop.run("xwininfo", {"-root", "-children"}).find("1920x1080+0+0") != std::string::npos;
  }
  /// Waits while the services that the test offers itself answer.
  [[nodiscard]] static bool eventually(const std::function<bool()>& condition,
                                       std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    return waitUntil(
        [&] {
          QCoreApplication::processEvents();
          return condition();
        },
        limit, std::chrono::milliseconds(20));
  }
  void press(const std::string& key) { desktop.run("xdotool", {"key", "--clearmodifiers", key}); }
  void expectGoodEnd() { EXPECT_EQ(process.waitForExit(std::chrono::seconds(10)), 0) << process.output(); }
  /// SIGTERM, as a session's end.
  void terminate() {
    process.signal(SIGTERM);
    expectGoodEnd();
  }

  int argumentCount = 1;
  char name_[5] = "test";
  char* arguments[2] = {name_, nullptr};
  QCoreApplication application{argumentCount, arguments};
  HeadlessDesktop desktop;
  MockSession session{desktop};
  const PortraitScene portrait;
  const QImage alone = portrait.frame({});
  const QImage watched = portrait.frame({.secondFace = SecondFace{}});
  std::atomic<bool> isWatched = false;
  VirtualCamera camera{{}};
  ChildProcess process;
};

}  // namespace sentrel::test
