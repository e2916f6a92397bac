// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_desktop.h"

#include <gmock/gmock.h>

namespace sentrel {
namespace {

using Monitors = std::vector<X11MonitorInfo>;

const X11MonitorInfo laptop{"eDP-1", {0, 0, 1920, 1080}, 310, false};
const X11MonitorInfo desk{"DP-1", {1920, 0, 3840, 2160}, 600, true};

TEST(X11Monitors, KeepTheirNumbersAndCopiesAreLeftOut) {
  X11MonitorInfo turned = desk;
  turned.pixels = {0, 0, 2160, 3840};
  EXPECT_EQ(arrangeMonitors({turned}, {})[0].screen.id, arrangeMonitors({laptop, desk}, {})[1].screen.id);
  X11MonitorInfo twin = laptop;
  twin.name = "HDMI-2";
  twin.primary = true;
  const X11MonitorInfo projector{"HDMI-1", {0, 0, 1280, 720}, 0, false};
  const struct {
    Monitors monitors;
    std::vector<std::string> names;  // the main one's with a star
  } cases[] = {{{}, {}},
               {{laptop, desk}, {"eDP-1", "DP-1*"}},
               {{projector, laptop}, {"eDP-1*"}},
               {{laptop, twin}, {"HDMI-2*"}}};
  for (const auto& [monitors, names] : cases) {
    std::vector<std::string> found;
    for (const X11Monitor& monitor : arrangeMonitors(monitors, {}))
      found.push_back(monitor.screen.name + (monitor.screen.isMain ? "*" : ""));
    EXPECT_EQ(found, names);
  }
}

TEST(X11Monitors, ScaleComesFromTheDesktopElseFromTheDensity) {
  const struct {
    const char* resources;
    int widthMillimetres;
    double scale;
  } cases[] = {{"Xft.antialias:\t1\nXft.dpi:\t192\nXft.rgba:\tnone\n", 600, 2},
               {"Xft.dpi: 118.5", 600, 1.25},
               {"", 600, 1},
               {"", 340, 2},
               {"", 290, 3},
               {"", 0, 1},
               {"Xft.dpi: 100000", 340, 2},
               {"XXft.dpi: 144\nXft.dpiX: 144", 340, 2}};
  for (const auto& [resources, millimetres, scale] : cases) {
    X11MonitorInfo monitor = desk;
    monitor.widthMillimetres = millimetres;
    const X11Monitor arranged = arrangeMonitors({monitor}, parseXftDpi(resources)).at(0);
    EXPECT_EQ(arranged.scale, scale) << resources << ", " << millimetres;
    EXPECT_EQ(arranged.screen.frame.width, static_cast<int>(3840 / scale + 0.5));
  }
}

}  // namespace
}  // namespace sentrel
