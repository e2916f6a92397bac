// SPDX-License-Identifier: Apache-2.0
//
// Hundreds of screens that come and go within tenths of a second, calm and in an alert. Made to be run under
// the sanitizers.
#include <gmock/gmock.h>

#include <QEventLoop>
#include <algorithm>
#include <random>

#include "linux/desktop/system_clock.h"
#include "linux/overlay/overlay_desktop.h"
#include "overlay/overlay_window_manager.h"
#include "overlay/retro_pip_manager.h"

namespace sentrel {
namespace {

constexpr int width = 480;
constexpr int cycles = 500;
constexpr int mostScreens = 4;

class OutputStorm : public testing::TestWithParam<test::Server>, protected test::OverlayDesktop {
 protected:
  OutputStorm()
      : OverlayDesktop({.server = GetParam(), .width = width, .height = 320, .mostScreens = mostScreens}) {}

  bool chance(unsigned in) { return random() % in == 0; }

  void toggleAlert() {
    manager.isAlertMode = !manager.isAlertMode;
    manager.isAlertMode ? retro.openWindow() : retro.hide();
  }

  void run(int milliseconds) const {
    QEventLoop events;
    const Registration end = loop->after(milliseconds, [&events] { events.quit(); });
    events.exec();
  }

  /// Whether the mean grey in the upper left of every screen is between these.
  bool everyScreenIs(double least, double most) {
    const auto screens = backend->screens();
    if (screens.size() != screenCount()) return false;
    int left = screens.front().frame.x;
    int right = left;
    for (const Screen& screen : screens) {
      left = std::min(left, screen.frame.x);
      right = std::max(right, screen.frame.x + screen.frame.width);
    }
    const QImage image = screenshot();
    if (image.width() < right - left) return false;
    return std::ranges::all_of(screens, [&](const Screen& screen) {
      double sum = 0;
      for (int i = 0; i < 1600; ++i)
        sum += qGray(image.pixel(screen.frame.x - left + 100 + i % 40, 100 + i / 40));
      return sum / 1600 >= least && sum / 1600 <= most;
    });
  }

  std::minstd_rand random{20261121};
  std::shared_ptr<SystemClock> clock = std::make_shared<SystemClock>();
  std::shared_ptr<OverlayWindowManager> overlay =
      std::make_shared<OverlayWindowManager>(backend, loop, clock);
  OverlayWindowManager& manager = *overlay;
  RetroPiPManager retro{overlay, loop, clock};
};
INSTANTIATE_TEST_SUITE_P(Servers, OutputStorm, testing::Values(test::Server::x11, test::Server::wayland),
                         testing::PrintToStringParamName());

TEST_P(OutputStorm, LongHundredsComeAndGo) {
  manager.currentAlpha = 0.75F;
  manager.show();
  for (int step = 0; step < 2 * cycles; ++step) {
    if (screenCount() == 1 || (screenCount() < mostScreens && chance(2))) {
      addScreen();
    } else {
      const std::size_t first = GetParam() == test::Server::x11 ? 1 : 0;
      removeScreen(first + random() % (screenCount() - first));
    }
    if (chance(10)) toggleAlert();
    run(10 + static_cast<int>(random() % 191));
    if (step % 50 != 49) continue;
    ASSERT_TRUE(eventually([&] {
      return manager.isAlertMode ? everyScreenIs(0, 100) : everyScreenIs(190, 235);
    })) << step;
  }
  if (manager.isAlertMode) toggleAlert();
  manager.hide();
  EXPECT_TRUE(eventually([&] { return everyScreenIs(250, 255); }));
}

}  // namespace
}  // namespace sentrel
