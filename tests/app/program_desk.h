// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <string>

#include "app/program_run.h"
#include "stage/pictures.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {

using namespace Qt::StringLiterals;

/// The program itself on a private desktop, before a virtual camera that sees its user, alone or watched. The
/// person has agreed to the camera long ago.
class ProgramDesk : public ProgramRun {
 protected:
  ProgramDesk() : ProgramDesk({.systemBus = true, .pipeWire = true, .x11 = true}) {}
  explicit ProgramDesk(const HeadlessDesktop::Options& options) : ProgramRun(options) {
    desktop.exportToProcess();  // the camera is in this process
    camera.appear();
    desktop.waitForNode("virtual_camera");
    camera.setSource([this](std::int64_t) { return (isWatched ? watched : alone).constBits(); });
  }
  void start() {
    process = desktop.spawn(SENTREL_PROGRAM);
    session.sessionBus().waitForName(programName);
  }
  void perform(const char* action) const { ProgramRun::perform(session.sessionBus(), action); }
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

  MockSession session{desktop};
  const PortraitScene portrait;
  const QImage alone = portrait.frame({});
  const QImage watched = portrait.frame({.secondFace = SecondFace{}});
  std::atomic<bool> isWatched = false;
  VirtualCamera camera{{}};
  ChildProcess process;
};

}  // namespace sentrel::test
