// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "stage/bus_doubles.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {

/// A screen that is shared, as GNOME does it, and a program that gets its pictures: a real stream from this
/// process, which plays the desktop's shell, until it goes. Needs the session bus and PipeWire.
class SharedScreen {
 public:
  explicit SharedScreen(HeadlessDesktop& desktop)
      : shell_(desktop, TestBus::session, QStringLiteral("org.gnome.Mutter.ScreenCast")) {
    screen_.appear();
    reader_ = desktop.spawn("gst-launch-1.0", {"-q", "pipewiresrc", "target-object=screen", "!",
                                               "video/x-raw", "!", "fakesink", "sync=false"});
  }
  ~SharedScreen() {
    reader_.kill();
    screen_.vanish();
  }
  SharedScreen(const SharedScreen&) = delete;
  SharedScreen& operator=(const SharedScreen&) = delete;

 private:
  const BusDouble shell_;
  VirtualCamera screen_{{.name = "screen", .mediaClass = "Stream/Output/Video", .role = ""}};
  ChildProcess reader_;
};

}  // namespace sentrel::test
