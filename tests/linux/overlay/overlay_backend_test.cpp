// SPDX-License-Identifier: Apache-2.0
//
// What a person sees of the overlay, and clicks through it, on both display servers.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <algorithm>
#include <chrono>
#include <map>
#include <random>
#include <regex>
#include <sstream>
#include <thread>
#include <utility>

#include "linux/desktop/qt_main_loop.h"
#include "linux/overlay/desktop_overlay_backend.h"
#include "linux/overlay/overlay_desktop.h"
#include "linux/overlay/wayland/wayland_desktop.h"
#include "linux/overlay/x11/x11_overlay_surface.h"
#include "overlay/overlay_window_manager.h"
#include "overlay/retro_pip_manager.h"
#include "support/manual_main_loop.h"

namespace sentrel {
namespace {

using test::alertScene;
using test::darkStripes;
using test::nominalScene;
using test::retroColor;
using test::Server;

constexpr int width = 1024;
constexpr int height = 640;
constexpr QPoint probe{100, 100};
/// On the banner, left of its symbol.
constexpr QPoint onBanner{width / 2 - 165, height - 80 - 49};
constexpr QPoint onHint{width - 40, 16};
/// Between two scan lines of the picture-in-picture, and on its dot.
constexpr QPoint onRetro{width - 20 - 128, height - 80 - 192 + 98};
constexpr QPoint onDot{width - 20 - 256 + 10, height - 80 - 192 + 11};

class OverlayTest : public testing::Test, protected test::OverlayDesktop {
 protected:
  explicit OverlayTest(const Options& options) : OverlayDesktop(options) {}

  void cover(const OverlayScene& scene, const std::string& limitation = "") {
    ASSERT_TRUE(eventually([&] { return backend->limitation() == limitation; }));
    surface = backend->createSurface(backend->screens().at(0));
    surface->present({});  // on Wayland before the first size is known, as is the next
    surface->present(scene);
  }
  [[nodiscard]] static qsizetype restacks(const test::ChildProcess& witness) {
    return QByteArray::fromStdString(witness.output()).count("ConfigureNotify");
  }
  [[nodiscard]] bool eventuallyScreens(std::size_t number) {
    return eventually([&] { return backend->screens().size() == number; });
  }
  std::unique_ptr<OverlaySurface> surface;
};

class EveryOverlayTest : public OverlayTest, public testing::WithParamInterface<Server> {
 protected:
  EveryOverlayTest() : OverlayTest({.server = GetParam()}) {}
};
INSTANTIATE_TEST_SUITE_P(Servers, EveryOverlayTest,
                         testing::Values(Server::x11, Server::xwayland, Server::wayland),
                         testing::PrintToStringParamName());

TEST_P(EveryOverlayTest, CoversAlertsAndGoes) {
  cover(nominalScene);
  ASSERT_TRUE(eventuallyStriped(width, height, 1));
  surface->present(alertScene);
  ASSERT_TRUE(eventuallyStriped(width, height, 1, 0.7));
  const QImage alert = screenshot();
  EXPECT_NEAR(qRed(alert.pixel(onBanner)), 0.88 * 0xC8 + 0.12 * 50, 6);
  EXPECT_NEAR(qGreen(alert.pixel(onBanner)), 0.88 * 0x10 + 0.12 * 30, 6);
  EXPECT_LT(qRed(alert.pixel(width / 2, height - 74)), 0.75 * qRed(alert.pixel(width / 2, height - 10)))
      << "the shadow below the banner";
  int brightest = 0;
  for (int i = 0; i < 100 * 32; ++i) {
    brightest = std::max(brightest, qRed(alert.pixel(width - 100 + i % 100, i / 100)));
  }
  EXPECT_NEAR(brightest, 0.3 * 255 + 0.7 * 0.3 * 255, 20) << "the hint";
  EXPECT_LT(qRed(alert.pixel(width - 4, 4)), 80) << "its padding";
  for (const TintLevel level : {5, 26, 13}) {
    surface->setTint(level);
    const double part = level / 255.0;
    EXPECT_TRUE(eventuallyGrey(probe, qRed(alert.pixel(probe)) * (1 - part) + 0xFF * part)) << level;
    EXPECT_NEAR(qGreen(screenshot().pixel(probe)), qGreen(alert.pixel(probe)) * (1 - part) + 0x2D * part, 2);
  }
  surface->setTint(0);
  surface->present(nominalScene);
  ASSERT_TRUE(eventuallyStriped(width, height, 1));
  surface->present({});
  ASSERT_TRUE(eventuallyGrey(probe, 255));
}

TEST_P(EveryOverlayTest, ClicksReachWhatLiesBelow) {
  cover(alertScene);
  surface->setTint(20);
  surface->setPicture(test::flatPicture());
  ASSERT_TRUE(eventuallyColor(onRetro, retroColor));
  for (const QPoint at : {probe, onBanner, onHint, onRetro, onDot}) {
    EXPECT_TRUE(clickArrivesBelow(at)) << at.x() << "," << at.y();
  }
}

TEST_P(EveryOverlayTest, PictureLiesAboveAllAndGoes) {
  ASSERT_TRUE(eventually([&] { return backend->limitation().empty(); }));
  surface = backend->createSurface(backend->screens().at(0));
  surface->setPicture(test::flatPicture());
  surface->present(nominalScene);
  EXPECT_TRUE(eventuallyColor(onRetro, retroColor));
  surface->present(alertScene);
  surface->setTint(26);
  EXPECT_TRUE(eventuallyColor(onRetro, retroColor)) << "neither striped nor tinted, though first there";
  surface->setPicture(RetroPicture{nullptr, brightestBlink});
  EXPECT_TRUE(eventuallyColor(onRetro, 0xFF000000));
  EXPECT_TRUE(eventuallyColor(onDot, 0xFF2EFF47));
  surface->setPicture(RetroPicture{nullptr, 0});
  EXPECT_TRUE(eventually([&] { return qRed(screenshot().pixel(onDot)) < 40; }));
  surface->setPicture({});
  surface->setTint(0);
  EXPECT_TRUE(eventuallyStriped(width, height, 1, 0.7));
  surface->setPicture(test::flatPicture());
  EXPECT_TRUE(eventuallyColor(onRetro, retroColor));
}

TEST_P(EveryOverlayTest, ServerThatDiesInAnAlertIsWaitedFor) {
  cover(alertScene);
  surface->setTint(9);
  surface->setPicture(test::flatPicture());
  ASSERT_TRUE(eventuallyColor(onRetro, retroColor));
  int limitations = 0;
  const Registration changes = backend->limitationChanged.connect([&] { ++limitations; });
  kill();
  ASSERT_TRUE(eventually([&] { return backend->limitation() == "error_no_overlay"; }));
  EXPECT_TRUE(backend->screens().empty());
  surface->setTint(0);
  if (!restart()) GTEST_SKIP() << "another server has taken the display meanwhile";
  ASSERT_TRUE(eventually([&] { return backend->limitation().empty() && !backend->screens().empty(); }));
  EXPECT_GE(limitations, 2);
  EXPECT_TRUE(eventuallyStriped(width, height, 1, 0.7)) << "the surface that was kept shows again";
  EXPECT_TRUE(eventuallyColor(onRetro, retroColor));
  surface.reset();
  EXPECT_TRUE(eventuallyGrey(probe, 255));
}

TEST_P(EveryOverlayTest, ScreensComeAndGo) {
  cover({.stripes = {}, .veilAlpha = 0.2});
  addScreen();
  ASSERT_TRUE(eventuallyScreens(2));
  const Screen second = backend->screens().at(1);
  EXPECT_EQ(second.frame, (Rect{width, 0, width, height}));
  EXPECT_FALSE(second.isMain);
  const auto other = backend->createSurface(second);
  other->present({.stripes = {}, .veilAlpha = 0.6});
  EXPECT_TRUE(eventuallyGrey({width + 100, 100}, 0.4 * 255));
  removeScreen(1);
  ASSERT_TRUE(eventuallyScreens(1));
  other->present(alertScene);
  other->setTint(9);
  EXPECT_TRUE(eventuallyGrey(probe, 0.8 * 255)) << "its surface shows nothing, and nowhere else";
  EXPECT_TRUE(GetParam() == Server::wayland || eventuallyGrey({width + 100, 100}, 255));
}

class X11OverlayTest : public OverlayTest {
 protected:
  explicit X11OverlayTest(bool compositor = true)
      : OverlayTest({.server = Server::x11, .compositor = compositor}) {}
};

TEST_F(X11OverlayTest, StaysAboveOthersWithoutFightingForIt) {
  cover(nominalScene);
  ASSERT_TRUE(eventuallyStriped(width, height, 1));
  const auto rival = desktop.spawn("xev", {"-geometry", "2048x640+0+0", "-name", "rival"});
  desktop.run("xdotool", {"search", "--sync", "--onlyvisible", "--name", "rival", "windowraise"});
  EXPECT_TRUE(eventuallyStriped(width, height, 1));
  const auto witness = desktop.spawn("stdbuf", {"-oL", "xev", "-root", "-event", "substructure"});
  std::vector<std::string> raises{"search", "--name", "rival"};
  for (int i = 0; i < 200; ++i) raises.insert(raises.end(), {"windowraise", "sleep", "0.005"});
  const auto begin = std::chrono::steady_clock::now();
  auto raising = desktop.spawn("xdotool", raises);
  ASSERT_TRUE(eventually([&] { return !raising.isRunning(); }));
  const auto tenths = (std::chrono::steady_clock::now() - begin) / std::chrono::milliseconds(100);
  EXPECT_TRUE(eventuallyStriped(width, height, 1));
  constexpr qsizetype windows = 5;  // the rival's, too
  EXPECT_GT(restacks(witness), windows);
  EXPECT_LE(restacks(witness), (tenths + 2) * windows);
}

TEST_F(X11OverlayTest, ScaleOfTheDesktopIsFollowed) {
  cover(nominalScene);
  ASSERT_TRUE(eventuallyStriped(width, height, 1));
  desktop.run("sh", {"-c", "echo 'Xft.dpi: 192' | xrdb -merge"});
  ASSERT_TRUE(eventually([&] { return backend->screens().at(0).frame.width == width / 2; }));
  EXPECT_TRUE(eventuallyStriped(width, height, 2));
}

class X11OverlayWithoutCompositorTest : public X11OverlayTest {
 protected:
  X11OverlayWithoutCompositorTest() : X11OverlayTest(false) {}
};

TEST_F(X11OverlayWithoutCompositorTest, OnlyWhatMayBeOpaqueIsShownUntilOneComesAndOnceItEnds) {
  cover(nominalScene, "error_no_compositing");
  surface->setTint(20);
  surface->setPicture(test::flatPicture());
  const auto expectOpaque = [&] {
    surface->present(alertScene);
    ASSERT_TRUE(eventuallyGrey(probe, 255));
    EXPECT_TRUE(eventuallyColor(onBanner, 0xFFC8102E));
    EXPECT_TRUE(eventuallyColor(onRetro, retroColor));
    const QImage image = screenshot();
    EXPECT_EQ(image.pixel(onHint), 0xFFFFFFFF);
    EXPECT_EQ(image.pixel(width / 2, height - 76), 0xFFFFFFFF) << "the banner has no shadow";
    for (const QPoint at : {onBanner, onRetro}) EXPECT_TRUE(clickArrivesBelow(at));
  };
  expectOpaque();
  surface->setTint(0);
  desktop.startPicom();
  ASSERT_TRUE(eventually([&] { return backend->limitation().empty(); }));
  EXPECT_TRUE(eventuallyStriped(width, height, 1, 0.7));
  desktop.stopPicom();
  ASSERT_TRUE(eventually([&] { return backend->limitation() == "error_no_compositing"; }));
  expectOpaque();
}

TEST_F(X11OverlayWithoutCompositorTest, WhereNothingCanBeCoveredItIsSaid) {
  unsetenv("DISPLAY");
  const auto none = createOverlayBackend(*loop);
  EXPECT_EQ(none->limitation(), "error_no_overlay");
  EXPECT_TRUE(none->screens().empty());
  none->createSurface({})->present(alertScene);
}

class XwaylandOverlayTest : public OverlayTest {
 protected:
  XwaylandOverlayTest() : OverlayTest({.server = Server::xwayland}) {}
};

TEST_F(XwaylandOverlayTest, EveryPictureHasANewSize) {
  cover(alertScene);
  surface->setPicture(test::flatPicture());
  ASSERT_TRUE(eventuallyColor(onRetro, retroColor));
  const auto witness = desktop.spawn("stdbuf", {"-oL", "xev", "-root", "-event", "substructure"});
  constexpr int pictures = 40;
  ASSERT_TRUE(eventually([&] {
    surface->setPicture(test::flatPicture());  // until the witness looks
    return restacks(witness) > 0;
  }));
  for (int i = 0; i < pictures; ++i) {
    surface->setPicture(test::flatPicture());
    surface->setTint(i % 2 == 0 ? 26 : 3);
    surface->present({.stripes = darkStripes, .veilAlpha = i % 2 == 0 ? 0.1 : 0.7, .banner = true});
    qsizetype before = 0;  // what the server has done so far, and the witness seen
    ASSERT_TRUE(eventually([&] { return std::exchange(before, restacks(witness)) >= i; }));
  }
  EXPECT_TRUE(eventuallyStriped(width, height, 1, 0.7)) << "and nothing is seen of what they are larger by";
  // Each of a window's events has another size than the one before.
  std::map<std::string, std::string> sizes;
  std::istringstream lines(witness.output());
  const std::regex size("window (0x[0-9a-f]+), \\([^)]*\\), (width [0-9]+, height [0-9]+)");
  for (std::string line; std::getline(lines, line);) {
    std::smatch found;
    if (!std::regex_search(line, found, size)) continue;
    EXPECT_NE(std::exchange(sizes[found[1]], found[2]), found[2]) << line;
  }
  EXPECT_GE(sizes.size(), 2U);

  // A compositor that does not get to it is not sent more and more.
  setMutterBusy(true);
  const qsizetype before = restacks(witness);
  for (int i = 0; i < 200; ++i) surface->setPicture(test::flatPicture());
  surface->present(alertScene);
  (void)screenshot();
  EXPECT_LE(restacks(witness), before + 4);
  setMutterBusy(false);
  surface->present({.stripes = darkStripes, .veilAlpha = 0.2});
  EXPECT_TRUE(eventuallyStriped(width, height, 1, 0.2)) << "and the newest is shown when it does";
}

TEST_F(XwaylandOverlayTest, NothingIsCoveredWhereClicksWouldBeLost) {
  cover(alertScene);
  ASSERT_TRUE(eventuallyStriped(width, height, 1, 0.7));
  setMutter(false);
  ASSERT_TRUE(eventually([&] { return backend->limitation() == "error_no_overlay"; }));
  EXPECT_TRUE(backend->screens().empty());
  EXPECT_TRUE(eventuallyGrey(probe, 255));
  const X11OverlayBackend other(*loop, "");
  EXPECT_EQ(other.limitation(), "error_no_overlay");
  setMutter(true);
  EXPECT_TRUE(eventually([&] { return backend->limitation().empty(); }));
  EXPECT_TRUE(eventually([&] { return other.limitation().empty(); })) << other.limitation();
  EXPECT_TRUE(eventuallyStriped(width, height, 1, 0.7));
}

class WaylandOverlayTest : public OverlayTest {
 protected:
  WaylandOverlayTest() : OverlayTest({.server = Server::wayland}) {}
};

TEST_F(WaylandOverlayTest, FollowsModeScaleAndTurn) {
  cover(nominalScene);
  ASSERT_TRUE(eventuallyStriped(width, height, 1));
  const Screen screen = backend->screens().at(0);
  sway("output * scale 2");
  EXPECT_TRUE(eventuallyStriped(width, height, 2));
  sway("output * mode --custom 1280x720 scale 1.25");
  EXPECT_TRUE(eventuallyStriped(1280, 720, 1.25));
  for (const char* turn : {"90", "270"}) {
    sway(std::string("output * transform ") + turn);
    EXPECT_TRUE(eventuallyStriped(720, 1280, 1.25)) << turn;
  }
  EXPECT_EQ(backend->screens().at(0), (Screen{screen.id, screen.name, {0, 0, 576, 1024}, true}));
  // So large that the memory of one picture serves the next.
  sway("output * mode --custom 2560x1600 scale 1 transform normal");
  for (const double veil : {0.0, 0.7, 0.2, 0.5}) {
    surface->present({.stripes = darkStripes, .veilAlpha = veil});
    EXPECT_TRUE(eventuallyStriped(2560, 1600, 1, veil)) << veil;
  }
}

TEST_F(WaylandOverlayTest, ACoverIsPaintedAlsoOnAnOutputThatHasJustGone) {
  // A loop that stands still: nobody hears that the output has gone.
  test::ManualMainLoop still;
  const auto unaware = createOverlayBackend(still);
  addScreen();
  ASSERT_TRUE(eventually([&] {
    still.advance(1);
    return unaware->screens().size() == 2;
  }));
  const auto other = unaware->createSurface(unaware->screens().at(1));
  other->present({.stripes = {}, .veilAlpha = 0.6});
  removeScreen(1);
  ASSERT_TRUE(eventually([&] { return unaware->screens().size() == 1; }));
  other->present(alertScene);  // reads its output
  still.advance(1);
}

TEST_F(WaylandOverlayTest, ACompositorThatHangsHoldsNothingUp) {
  using std::chrono::steady_clock;
  cover(nominalScene);
  ASSERT_TRUE(eventuallyStriped(width, height, 1));
  ::kill(desktop.swayPid(), SIGSTOP);
  // Should something wait for it after all, the test ends all the same.
  std::jthread rescue([this](const std::stop_token& stop) {
    for (int i = 0; i < 300 && !stop.stop_requested(); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ::kill(desktop.swayPid(), SIGCONT);
  });
  const auto begin = steady_clock::now();
  surface->present(alertScene);
  QCoreApplication::processEvents();
  const auto late = createOverlayBackend(*loop);  // a program that starts just now
  QCoreApplication::processEvents();
  EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(10));
  EXPECT_EQ(late->limitation(), "error_no_overlay");
  EXPECT_TRUE(late->screens().empty());
  rescue.request_stop();
  EXPECT_TRUE(eventually([&] { return late->limitation().empty() && late->screens().size() == 1; }));
  EXPECT_TRUE(eventuallyStriped(width, height, 1, 0.7)) << "what was shown meanwhile";
}

TEST_F(WaylandOverlayTest, ExhaustedMemoryDelaysTheCoverAndNeverKeepsIt) {
  cover(nominalScene);
  ASSERT_TRUE(eventuallyStriped(width, height, 1));
  const auto presentWithin = [&](auto resource, rlim_t limit, const OverlayScene& scene) {
    rlimit former{};
    getrlimit(resource, &former);
    const rlimit exhausted{limit, former.rlim_max};
    setrlimit(resource, &exhausted);
    surface->present(scene);
    setrlimit(resource, &former);
  };
  presentWithin(RLIMIT_NOFILE, 3, {.stripes = darkStripes, .veilAlpha = 0.7});
  EXPECT_TRUE(eventuallyStriped(width, height, 1, 0.7)) << "once there is memory again";
  presentWithin(RLIMIT_FSIZE, 100'000, {.stripes = darkStripes, .veilAlpha = 0.2});
  EXPECT_TRUE(eventuallyStriped(width, height, 1, 0.2)) << "once there is memory again";
  presentWithin(RLIMIT_FSIZE, 0, {});
  EXPECT_TRUE(eventuallyGrey(probe, 255));
}

/// Hundreds of screens that come and go within tenths of a second, calm and in an alert. Made to be run under
/// the sanitizers.
class OutputStorm : public testing::TestWithParam<Server>, protected test::OverlayDesktop {
 protected:
  static constexpr int mostScreens = 4;

  OutputStorm()
      : OverlayDesktop({.server = GetParam(), .width = 480, .height = 320, .mostScreens = mostScreens}) {}

  void toggleAlert() {
    manager.isAlertMode = !manager.isAlertMode;
    manager.isAlertMode ? retro.openWindow() : retro.hide();
  }

  /// Whether the mean grey in the upper left of every screen is between these.
  bool everyScreenIs(int least, int most) {
    const auto screens = backend->screens();
    if (screens.size() != screenCount()) return false;
    const int left = std::ranges::min(screens, {}, [](const Screen& s) { return s.frame.x; }).frame.x;
    const QImage image = screenshot();
    return std::ranges::all_of(screens, [&](const Screen& screen) {
      const QImage part = image.copy(screen.frame.x - left + 100, 100, 40, 40);
      const int grey = qGray(part.scaled(1, 1, Qt::IgnoreAspectRatio, Qt::SmoothTransformation).pixel(0, 0));
      return grey >= least && grey <= most;
    });
  }

  std::minstd_rand random{20261121};
  std::shared_ptr<SystemClock> clock = std::make_shared<SystemClock>();
  std::shared_ptr<OverlayWindowManager> overlay =
      std::make_shared<OverlayWindowManager>(backend, loop, clock);
  OverlayWindowManager& manager = *overlay;
  RetroPiPManager retro{overlay, loop, clock};
};
INSTANTIATE_TEST_SUITE_P(Servers, OutputStorm, testing::Values(Server::x11, Server::wayland),
                         testing::PrintToStringParamName());

TEST_P(OutputStorm, LongHundredsComeAndGo) {
  manager.currentAlpha = 0.75F;
  manager.show();
  for (int step = 0; step < 1000; ++step) {
    if (screenCount() == 1 || (screenCount() < mostScreens && random() % 2 == 0)) {
      addScreen();
    } else {
      const std::size_t first = GetParam() == Server::x11 ? 1 : 0;
      removeScreen(first + random() % (screenCount() - first));
    }
    if (random() % 10 == 0) toggleAlert();
    QEventLoop events;
    const auto end = loop->after(10 + static_cast<int>(random() % 191), [&events] { events.quit(); });
    events.exec();
    if (step % 50 != 49) continue;
    ASSERT_TRUE(eventually([&] {
      return manager.isAlertMode ? everyScreenIs(0, 100) : everyScreenIs(190, 235);
    })) << step;
  }
  if (manager.isAlertMode) toggleAlert();
  manager.hide();
  EXPECT_TRUE(eventually([&] { return everyScreenIs(250, 255); }));
}

TEST(WaylandOutputState, ScaleIsFractionalAndSane) {
  const struct {
    const char* what;
    WaylandOutputState state;
    double scale;
    Rect frame;
  } cases[] = {
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
