// SPDX-License-Identifier: Apache-2.0
#include "stage/headless_desktop.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>

#include "stage/wait_until.h"

namespace sentrel::test {
namespace {

namespace fs = std::filesystem;

bool processLives(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(status, text);
  const auto afterName = text.rfind(')');
  return afterName != std::string::npos && text.at(afterName + 2) != 'Z';
}

TEST(HeadlessDesktop, EveryPartServesAndGoesAndComesBack) {
  fs::path folder;
  {
    const auto begin = std::chrono::steady_clock::now();
    HeadlessDesktop desktop(
        {.sessionBus = true, .systemBus = true, .pipeWire = true, .x11 = true, .width = 800, .height = 600});
    const auto ready = std::chrono::steady_clock::now() - begin;
    std::cout << "ready after " << std::chrono::duration_cast<std::chrono::milliseconds>(ready) << '\n';
    folder = desktop.home().parent_path();

    const std::vector<std::string> askBus{"--print-reply", "--dest=org.freedesktop.DBus", "/",
                                          "org.freedesktop.DBus.ListActivatableNames"};
    for (const char* bus : {"--session", "--system"}) {
      auto arguments = askBus;
      arguments.insert(arguments.begin(), bus);
      const std::string names = desktop.run("dbus-send", arguments);
      EXPECT_EQ(names.find("Notifications"), std::string::npos)
          << "an installed service could stand in for ours";
    }
    EXPECT_NE(desktop.run("xdpyinfo").find("800x600 pixels"), std::string::npos);
    EXPECT_NE(desktop.run("xrandr").find("screen connected"), std::string::npos);
    EXPECT_NE(desktop.run("xprop", {"-root", "_NET_SUPPORTING_WM_CHECK"}).find("window id"),
              std::string::npos);
    desktop.screenshot(folder / "screen.png");
    EXPECT_EQ(desktop.run("identify", {"-format", "%wx%h", (folder / "screen.png").string()}), "800x600");

    // A node of another program is seen, links are the session manager's work, and its going is noticed.
    ChildProcess camera = desktop.spawn(
        "gst-launch-1.0",
        {"videotestsrc", "is-live=true", "!", "video/x-raw,format=YUY2,width=64,height=48,framerate=30/1",
         "!", "pipewiresink", "mode=provide",
         "stream-properties=p,media.class=Video/Source,media.role=Camera,node.name=smoke"});
    desktop.waitForNode("smoke");
    desktop.stopPicom();
    desktop.startPicom();
    desktop.killPipeWire();
    EXPECT_THROW(desktop.run("pw-cli", {"ls"}), std::runtime_error);
    desktop.startPipeWire();
    EXPECT_FALSE(desktop.hasNode("smoke"));
    desktop.killX();
    EXPECT_THROW(desktop.run("xdpyinfo"), std::runtime_error);
    desktop.startX();
    EXPECT_NE(desktop.run("xdpyinfo").find("800x600 pixels"), std::string::npos);

    const std::string former = ::getenv("HOME");
    desktop.exportToProcess();
    EXPECT_EQ(::getenv("HOME"), desktop.home());
    EXPECT_NE(former, desktop.home());
  }
  EXPECT_FALSE(fs::exists(folder));
  EXPECT_NE(::getenv("HOME"), folder / "home");
}

TEST(HeadlessDesktop, WhatIsNotChosenIsOutOfReach) {
  ::setenv("DISPLAY", ":0", 1);
  ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/run/user/1000/bus", 1);
  HeadlessDesktop desktop({.sessionBus = false});
  EXPECT_EQ(desktop.environment().count("DISPLAY"), 0U);
  EXPECT_THROW(desktop.run("dbus-send", {"--session", "--print-reply", "--dest=org.freedesktop.DBus", "/",
                                         "org.freedesktop.DBus.ListNames"}),
               std::runtime_error);
  EXPECT_THROW(desktop.run("pw-cli", {"ls"}), std::runtime_error);
  EXPECT_THROW(desktop.spawn("no-such-program"), std::runtime_error);
}

TEST(HeadlessDesktop, NothingIsLeftBehindWhenItsProcessIsKilled) {
  const fs::path report = fs::temp_directory_path() / ("sentrel-child-" + std::to_string(::getpid()));
  const pid_t crashing = ::fork();
  if (crashing == 0) {
    HeadlessDesktop desktop({});
    const ChildProcess child = desktop.spawn("sleep", {"1000"});
    std::ofstream(report.string() + ".part") << child.pid() << ' ' << desktop.home().parent_path().string();
    fs::rename(report.string() + ".part", report);
    ::pause();
  }
  ASSERT_TRUE(waitUntil([&] { return fs::exists(report); }));
  pid_t orphan = 0;
  std::string folder;
  std::ifstream(report) >> orphan >> folder;
  ASSERT_TRUE(processLives(orphan));
  ::kill(crashing, SIGKILL);
  ::waitpid(crashing, nullptr, 0);
  EXPECT_TRUE(waitUntil([&] { return !processLives(orphan); }));
  fs::remove(report);
  fs::remove_all(folder);
}

}  // namespace
}  // namespace sentrel::test
