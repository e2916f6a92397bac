// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QGuiApplication>
#include <QImage>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "linux/desktop/qt_main_loop.h"
#include "linux/overlay/create_overlay_backend.h"
#include "linux/overlay/foreign_window.h"
#include "linux/overlay/stripe_reference.h"
#include "linux/overlay/x11/x11_overlay_backend.h"
#include "stage/headless_desktop.h"
#include "stage/wait_until.h"

namespace sentrel {
namespace {

using test::ForeignWindow;

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
void ensureApplication() {
  static int argumentCount = 1;
  static char name[] = "test";                 // NOLINT(modernize-avoid-c-arrays)
  static char* arguments[] = {name, nullptr};  // NOLINT(modernize-avoid-c-arrays)
  qputenv("QT_QPA_PLATFORM", "offscreen");
  static const QGuiApplication application(argumentCount, arguments);
}

struct WithApplication {
  WithApplication() { ensureApplication(); }
};

class X11OverlayTest : public testing::Test, private WithApplication {
 protected:
  explicit X11OverlayTest(bool compositor = true)
      : desktop({.x11 = true, .compositor = compositor, .width = width, .height = height}) {
    desktop.exportToProcess();
    white.emplace(windowOf({0, 0, width, height}, 0xFFFFFF));
  }

  [[nodiscard]] std::string display() const { return desktop.environment().at("DISPLAY"); }
  [[nodiscard]] ForeignWindow::Options windowOf(Rect pixels, std::uint32_t rgb) const {
    return {.display = display(), .pixels = pixels, .rgb = rgb};
  }

  void connect() {
    backend = createOverlayBackend(loop);
    limitations = backend->limitationChanged.connect([this] { ++limitationChanges; });
    screens = backend->screensChanged.connect([this] { ++screenChanges; });
  }
  void cover(const OverlayScene& scene, const std::string& limitation = "") {
    connect();
    ASSERT_TRUE(eventually([&] { return backend->limitation() == limitation; }));
    surface = backend->createSurface(backend->screens().at(0));
    surface->present(scene);
  }

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
  /// Runs the event loop until a pixel is of this grey, give or take 2.
  [[nodiscard]] bool eventuallyGrey(QPoint at, double grey) {
    return eventually([&] { return std::abs(qRed(screenshot().pixel(at)) - grey) <= 2; });
  }
  void runFor(std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
      QCoreApplication::processEvents();
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

  /// The picture-in-picture of a wide, flat grey.
  [[nodiscard]] std::unique_ptr<RetroSurface> showRetro() const {
    auto retro = backend->createRetroSurface();
    retro->present(std::make_shared<GreyPicture>(GreyPicture{4, 3, std::vector<std::uint8_t>(12, 200)}));
    return retro;
  }
  [[nodiscard]] bool eventuallyRetro() {
    return eventually([&] { return screenshot().pixel(onRetro) == 0xFF24C838; });
  }

  void click(QPoint at) {
    desktop.run("xdotool",
                {"mousemove", "--sync", std::to_string(at.x()), std::to_string(at.y()), "click", "1"});
  }

  /// What white becomes under stripes and veil.
  static double expectedGrey(QPoint at, double veil = 0) {
    const double stripe = darkStripes.stripeAlpha * darkStripes.layerAlpha *
                          test::sampledStripeCoverage(width, height, 1, darkStripes.period, at.x(), at.y());
    return 255 * (1 - stripe) * (1 - veil);
  }

  test::HeadlessDesktop desktop;
  QtMainLoop loop;
  std::optional<ForeignWindow> white;
  std::unique_ptr<OverlayBackend> backend;
  std::unique_ptr<OverlaySurface> surface;
  Registration limitations;
  Registration screens;
  int limitationChanges = 0;
  int screenChanges = 0;

  static constexpr QPoint probe{100, 100};
  /// On the banner, left of its symbol, and on its shadow.
  static constexpr QPoint onBanner{width / 2 - 165, height - 80 - 49};
  static constexpr QPoint onHint{width - 40, 16};
  /// Between two scan lines of the picture-in-picture, and on its dot.
  static constexpr QPoint onRetro{width - 20 - 128, height - 80 - 192 + 98};
  static constexpr QPoint onDot{width - 20 - 256 + 10, height - 80 - 192 + 11};
};

TEST_F(X11OverlayTest, NominalSceneIsStripesAndHint) {
  const ForeignWindow corner(windowOf({width - 150, 0, 150, 32}, 0x000000));
  cover(nominalScene());
  ASSERT_TRUE(eventuallyGrey(probe, expectedGrey(probe)));
  const QImage image = screenshot();
  for (int i = 0; i < 400; ++i) {
    const QPoint at((i * 131) % width, 40 + (i * 37) % (height - 40));
    ASSERT_NEAR(qRed(image.pixel(at)), expectedGrey(at), 3) << at.x() << "," << at.y();
  }
  int brightest = 0;
  for (int y = 0; y < 32; ++y) {
    for (int x = width - 150; x < width; ++x) brightest = std::max(brightest, qRed(image.pixel(x, y)));
  }
  EXPECT_NEAR(brightest, 0.3 * 255, 3) << "the hint on black";
  EXPECT_EQ(qRed(image.pixel(width - 4, 4)), 0) << "its padding";
}

TEST_F(X11OverlayTest, AlertDarkensTintsAndShowsTheBanner) {
  cover(nominalScene());
  surface->present(alertScene());
  surface->setTint(27);
  const double tint = 27.0 / 255;
  ASSERT_TRUE(eventuallyGrey(probe, expectedGrey(probe, 0.7) * (1 - tint) + 0xFF * tint));
  const QImage image = screenshot();
  for (int i = 0; i < 200; ++i) {
    const QPoint at((i * 131) % width, 40 + (i * 37) % 400);
    const double under = expectedGrey(at, 0.7);
    const QRgb pixel = image.pixel(at);
    ASSERT_NEAR(qRed(pixel), under * (1 - tint) + 0xFF * tint, 3) << at.x() << "," << at.y();
    ASSERT_NEAR(qGreen(pixel), under * (1 - tint) + 0x2D * tint, 3) << at.x() << "," << at.y();
  }
  // Nearly opaque red over what is dark already.
  const QRgb banner = image.pixel(onBanner);
  EXPECT_NEAR(qRed(banner), 0.88 * 0xC8 + 0.12 * 50, 6);
  EXPECT_NEAR(qGreen(banner), 0.88 * 0x10 + 0.12 * 30, 6);
  EXPECT_LT(qRed(image.pixel(width / 2, height - 74)), 0.75 * qRed(image.pixel(width / 2, height - 10)))
      << "the shadow below the banner";

  surface->setTint(0);
  ASSERT_TRUE(eventuallyGrey(probe, expectedGrey(probe, 0.7)));
  surface->present(nominalScene());
  ASSERT_TRUE(eventuallyGrey(probe, expectedGrey(probe)));
  surface.reset();
  ASSERT_TRUE(eventuallyGrey(probe, 255));
}

TEST_F(X11OverlayTest, ClicksReachWhatLiesBelow) {
  cover(alertScene());
  surface->setTint(20);
  const auto retro = showRetro();
  ASSERT_TRUE(eventually([&] { return qRed(screenshot().pixel(onBanner)) > 170; }));
  ASSERT_TRUE(eventuallyRetro());
  for (const QPoint at : {probe, onBanner, onHint, onRetro}) {
    click(at);
    EXPECT_TRUE(white->wasClicked()) << at.x() << "," << at.y();
  }
}

TEST_F(X11OverlayTest, PictureLiesAboveAllAndGoes) {
  connect();
  ASSERT_TRUE(eventually([&] { return backend->limitation().empty(); }));
  const auto retro = showRetro();
  surface = backend->createSurface(backend->screens().at(0));
  surface->present(alertScene());
  surface->setTint(26);
  EXPECT_TRUE(eventuallyRetro()) << "neither striped nor tinted, though the cover came later";
  const ForeignWindow popup(windowOf({width - 276, height - 272, 256, 192}, 0xFFFFFF));
  EXPECT_TRUE(eventuallyRetro());
  retro->setBlink(brightestBlink);
  EXPECT_TRUE(eventually([&] { return screenshot().pixel(onDot) == 0xFF2EFF47; }));
  retro->setBlink(0);
  EXPECT_TRUE(eventually([&] { return qRed(screenshot().pixel(onDot)) < 40; }));
  retro->present(nullptr);
  EXPECT_TRUE(eventually([&] { return screenshot().pixel(onRetro) == 0xFF000000; }));
}

TEST_F(X11OverlayTest, StaysAboveWindowsThatComeLater) {
  cover(nominalScene());
  ASSERT_TRUE(eventuallyGrey(probe, expectedGrey(probe)));
  auto options = windowOf({0, 0, width, height}, 0xFFFFFF);
  options.managed = true;
  options.fullScreen = true;
  const ForeignWindow fullScreen(options);
  EXPECT_TRUE(eventuallyGrey(probe, expectedGrey(probe)));
  ForeignWindow popup(windowOf({50, 50, 300, 300}, 0xFFFFFF));
  EXPECT_TRUE(eventuallyGrey(probe, expectedGrey(probe)));
  popup.raise();
  EXPECT_TRUE(eventuallyGrey(probe, expectedGrey(probe)));
}

TEST_F(X11OverlayTest, DoesNotFightForTheTop) {
  cover(nominalScene());
  ForeignWindow rival(windowOf({50, 50, 10, 10}, 0xFFFFFF));
  rival.watchRestacks();
  runFor(std::chrono::milliseconds(200));
  (void)rival.restacksSeen();
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 200; ++i) {
    rival.raise();
    runFor(std::chrono::milliseconds(5));
  }
  const auto tenths = (std::chrono::steady_clock::now() - begin) / std::chrono::milliseconds(100);
  const int restacks = rival.restacksSeen();
  constexpr int windows = 4;
  EXPECT_GT(restacks, 0);
  EXPECT_LE(restacks, (tenths + 1) * windows);
}

TEST_F(X11OverlayTest, CompositorThatEndsTakesTheStripesAndReturnsThem) {
  cover(alertScene());
  surface->setTint(20);
  ASSERT_TRUE(eventually([&] { return qRed(screenshot().pixel(onBanner)) > 170; }));
  limitationChanges = 0;
  desktop.stopPicom();
  ASSERT_TRUE(eventually([&] { return backend->limitation() == "error_no_compositing"; }));
  EXPECT_EQ(limitationChanges, 1);
  ASSERT_TRUE(eventuallyGrey(probe, 255));
  const QImage image = screenshot();
  EXPECT_EQ(image.pixel(onHint), 0xFFFFFFFF);
  EXPECT_EQ(image.pixel(onBanner), 0xFFC8102E) << "the opaque banner";
  EXPECT_EQ(image.pixel(width / 2, height - 76), 0xFFFFFFFF) << "without a shadow";
  click(onBanner);
  EXPECT_TRUE(white->wasClicked());

  desktop.startPicom();
  ASSERT_TRUE(eventually([&] { return backend->limitation().empty(); }));
  const double tint = 20.0 / 255;
  EXPECT_TRUE(eventuallyGrey(probe, expectedGrey(probe, 0.7) * (1 - tint) + 0xFF * tint));
}

TEST_F(X11OverlayTest, ServerThatDiesIsWaitedFor) {
  cover(alertScene());
  ASSERT_TRUE(eventually([&] { return qRed(screenshot().pixel(onBanner)) > 170; }));
  const std::uint64_t id = backend->screens().at(0).id;
  const std::string former = display();
  white.reset();
  desktop.killX();
  ASSERT_TRUE(eventually([&] { return backend->limitation() == "error_no_overlay"; }));
  EXPECT_TRUE(backend->screens().empty());
  EXPECT_EQ(screenChanges, 1);
  surface->setTint(5);
  surface->present(nominalScene());

  desktop.startX();
  if (display() != former) GTEST_SKIP() << "another server has taken the display meanwhile";
  white.emplace(windowOf({0, 0, width, height}, 0xFFFFFF));
  ASSERT_TRUE(eventually([&] { return !backend->screens().empty(); }));
  EXPECT_EQ(screenChanges, 2);
  EXPECT_EQ(backend->screens().at(0).id, id);
  surface->setTint(0);
  EXPECT_TRUE(eventuallyGrey(probe, expectedGrey(probe))) << "the surface that was kept shows again";
}

TEST_F(X11OverlayTest, SurfacesFollowTheirMonitors) {
  connect();
  const auto arrange = [this](const char* name, const char* geometry, const char* output) {
    desktop.run("xrandr", {"--setmonitor", name, geometry, output});
  };
  arrange("left", "512/135x640/169+0+0", "screen");
  ASSERT_TRUE(eventually(
      [&] { return backend->screens().size() == 1 && backend->screens().front().name == "left"; }));
  arrange("right", "512/135x640/169+512+0", "none");
  ASSERT_TRUE(eventually([&] { return backend->screens().size() == 2; }));
  const auto screenList = backend->screens();
  surface = backend->createSurface(screenList[0]);
  const auto second = backend->createSurface(screenList[1]);
  surface->present({.stripes = {}, .veilAlpha = 0.2});
  second->present({.stripes = {}, .veilAlpha = 0.6});
  ASSERT_TRUE(eventuallyGrey({300, 300}, 0.8 * 255));
  ASSERT_TRUE(eventuallyGrey({700, 300}, 0.4 * 255));

  desktop.run("xrandr", {"--delmonitor", "right"});
  ASSERT_TRUE(eventually([&] { return backend->screens().size() == 1; }));
  EXPECT_TRUE(eventuallyGrey({700, 300}, 255)) << "the surface of a screen that has gone shows nothing";
  desktop.run("xrandr", {"--delmonitor", "left"});
  arrange("left", "1024/270x640/169+0+0", "screen");
  EXPECT_TRUE(eventuallyGrey({700, 300}, 0.8 * 255)) << "the other follows its screen";
}

TEST_F(X11OverlayTest, ScaleOfTheDesktopIsFollowed) {
  cover({.stripes = darkStripes});
  ASSERT_TRUE(eventuallyGrey(probe, expectedGrey(probe)));
  desktop.run("sh", {"-c", "echo 'Xft.dpi: 192' | xrdb -merge"});
  ASSERT_TRUE(eventually([&] { return backend->screens().at(0).frame.width == width / 2; }));
  EXPECT_TRUE(eventually([&] {
    const QImage image = screenshot();
    for (int x = 100; x < 160; ++x) {
      const double coverage = test::sampledStripeCoverage(width, height, 2, darkStripes.period, x, 100);
      if (std::abs(qRed(image.pixel(x, 100)) - 255 * (1 - 0.42 * coverage)) > 3) return false;
    }
    return true;
  }));
}

class X11OverlayWithoutCompositorTest : public X11OverlayTest {
 protected:
  X11OverlayWithoutCompositorTest() : X11OverlayTest(false) {}
};

TEST_F(X11OverlayWithoutCompositorTest, NothingTurnsBlack) {
  cover(nominalScene(), "error_no_compositing");
  surface->setTint(20);
  runFor(std::chrono::milliseconds(100));
  const QImage image = screenshot();
  for (const QPoint at : {probe, onBanner, onHint}) EXPECT_EQ(image.pixel(at), 0xFFFFFFFF);
  surface->present(alertScene());
  EXPECT_TRUE(eventually([&] { return screenshot().pixel(onBanner) == 0xFFC8102E; }));
  EXPECT_EQ(screenshot().pixel(probe), 0xFFFFFFFF);
  const auto retro = showRetro();
  EXPECT_TRUE(eventuallyRetro());
  click(onRetro);
  EXPECT_TRUE(white->wasClicked());
}

TEST(CreateOverlayBackend, WithoutADisplayThereIsNoOverlayAndItSaysSo) {
  ensureApplication();
  QtMainLoop loop;
  const char* former = std::getenv("DISPLAY");
  const std::optional<std::string> saved =
      former != nullptr ? std::optional<std::string>(former) : std::nullopt;
  unsetenv("DISPLAY");
  unsetenv("WAYLAND_DISPLAY");
  const auto none = createOverlayBackend(loop);
  EXPECT_EQ(none->limitation(), "error_no_overlay");
  EXPECT_TRUE(none->screens().empty());
  none->createSurface({})->present(alertScene());
  // A display that nobody serves: the same, and it goes on waiting.
  X11OverlayBackend unserved(loop, ":987654");
  EXPECT_EQ(unserved.limitation(), "error_no_overlay");
  EXPECT_TRUE(unserved.screens().empty());
  if (saved) setenv("DISPLAY", saved->c_str(), 1);
}

}  // namespace
}  // namespace sentrel
