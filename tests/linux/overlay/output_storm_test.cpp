// SPDX-License-Identifier: Apache-2.0
//
// Hundreds of outputs that come and go within tenths of a second, calm and in an alert. Made to be run under
// the sanitizers.
#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QGuiApplication>
#include <QImage>
#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "linux/desktop/qt_main_loop.h"
#include "linux/desktop/system_clock.h"
#include "linux/overlay/create_overlay_backend.h"
#include "linux/overlay/foreign_window.h"
#include "overlay/overlay_window_manager.h"
#include "overlay/retro_pip_manager.h"
#include "stage/headless_desktop.h"

namespace sentrel {
namespace {

constexpr int width = 480;
constexpr int height = 320;
constexpr int cycles = 500;
constexpr std::size_t mostOutputs = 4;

/// How a desktop's outputs come and go.
struct Outputs {
  std::function<void(int number)> add;
  std::function<void(int number)> remove;
  bool firstStays = false;
};

/// The one application of the process; it needs no display of its own.
struct WithApplication {
  WithApplication() {
    static int argumentCount = 1;
    static char name[] = "test";                 // NOLINT(modernize-avoid-c-arrays)
    static char* arguments[] = {name, nullptr};  // NOLINT(modernize-avoid-c-arrays)
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static const QGuiApplication application(argumentCount, arguments);
  }
};

class OutputStorm : public testing::Test, private WithApplication {
 protected:
  explicit OutputStorm(const test::HeadlessDesktop::Options& options) : desktop(options) {
    desktop.exportToProcess();
    backend = createOverlayBackend(*loop);
    manager = std::make_unique<OverlayWindowManager>(backend, loop, clock);
    retro = std::make_unique<RetroPiPManager>(backend, loop, clock);
  }

  void rage(const Outputs& outputs) {
    manager->currentAlpha = 0.75F;
    manager->show();
    for (int step = 0; step < 2 * cycles; ++step) {
      const bool adds = numbers.size() == 1 || (numbers.size() < mostOutputs && chance(2));
      if (adds) {
        numbers.push_back(nextNumber++);
        outputs.add(numbers.back());
      } else {
        const std::size_t first = outputs.firstStays ? 1 : 0;
        std::swap(numbers[first + random() % (numbers.size() - first)], numbers.back());
        outputs.remove(numbers.back());
        numbers.pop_back();
      }
      if (chance(10)) toggleAlert();
      run(10 + static_cast<int>(random() % 191));
      if (step % 50 != 49) continue;
      ASSERT_TRUE(eventually([this] { return everyOutputIsCovered(); })) << step;
    }
    manager->isAlertMode = false;
    retro->hide();
    manager->hide();
    EXPECT_TRUE(eventually([this] { return nothingIsLeft(); }));
  }

  test::HeadlessDesktop desktop;
  std::vector<int> numbers{1};  // of the outputs that are there

 private:
  bool chance(unsigned in) { return random() % in == 0; }

  void toggleAlert() {
    manager->isAlertMode = !manager->isAlertMode;
    if (manager->isAlertMode) {
      retro->openWindow();
    } else {
      retro->hide();
    }
  }

  void run(int milliseconds) const {
    QEventLoop events;
    const Registration end = loop->after(milliseconds, [&events] { events.quit(); });
    events.exec();
  }
  template <class Condition>
  [[nodiscard]] bool eventually(Condition condition) {
    for (int i = 0; i < 100; ++i) {
      if (condition()) return true;
      run(100);
    }
    return false;
  }

  QImage screenshot() {
    desktop.screenshot(desktop.home() / "screen.png");
    return QImage(QString::fromStdString((desktop.home() / "screen.png").string()));
  }
  static double meanGrey(const QImage& image, const QPoint& at) {
    double sum = 0;
    for (int y = 0; y < 40; ++y) {
      for (int x = 0; x < 40; ++x) sum += qGray(image.pixel(at + QPoint(x, y)));
    }
    return sum / 1600;
  }
  /// The mean greys in the upper left of every screen, or none where the picture is of another arrangement.
  std::vector<double> greys() {
    const auto screens = backend->screens();
    if (screens.size() != numbers.size()) return {};
    int left = screens.front().frame.x;
    int right = left;
    for (const Screen& screen : screens) {
      left = std::min(left, screen.frame.x);
      right = std::max(right, screen.frame.x + screen.frame.width);
    }
    const QImage image = screenshot();
    if (image.width() < right - left) return {};
    std::vector<double> result;
    for (const Screen& screen : screens) result.push_back(meanGrey(image, {screen.frame.x - left + 50, 50}));
    return result;
  }
  bool everyOutputIsCovered() {
    const auto found = greys();
    const bool alert = manager->isAlertMode;
    return !found.empty() && std::ranges::all_of(found, [alert](double grey) {
      return alert ? grey < 100 : grey > 190 && grey < 235;
    });
  }
  bool nothingIsLeft() {
    const auto found = greys();
    return !found.empty() && std::ranges::all_of(found, [](double grey) { return grey > 250; });
  }

  std::minstd_rand random{20261121};
  int nextNumber = 2;
  std::shared_ptr<QtMainLoop> loop = std::make_shared<QtMainLoop>();
  std::shared_ptr<SystemClock> clock = std::make_shared<SystemClock>();
  std::shared_ptr<OverlayBackend> backend;
  std::unique_ptr<OverlayWindowManager> manager;
  std::unique_ptr<RetroPiPManager> retro;
};

class WaylandOutputStorm : public OutputStorm {
 protected:
  WaylandOutputStorm()
      : OutputStorm({.x11 = true,
                     .windowManager = false,
                     .compositor = false,
                     .sway = true,
                     .width = width,
                     .height = height}) {}
};

TEST_F(WaylandOutputStorm, LongHundredsComeAndGo) {
  rage({.add = [this](int) { desktop.run("swaymsg", {"create_output"}); },
        .remove = [this](int number) { desktop.removeOutput("X11-" + std::to_string(number)); }});
}

class X11OutputStorm : public OutputStorm {
 protected:
  X11OutputStorm()
      : OutputStorm({.x11 = true, .width = width * static_cast<int>(mostOutputs), .height = height}) {
    arrange(0, 1);
  }

  /// One monitor takes the place that no other has.
  void arrange(std::size_t place, int number) {
    places.at(place) = number;
    desktop.run("xrandr", {"--setmonitor", "m" + std::to_string(number),
                           std::to_string(width) + "/127x" + std::to_string(height) + "/85+" +
                               std::to_string(width * static_cast<int>(place)) + "+0",
                           number == 1 ? "screen" : "none"});
  }
  std::size_t placeOf(int number) const {
    return static_cast<std::size_t>(std::ranges::find(places, number) - places.begin());
  }

  std::vector<int> places = std::vector<int>(mostOutputs, 0);
  test::ForeignWindow white{{.display = desktop.environment().at("DISPLAY"),
                             .pixels = {0, 0, width* static_cast<int>(mostOutputs), height}}};
};

TEST_F(X11OutputStorm, LongHundredsComeAndGo) {
  rage({.add = [this](int number) { arrange(placeOf(0), number); },
        .remove =
            [this](int number) {
              desktop.run("xrandr", {"--delmonitor", "m" + std::to_string(number)});
              places.at(placeOf(number)) = 0;
            },
        // Without it the server gives its output back a monitor of its own, over all others.
        .firstStays = true});
}

}  // namespace
}  // namespace sentrel
