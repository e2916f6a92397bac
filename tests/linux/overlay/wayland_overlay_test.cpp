// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_overlay_backend.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <QCoreApplication>
#include <QGuiApplication>
#include <QImage>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <string>

#include "linux/desktop/qt_main_loop.h"
#include "linux/overlay/create_overlay_backend.h"
#include "linux/overlay/stripe_reference.h"
#include "stage/headless_desktop.h"
#include "stage/wait_until.h"

namespace sentrel {
namespace {

constexpr int width = 1024;
constexpr int height = 640;
constexpr StripePattern darkStripes{11.3137, 0x000000, 0.42, 1};

OverlayScene nominalScene() {
  return {.stripes = darkStripes, .shortcutInHint = true};
}
OverlayScene alertScene() {
  return {.stripes = darkStripes, .veilAlpha = 0.7, .banner = true, .shortcutInHint = true};
}

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

class WaylandOverlayTest : public testing::Test, private WithApplication {
 protected:
  /// With `pointer` the compositor lives in windows of an X server: there it has a pointer, and outputs can
  /// go.
  explicit WaylandOverlayTest(bool pointer = false)
      : desktop({.x11 = pointer,
                 .windowManager = false,
                 .compositor = false,
                 .sway = true,
                 .width = width,
                 .height = height}) {
    desktop.exportToProcess();
    backend = createOverlayBackend(loop);
  }

  void cover(const OverlayScene& scene) {
    ASSERT_NE(dynamic_cast<WaylandOverlayBackend*>(backend.get()), nullptr);
    ASSERT_EQ(backend->limitation(), "");
    surface = backend->createSurface(backend->screens().at(0));
    surface->present(scene);
  }

  void sway(const std::string& command) { desktop.run("swaymsg", {command}); }

  QImage screenshot() {
    const std::filesystem::path file = desktop.home() / "screen.png";
    desktop.screenshot(file);
    return QImage(QString::fromStdString(file.string()));
  }

  /// Runs the event loop until the condition holds.
  template <class Condition>
  [[nodiscard]] bool eventually(Condition&& condition) {
    return test::waitUntil([&] {
      QCoreApplication::processEvents();
      return condition();
    });
  }
  [[nodiscard]] bool eventuallyGrey(QPoint at, double grey) {
    return eventually([&] { return std::abs(qRed(screenshot().pixel(at)) - grey) <= 2; });
  }
  /// Runs the event loop until every sampled pixel is white under these stripes on a screen of this size.
  [[nodiscard]] bool eventuallyStriped(int columns, int rows, double scale, double veil = 0) {
    return eventually([&] {
      const QImage image = screenshot();
      if (image.width() != columns || image.height() != rows) return false;
      for (int i = 0; i < 200; ++i) {
        const QPoint at((i * 131) % columns, 40 + (i * 37) % (rows / 2));
        const double stripe =
            0.42 * test::sampledStripeCoverage(columns, rows, scale, darkStripes.period, at.x(), at.y());
        if (std::abs(qRed(image.pixel(at)) - 255 * (1 - stripe) * (1 - veil)) > 3) return false;
      }
      return true;
    });
  }

  /// The picture-in-picture of a wide, flat grey.
  [[nodiscard]] std::unique_ptr<RetroSurface> showRetro() const {
    auto retro = backend->createRetroSurface();
    retro->present(std::make_shared<GreyPicture>(GreyPicture{4, 3, std::vector<std::uint8_t>(12, 200)}));
    return retro;
  }
  [[nodiscard]] bool eventuallyRetro(QPoint at) {
    return eventually([&] { return screenshot().pixel(at) == 0xFF24C838; });
  }

  test::HeadlessDesktop desktop;
  QtMainLoop loop;
  std::unique_ptr<OverlayBackend> backend;
  std::unique_ptr<OverlaySurface> surface;

  static constexpr QPoint onBanner{width / 2 - 165, height - 80 - 49};
  /// Between two scan lines of the picture-in-picture, and on its dot.
  static constexpr QPoint onRetro{width - 20 - 128, height - 80 - 192 + 98};
  static constexpr QPoint onDot{width - 20 - 256 + 10, height - 80 - 192 + 11};
};

TEST_F(WaylandOverlayTest, CoversAlertsAndGoes) {
  cover(nominalScene());
  ASSERT_TRUE(eventuallyStriped(width, height, 1));
  surface->present(alertScene());
  EXPECT_TRUE(eventually([&] { return qRed(screenshot().pixel(onBanner)) > 170; }));
  ASSERT_TRUE(eventuallyStriped(width, height, 1, 0.7));
  const double untinted = qRed(screenshot().pixel(100, 100));
  for (const TintLevel level : {5, 26, 13}) {
    surface->setTint(level);
    EXPECT_TRUE(eventuallyGrey({100, 100}, untinted * (1 - level / 255.0) + level)) << level;
  }
  surface->setTint(0);
  ASSERT_TRUE(eventuallyStriped(width, height, 1, 0.7));
  surface.reset();
  ASSERT_TRUE(eventuallyGrey({100, 100}, 255));
}

TEST_F(WaylandOverlayTest, FollowsModeScaleAndTurn) {
  cover(nominalScene());
  ASSERT_TRUE(eventuallyStriped(width, height, 1));
  const std::uint64_t id = backend->screens().at(0).id;
  sway("output HEADLESS-1 scale 2");
  EXPECT_TRUE(eventuallyStriped(width, height, 2));
  sway("output HEADLESS-1 mode --custom 1280x720 scale 1.25");
  EXPECT_TRUE(eventuallyStriped(1280, 720, 1.25));
  sway("output HEADLESS-1 transform 90");
  EXPECT_TRUE(eventuallyStriped(720, 1280, 1.25));
  EXPECT_EQ(backend->screens().at(0), (Screen{id, "HEADLESS-1", {0, 0, 576, 1024}, true}));
}

TEST_F(WaylandOverlayTest, PictureLiesAboveAllAndGoes) {
  const auto retro = showRetro();
  cover(alertScene());
  surface->setTint(26);
  EXPECT_TRUE(eventuallyRetro(onRetro)) << "neither striped nor tinted, though the cover came later";
  retro->setBlink(brightestBlink);
  EXPECT_TRUE(eventually([&] { return screenshot().pixel(onDot) == 0xFF2EFF47; }));
  retro->setBlink(0);
  EXPECT_TRUE(eventually([&] { return qRed(screenshot().pixel(onDot)) < 40; }));
  retro->present(nullptr);
  EXPECT_TRUE(eventually([&] { return screenshot().pixel(onRetro) == 0xFF000000; }));
  auto next = showRetro();
  EXPECT_TRUE(eventuallyRetro(onRetro));
  surface->setTint(0);
  next.reset();
  EXPECT_TRUE(eventuallyStriped(width, height, 1, 0.7));
}

TEST_F(WaylandOverlayTest, CompositorThatDiesIsWaitedFor) {
  cover(alertScene());
  ASSERT_TRUE(eventuallyStriped(width, height, 1, 0.7));
  int limitations = 0;
  const Registration changes = backend->limitationChanged.connect([&] { ++limitations; });
  const std::uint64_t id = backend->screens().at(0).id;
  desktop.killSway();
  ASSERT_TRUE(eventually([&] { return backend->limitation() == "error_no_overlay"; }));
  EXPECT_TRUE(backend->screens().empty());
  surface->setTint(5);
  surface->present(nominalScene());
  surface->setTint(0);
  desktop.startSway();
  ASSERT_TRUE(eventually([&] { return !backend->screens().empty(); }));
  EXPECT_EQ(backend->screens().at(0).id, id);
  EXPECT_EQ(limitations, 2);
  EXPECT_TRUE(eventuallyStriped(width, height, 1)) << "the surface that was kept shows again";
}

TEST_F(WaylandOverlayTest, ExhaustedMemoryDelaysTheCoverAndNeverKeepsIt) {
  cover(nominalScene());
  ASSERT_TRUE(eventuallyStriped(width, height, 1));
  rlimit former{};
  getrlimit(RLIMIT_NOFILE, &former);
  const rlimit exhausted{3, former.rlim_max};
  const auto presentExhausted = [&](const OverlayScene& scene) {
    setrlimit(RLIMIT_NOFILE, &exhausted);
    surface->present(scene);
    setrlimit(RLIMIT_NOFILE, &former);
  };
  presentExhausted({.stripes = darkStripes, .veilAlpha = 0.7});
  EXPECT_TRUE(eventuallyStriped(width, height, 1, 0.7)) << "once there is memory again";
  presentExhausted({});
  EXPECT_TRUE(eventuallyGrey({100, 100}, 255));
}

class WaylandOverlayInWindowsTest : public WaylandOverlayTest {
 protected:
  WaylandOverlayInWindowsTest() : WaylandOverlayTest(true) {}
};

TEST_F(WaylandOverlayInWindowsTest, ClicksReachWhatLiesBelow) {
  test::ChildProcess below = desktop.spawn("stdbuf", {"-oL", "wev", "-f", "wl_pointer:button"});
  ASSERT_TRUE(eventually([&] {
    return desktop.run("swaymsg", {"-t", "get_tree"}).find("wev") != std::string::npos;
  }));
  cover(alertScene());
  surface->setTint(20);
  const auto retro = showRetro();
  ASSERT_TRUE(eventuallyRetro(onRetro));
  const auto presses = [&below] {
    const std::string printed = below.output();
    int count = 0;
    for (auto at = printed.find("pressed"); at != std::string::npos; at = printed.find("pressed", at + 1))
      ++count;
    return count;
  };
  int clicks = 0;
  for (const QPoint at : {QPoint(100, 100), onBanner, QPoint(width - 40, 16), onRetro, onDot}) {
    desktop.run("xdotool",
                {"mousemove", "--sync", std::to_string(at.x()), std::to_string(at.y()), "click", "1"});
    ++clicks;
    EXPECT_TRUE(eventually([&] { return presses() == clicks; })) << at.x() << "," << at.y();
  }
}

TEST_F(WaylandOverlayInWindowsTest, ScreensComeAndGo) {
  cover(nominalScene());
  ASSERT_TRUE(eventuallyStriped(width, height, 1));
  sway("create_output");
  ASSERT_TRUE(eventually([&] { return backend->screens().size() == 2; }));
  const Screen second = backend->screens().at(1);
  EXPECT_EQ(second.frame, (Rect{width, 0, width, height}));
  EXPECT_FALSE(second.isMain);
  const auto other = backend->createSurface(second);
  other->present({.stripes = {}, .veilAlpha = 0.6});
  EXPECT_TRUE(eventuallyGrey({width + 100, 100}, 0.4 * 255));
  const auto retro = showRetro();
  EXPECT_TRUE(eventuallyRetro(onRetro));

  desktop.removeOutput(backend->screens().at(0).name);
  ASSERT_TRUE(eventually([&] { return backend->screens().size() == 1; }));
  EXPECT_TRUE(backend->screens().at(0).isMain);
  surface->present(alertScene());
  surface->setTint(9);
  EXPECT_TRUE(eventuallyGrey({100, 100}, 0.4 * 255)) << "the other, which has moved to the origin";
  EXPECT_TRUE(eventuallyRetro(onRetro)) << "the picture follows the main screen";
  desktop.removeOutput(second.name);
  ASSERT_TRUE(eventually([&] { return backend->screens().empty(); }));
  other->present({.stripes = {}, .veilAlpha = 0.2});
  sway("create_output");
  ASSERT_TRUE(eventually([&] { return backend->screens().size() == 1; }));
  EXPECT_TRUE(eventuallyGrey({100, 100}, 255)) << "neither surface belongs to it";
}

TEST(WaylandOutputState, ScaleIsFractionalAndSane) {
  const struct {
    const char* what;
    WaylandOutputState state;
    double scale;
    Rect frame;
  } cases[] = {
      {"told in whole numbers", {"", {10, 0, 0, 0}, 3840, 2160, false, 2}, 2, {10, 0, 1920, 1080}},
      {"in between", {"", {0, 0, 2560, 1440}, 3840, 2160, false, 2}, 1.5, {0, 0, 2560, 1440}},
      {"turned", {"", {0, 0, 1440, 2560}, 3840, 2160, true, 2}, 1.5, {0, 0, 1440, 2560}},
      {"a turn not told", {"", {0, 0, 1440, 2560}, 3840, 2160, false, 2}, 2, {0, 0, 1440, 2560}},
      {"rounded sizes", {"", {0, 0, 911, 512}, 1366, 768, false, 2}, 1366.0 / 911, {0, 0, 911, 512}},
      {"an absurd extent", {"", {0, 0, 2, 1}, 3840, 2160, false, 1}, 1, {0, 0, 2, 1}},
      {"an absurd scale", {"", {}, 3840, 2160, false, 5000}, 8, {0, 0, 0, 0}},
      {"a scale of nothing", {"", {}, 3840, 2160, false, -1}, 1, {0, 0, 3840, 2160}},
      {"no mode", {"", {0, 0, 1920, 1080}, 0, 0, false, 1}, 1, {0, 0, 1920, 1080}},
  };
  for (const auto& [what, state, scale, frame] : cases) {
    EXPECT_NEAR(deviceScale(state), scale, 1e-9) << what;
    EXPECT_EQ(logicalFrame(state), frame) << what;
  }
}

}  // namespace
}  // namespace sentrel
