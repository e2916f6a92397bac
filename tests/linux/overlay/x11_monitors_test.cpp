// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_monitors.h"

#include <gmock/gmock.h>

namespace sentrel {
namespace {

using testing::Eq;
using testing::Optional;

const X11MonitorInfo laptop{"eDP-1", {0, 0, 1920, 1080}, 310, false};
const X11MonitorInfo desk{"DP-1", {1920, 0, 3840, 2160}, 600, true};

TEST(X11Monitors, KeepTheirNumbersWhateverTheirModeAndOrder) {
  X11MonitorInfo turned = desk;
  turned.pixels = {0, 0, 2160, 3840};
  const auto before = arrangeMonitors({laptop, desk}, {});
  const auto after = arrangeMonitors({turned}, {});
  ASSERT_EQ(before.size(), 2U);
  EXPECT_NE(before[0].screen.id, before[1].screen.id);
  EXPECT_EQ(after.at(0).screen.id, before[1].screen.id);
  EXPECT_EQ(after.at(0).pixels, turned.pixels);
}

TEST(X11Monitors, MainIsThePrimaryElseTheFirst) {
  EXPECT_FALSE(arrangeMonitors({laptop, desk}, {})[0].screen.isMain);
  EXPECT_TRUE(arrangeMonitors({laptop, desk}, {})[1].screen.isMain);
  EXPECT_TRUE(arrangeMonitors({laptop}, {})[0].screen.isMain);
  EXPECT_TRUE(arrangeMonitors({}, {}).empty());
}

TEST(X11Monitors, ACopyIsCoveredOnce) {
  const X11MonitorInfo projector{"HDMI-1", {0, 0, 1280, 720}, 0, false};
  X11MonitorInfo twin = laptop;
  twin.name = "HDMI-2";
  twin.primary = true;
  const auto names = [](const std::vector<X11MonitorInfo>& monitors) {
    std::vector<std::string> result;
    for (const X11Monitor& monitor : arrangeMonitors(monitors, {})) result.push_back(monitor.screen.name);
    return result;
  };
  EXPECT_THAT(names({projector, laptop}), testing::ElementsAre("eDP-1"));
  EXPECT_THAT(names({laptop, twin}), testing::ElementsAre("HDMI-2"));
  EXPECT_THAT(names({laptop, desk}), testing::ElementsAre("eDP-1", "DP-1"));
}

TEST(X11Monitors, ScaleComesFromTheDesktopElseFromTheDensity) {
  const struct {
    const char* what;
    int widthMillimetres;
    std::optional<double> dpi;
    double scale;
  } cases[] = {
      {"a setting of 200 %", 600, 192, 2},
      {"a setting of 125 %", 600, 120, 1.25},
      {"a setting a little off", 600, 118, 1.25},
      {"a small setting", 600, 72, 1},
      {"27 inches of 3840 pixels", 600, {}, 1},
      {"15 inches of 3840 pixels", 340, {}, 2},
      {"a broken size", 16, {}, 1},
      {"no size", 0, {}, 1},
      {"13 inches of 3840 pixels", 290, {}, 3},
  };
  for (const auto& [what, millimetres, dpi, scale] : cases) {
    SCOPED_TRACE(what);
    const auto monitors =
        arrangeMonitors({X11MonitorInfo{"DP-1", {1920, 0, 3840, 2160}, millimetres, true}}, dpi);
    EXPECT_EQ(monitors.at(0).scale, scale);
    EXPECT_EQ(monitors.at(0).screen.frame.width, static_cast<int>(3840 / scale + 0.5));
  }
}

TEST(X11Monitors, ReadXftDpi) {
  EXPECT_THAT(parseXftDpi("Xft.antialias:\t1\nXft.dpi:\t144\nXft.rgba:\tnone\n"), Optional(144));
  EXPECT_THAT(parseXftDpi("Xft.dpi: 120.5"), Optional(120.5));
  for (const char* text : {"", "Xft.dpi:", "Xft.dpi: many", "Xft.dpi: 0", "Xft.dpi: -96", "Xft.dpi: 100000",
                           "XXft.dpi: 144", "Xft.dpiX: 144"}) {
    EXPECT_THAT(parseXftDpi(text), Eq(std::nullopt)) << text;
  }
}

}  // namespace
}  // namespace sentrel
