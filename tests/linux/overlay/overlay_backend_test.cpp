// SPDX-License-Identifier: Apache-2.0
//
// What a person sees of the overlay, and clicks through it, on both display servers; and how the screens that
// these tell are understood.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <xcb/xcb.h>

#include <QByteArray>
#include <QEventLoop>
#include <QGuiApplication>
#include <QRegularExpression>
#include <QSize>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <random>
#include <sstream>

#include "linux/desktop/qt_main_loop.h"
#include "linux/overlay/desktop_overlay_backend.h"
#include "linux/overlay/painter/cover_painter.h"
#include "linux/overlay/painter/scene_painter.h"
#include "linux/overlay/wayland/wayland_desktop.h"
#include "linux/overlay/x11/x11_overlay_surface.h"
#include "overlay/overlay_window_manager.h"
#include "overlay/retro_pip_manager.h"
#include "stage/headless_desktop.h"

namespace sentrel::test {
namespace {

/// The second is an X server that looks as one behind Mutter does.
enum class Server { x11, xwayland, wayland };
void PrintTo(Server server, std::ostream* out) {
  *out << (server == Server::x11 ? "x11" : server == Server::xwayland ? "xwayland" : "wayland");
}

constexpr StripePattern darkStripes{11.3137, 0x000000, 0.42, 1};
[[nodiscard]] OverlayScene veiled(double veil) {
  return {.stripes = darkStripes, .veilAlpha = veil};
}
const OverlayScene nominalScene{.stripes = darkStripes, .shortcutInHint = "⌘⇧C"};
const OverlayScene alertScene{
    .stripes = darkStripes, .veilAlpha = 0.7, .banner = true, .shortcutInHint = "⌘⇧C"};
const OverlayScene darkScene{.stripes = {}, .veilAlpha = 0.9};
const OverlayScene coverScene{.stripes = {}, .cover = Cover{.shortcut = true}};
const QRgb coverColor = coverGround({}).rgb();

/// A new onlooker's picture of a flat grey, which is `retroColor` between two scan lines.
[[nodiscard]] RetroPicture flatPicture() {
  auto picture = std::make_shared<GreyPicture>();
  *picture = {1, 1, FrameMemory<std::uint8_t>(1)};
  picture->levels[0] = 200;
  return {picture, 0};
}
constexpr QRgb retroColor = 0xFF24C838;
constexpr QRgb white = 0xFFFFFFFF;

constexpr int width = 1024;
constexpr int height = 640;
constexpr QPoint probe{100, 100};
constexpr QPoint onSecondScreen{width + 100, 100};
/// On the banner, left of its symbol.
constexpr QPoint onBanner{width / 2 - 165, height - 80 - 49};
constexpr QPoint onHint{width - 40, 16};
/// Between two scan lines of the picture-in-picture, and on its dot.
constexpr QPoint onRetro{width - 20 - 128, height - 80 - 192 + 98};
constexpr QPoint onDot{width - 20 - 256 + 10, height - 80 - 192 + 11};

using Connection = std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)>;
[[nodiscard]] Connection connectToX() {
  return {xcb_connect(nullptr, nullptr), &xcb_disconnect};
}
[[nodiscard]] const xcb_screen_t& screenOf(const Connection& connection) {
  return *xcb_setup_roots_iterator(xcb_get_setup(connection.get())).data;
}

/// A private desktop of white screens side by side, at first one, and this process's back end on it. Screens
/// of Wayland are windows of an X server, so that they have a pointer and can go.
class OverlayTest : public testing::Test {
 protected:
  explicit OverlayTest(Server ofKind, bool compositor = true, int mostScreens = 2,
                       QSize size = {width, height})
      : server(ofKind),
        desktop({.x11 = true,
                 .windowManager = false,
                 .compositor = !isWayland() && compositor,
                 .sway = isWayland(),
                 .width = size.width() * (isWayland() ? 1 : mostScreens),
                 .height = size.height()}),
        size_(size) {
    desktop.exportToProcess();
    furnish();
    backend = createOverlayBackend(*loop);
  }

  void addScreen() {  ///< beside the others
    if (isWayland()) {
      names.push_back("X11-" + std::to_string(++outputs_));
      if (outputs_ > 1) sway("create_output");
      return;
    }
    const std::string prefix = server == Server::xwayland ? "XWAYLAND" : "monitor";
    int place = 0;
    while (std::ranges::count(names, prefix + std::to_string(place)) > 0) ++place;
    names.push_back(prefix + std::to_string(place));
    desktop.run("xrandr", {"--setmonitor", names.back(),
                           std::to_string(size_.width()) + "/271x" + std::to_string(size_.height()) +
                               "/169+" + std::to_string(place * size_.width()) + "+0",
                           place == 0 ? "screen" : "none"});
  }
  /// In the order of their coming. An X server cannot do without the first.
  void removeScreen(std::size_t index) {
    const std::string name = names.at(index);
    std::erase(names, name);
    if (isWayland()) return desktop.removeOutput(name);
    desktop.run("xrandr", {"--delmonitor", name});
  }

  /// Makes the window manager known as Mutter, or as another one.
  void setMutter(bool isMutter) {
    if (!isMutter) return (void)desktop.run("xprop", {"-root", "-remove", "_NET_SUPPORTING_WM_CHECK"});
    mutter_ = connectToX();
    const xcb_window_t root = screenOf(mutter_).root;
    const std::uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(mutter_.get(), root, XCB_CW_EVENT_MASK, &events);
    xcb_flush(mutter_.get());
    // The root window serves as the one on which a window manager describes itself.
    setRoot("_MUTTER_VERSION", "43.8", "8u");
    setRoot("_NET_SUPPORTING_WM_CHECK", std::to_string(root));
  }
  /// Sets a property of the root window.
  void setRoot(const std::string& name, const std::string& value, const std::string& format = "32c") {
    desktop.run("xprop", {"-root", "-f", name, format, "-set", name, value});
  }
  void restartServer() {
    if (isWayland()) return desktop.startSway();
    desktop.startX();
    names.clear();
    furnish();
  }
  void sway(const std::string& command) { desktop.run("swaymsg", {command}); }

  QImage screenshot() {
    desktop.screenshot(desktop.home() / "screen.png");
    return QImage(QString::fromStdString((desktop.home() / "screen.png").string()));
  }
  void click(QPoint at, const std::vector<std::string>& how = {"click", "1"}) {
    std::vector<std::string> words{"mousemove", "--sync", std::to_string(at.x()), std::to_string(at.y())};
    words.insert(words.end(), how.begin(), how.end());
    desktop.run("xdotool", words);
  }
  [[nodiscard]] qsizetype clicksBelow() const {
    return QByteArray::fromStdString(below_.output()).count(isWayland() ? "pressed" : "ButtonPress event");
  }
  /// Clicks there and waits for the click in the window that lies below everything.
  bool clickArrivesBelow(QPoint at) {
    if (!below_.isRunning()) openWindowBelow();
    click(at);
    ++clicks_;
    return eventually([&] { return clicksBelow() == clicks_; });
  }
  /// A window of another program, above all that are there.
  [[nodiscard]] ChildProcess openRival(const char* geometry) {
    ChildProcess rival = desktop.spawn("xev", {"-geometry", geometry, "-name", "rival"});
    desktop.run("xdotool", {"search", "--sync", "--onlyvisible", "--name", "rival", "windowraise"});
    return rival;
  }

  void runFor(std::int64_t milliseconds) {
    QEventLoop events;
    const Registration end = loop->after(milliseconds, [&events] { events.quit(); });
    events.exec();
    if (mutter_ && !mutterIsBusy) answerAsMutter();
  }
  /// Runs the event loop until the condition holds.
  template <class Condition>
  [[nodiscard]] bool eventually(Condition&& condition) {
    return waitUntil([&] {
      // With a wait, as in the program: before it the back end looks at what has come with something else.
      runFor(1);
      return condition();
    });
  }
  bool eventuallyGrey(QPoint at, double grey) {
    return eventually([&] { return std::abs(qRed(screenshot().pixel(at)) - grey) <= 2; });
  }
  bool eventuallyColor(QPoint at, QRgb color) {
    return eventually([&] { return screenshot().pixel(at) == color; });
  }
  /// Waits until the first screen, of this size, is white under `darkStripes` and a veil.
  bool eventuallyStriped(double veil = 0, int columns = width, int rows = height, double scale = 1) {
    const ScenePainter painter(veiled(veil), columns, rows, scale);
    return eventually([&] {
      const QImage image = screenshot();
      if (image.width() < columns || image.height() != rows) return false;
      for (int i = 0; i < 200; ++i) {
        // Between the hint, what the window below everything draws, and the picture-in-picture.
        const QPoint at(4 + (i * 131) % (columns - 8), 72 + (i * 37) % (rows / 2 - 40));
        const int light = 255 - qAlpha(painter.row(at.y(), columns)[static_cast<std::size_t>(at.x())]);
        if (std::abs(qRed(image.pixel(at)) - light) > 2) return false;
      }
      return true;
    });
  }
  /// Waits until what is bright in the upper right corner of the `darkScene` begins there.
  bool eventuallyHintBelow(int y) {
    return eventually([&, y] {
      const QImage image = screenshot();
      for (int row = y; row < 100; ++row)
        for (int x = width - 100; x < width; ++x)
          if (qRed(image.pixel(x, row)) > 60) return row - y < 14;  // the padding and the eye's lid
      return false;
    });
  }
  bool eventuallyLimited(const std::string& limitation) {
    return eventually([&] { return backend->limitation() == limitation; });
  }

  void cover(const OverlayScene& scene, const std::string& limitation = "") {
    ASSERT_TRUE(eventuallyLimited(limitation));
    surface = backend->createSurface(backend->screens().at(0));
    surface->present({});  // on Wayland before the first size is known, as is the next
    surface->present(scene);
  }
  /// Notes every change of windows.
  [[nodiscard]] ChildProcess startObserver() {
    return desktop.spawn("stdbuf", {"-oL", "xev", "-root", "-event", "substructure"});
  }
  [[nodiscard]] static qsizetype restacks(const ChildProcess& observer) {
    return QByteArray::fromStdString(observer.output()).count("ConfigureNotify");
  }

  [[nodiscard]] bool isWayland() const { return server == Server::wayland; }

  static inline int argumentCount = 1;
  QGuiApplication application{(qputenv("QT_QPA_PLATFORM", "offscreen"), argumentCount),
                              &program_invocation_name};
  const Server server;
  HeadlessDesktop desktop;
  std::vector<std::string> names;  ///< of the screens
  std::shared_ptr<QtMainLoop> loop = std::make_shared<QtMainLoop>();
  std::shared_ptr<OverlayBackend> backend;
  std::unique_ptr<OverlaySurface> surface;
  bool mutterIsBusy = false;  ///< it does not answer what it is asked

 private:
  void furnish() {
    addScreen();
    if (server == Server::xwayland) setMutter(true);
    if (!isWayland()) openWindowBelow();  // the ground itself is not white
  }
  void openWindowBelow() {
    if (isWayland()) {
      below_ = desktop.spawn("stdbuf", {"-oL", "wev", "-f", "wl_pointer:button"});
      (void)waitUntil([this] {
        return desktop.run("swaymsg", {"-t", "get_tree"}).find("wev") != std::string::npos;
      });
      return;
    }
    below_ = desktop.spawn("stdbuf", {"-oL", "xev", "-geometry", "3000x1000+0+0", "-event", "button"});
    (void)waitUntil([this] { return qRed(screenshot().pixel(probe)) == 255; });
  }
  /// How wide a window's frame is, as a property of that window.
  void answerAsMutter() {
    while (xcb_generic_event_t* event = xcb_poll_for_event(mutter_.get())) {
      const auto& message = reinterpret_cast<const xcb_client_message_event_t&>(*event);
      const std::uint32_t none = 0;
      if ((event->response_type & 0x7FU) == XCB_CLIENT_MESSAGE)
        xcb_change_property(mutter_.get(), XCB_PROP_MODE_REPLACE, message.window, message.type,
                            XCB_ATOM_CARDINAL, 32, 1, &none);
      std::free(event);
    }
    xcb_flush(mutter_.get());
  }

  const QSize size_;  // of a screen
  int outputs_ = 0;   // of Wayland, that were ever there
  ChildProcess below_;
  int clicks_ = 0;
  Connection mutter_{nullptr, &xcb_disconnect};
};

template <Server kind, bool compositor = true>
struct OverlayOn : OverlayTest {
  OverlayOn() : OverlayTest(kind, compositor) {}
};
using X11OverlayTest = OverlayOn<Server::x11>;
using X11OverlayWithoutCompositorTest = OverlayOn<Server::x11, false>;
using XwaylandOverlayTest = OverlayOn<Server::xwayland>;
using WaylandOverlayTest = OverlayOn<Server::wayland>;

struct EveryOverlayTest : OverlayTest, testing::WithParamInterface<Server> {
  EveryOverlayTest() : OverlayTest(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(Servers, EveryOverlayTest,
                         testing::Values(Server::x11, Server::xwayland, Server::wayland),
                         testing::PrintToStringParamName());

TEST_P(EveryOverlayTest, CoversAlertsAndGoes) {
  cover(nominalScene);
  ASSERT_TRUE(eventuallyStriped());
  surface->present(alertScene);
  ASSERT_TRUE(eventuallyStriped(0.7));
  const QImage alert = screenshot();
  EXPECT_NEAR(qRed(alert.pixel(onBanner)), 0.88 * 0xC8 + 0.12 * 50, 6);
  EXPECT_LT(qRed(alert.pixel(width / 2, height - 74)), 0.75 * qRed(alert.pixel(width / 2, height - 10)))
      << "the shadow below the banner";
  int brightest = 0;
  for (int i = 0; i < 100 * 32; ++i)
    brightest = std::max(brightest, qRed(alert.pixel(width - 100 + i % 100, i / 100)));
  EXPECT_NEAR(brightest, 0.3 * 255 + 0.7 * 0.3 * 255, 20) << "the hint";
  for (const TintLevel level : {5, 26, 13}) {
    surface->setTint(level);
    const double part = level / 255.0;
    EXPECT_TRUE(eventuallyGrey(probe, qRed(alert.pixel(probe)) * (1 - part) + 0xFF * part)) << level;
  }
  surface->setTint(0);
  surface->present(nominalScene);
  ASSERT_TRUE(eventuallyStriped());
  surface->present({});
  ASSERT_TRUE(eventuallyGrey(probe, 255));
}

TEST_P(EveryOverlayTest, PictureLiesAboveAllAndClicksReachWhatLiesBelow) {
  ASSERT_TRUE(eventuallyLimited(""));
  surface = backend->createSurface(backend->screens().at(0));
  surface->setPicture(flatPicture());
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
  EXPECT_TRUE(eventuallyStriped(0.7));
  surface->setTint(20);
  surface->setPicture(flatPicture());
  EXPECT_TRUE(eventuallyColor(onRetro, retroColor));
  for (const QPoint at : {probe, onBanner, onHint, onRetro, onDot})
    EXPECT_TRUE(clickArrivesBelow(at)) << at.x() << "," << at.y();
}

TEST_P(EveryOverlayTest, ServerThatDiesInAnAlertIsWaitedFor) {
  cover(alertScene);
  surface->setTint(9);
  surface->setPicture(flatPicture());
  ASSERT_TRUE(eventuallyColor(onRetro, retroColor));
  int limitations = 0;
  const Registration changes = backend->limitationChanged.connect([&] { ++limitations; });
  isWayland() ? desktop.killSway() : desktop.killX();
  ASSERT_TRUE(eventuallyLimited("error_no_overlay"));
  EXPECT_TRUE(backend->screens().empty());
  surface->setTint(0);
  const std::string former = desktop.environment().at("DISPLAY");
  restartServer();
  if (desktop.environment().at("DISPLAY") != former) GTEST_SKIP() << "nobody looks for it at another display";
  ASSERT_TRUE(eventuallyLimited(""));
  EXPECT_GE(limitations, 2);
  EXPECT_TRUE(eventuallyStriped(0.7)) << "the surface that was kept shows again";
  EXPECT_TRUE(eventuallyColor(onRetro, retroColor));
}

TEST_P(EveryOverlayTest, ACoverFollowsTheScreensUntilItsButtonIsClicked) {
  OverlayWindowManager manager(backend, loop, std::make_shared<SystemClock>());
  const Registration asked = manager.revealAsked.connect([&] { manager.revealScreens(); });
  manager.hideScreens();
  ASSERT_TRUE(eventuallyColor(probe, coverColor));
  addScreen();
  ASSERT_TRUE(eventuallyColor(onSecondScreen, coverColor));
  const Screen second = backend->screens().at(1);
  EXPECT_EQ(second.frame, (Rect{width, 0, width, height}));
  EXPECT_FALSE(second.isMain);
  const auto late = backend->createSurface(second);
  removeScreen(1);
  ASSERT_TRUE(eventually([&] { return backend->screens().size() == 1; }));
  late->present(alertScene);
  late->setTint(9);
  EXPECT_TRUE(isWayland() || eventuallyColor(onSecondScreen, white)) << "nothing, and nowhere else";
  EXPECT_TRUE(eventuallyColor(probe, coverColor));
  const auto [notice, button] = paintCover({0, 0, width, height}, 1, {});
  click(notice.at + QPoint(button.x + button.width / 2, button.y + button.height / 2));
  EXPECT_TRUE(eventuallyGrey(probe, 255));
}

TEST_P(EveryOverlayTest, ACoverHidesAllAndTakesClicksOnItsButtonAlone) {
  cover(alertScene);
  ASSERT_TRUE(eventuallyStriped(0.7));
  int clicked = 0;
  const Registration clicks = surface->clicked.connect([&] { ++clicked; });
  surface->present(coverScene);
  ASSERT_TRUE(eventuallyColor(probe, coverColor));
  const auto [notice, place] = paintCover({0, 0, width, height}, 1, *coverScene.cover);
  const QRect panel(notice.at, notice.image.size());
  const QRect button = QRect(place.x, place.y, place.width, place.height).translated(notice.at);
  const QPoint inside = button.topLeft() + QPoint(20, 20);
  ASSERT_TRUE(eventuallyColor(inside, notice.image.pixel(inside - notice.at)));
  const QImage covered = screenshot();
  int others = 0;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) others += !panel.contains(x, y) && covered.pixel(x, y) != coverColor;
  EXPECT_EQ(others, 0) << "pixels of something else";

  EXPECT_TRUE(clickArrivesBelow(probe));
  for (const QPoint corner : {button.topLeft(), button.bottomRight()}) {
    const int before = clicked;
    click(corner);
    EXPECT_TRUE(eventually([&] { return clicked == before + 1; }));
  }
  click(button.center(), {"mousedown", "1"});
  click(probe, {"mouseup", "1"});
  click(button.center(), {"click", "3"});
  for (const QPoint beside : {button.topLeft() - QPoint(1, 0), button.bottomRight() + QPoint(0, 1), onHint})
    EXPECT_TRUE(clickArrivesBelow(beside)) << beside.x() << "," << beside.y();
  runFor(50);
  EXPECT_EQ(clicksBelow(), 4) << "none of those on the button";
  EXPECT_EQ(clicked, 2) << "neither one that ends beside it nor another button's";

  surface->present(nominalScene);
  // The window below is not white on Wayland.
  EXPECT_TRUE(eventually([&] { return screenshot().pixel(probe) != coverColor; }));
  EXPECT_TRUE(isWayland() || eventuallyStriped());
  EXPECT_TRUE(clickArrivesBelow(button.center()));
}

TEST_P(EveryOverlayTest, WhatIsHeldIsShownAfterwards) {
  cover({});
  ASSERT_TRUE(eventuallyGrey(probe, 255));
  backend->setHeld(true);
  surface->present(coverScene);
  runFor(100);
  EXPECT_EQ(screenshot().pixel(probe), white);
  backend->setHeld(false);
  ASSERT_TRUE(eventuallyColor(probe, coverColor));
  backend->setHeld(true);
  surface->present(darkScene);
  surface->setPicture(flatPicture());
  surface->setTint(26);
  runFor(100);
  EXPECT_EQ(screenshot().pixel(probe), coverColor);
  ChildProcess locker;
  if (server == Server::x11) {
    locker = openRival("2048x640+0+0");
    ASSERT_TRUE(eventuallyGrey(probe, 255));
    runFor(200);
    EXPECT_EQ(screenshot().pixel(probe), white) << "a locker is not fought";
  }
  backend->setHeld(false);
  EXPECT_TRUE(eventuallyGrey(probe, 0.1 * 255 * (1 - 26 / 255.0) + 26)) << "with its tint";
  EXPECT_TRUE(eventuallyColor(onRetro, retroColor));
}

TEST_F(X11OverlayTest, StaysAboveOthersWithoutFightingForIt) {
  cover(nominalScene);
  const auto rival = openRival("2048x640+0+0");
  EXPECT_TRUE(eventuallyStriped());
  const auto observer = startObserver();
  std::vector<std::string> raises{"search", "--name", "rival"};
  for (int i = 0; i < 200; ++i) raises.insert(raises.end(), {"windowraise", "sleep", "0.005"});
  const auto begin = std::chrono::steady_clock::now();
  auto raising = desktop.spawn("xdotool", raises);
  ASSERT_TRUE(eventually([&] { return !raising.isRunning(); }));
  const auto tenths = (std::chrono::steady_clock::now() - begin) / std::chrono::milliseconds(100);
  EXPECT_TRUE(eventuallyStriped());
  constexpr qsizetype windows = 5;  // the rival's, too
  EXPECT_GT(restacks(observer), windows);
  EXPECT_LE(restacks(observer), (tenths + 2) * windows);
}

constexpr QRgb lockerColor = 0xFF3366CC;

/// An unmanaged window that fills both screens in one colour, as that of a locker; it is raised above others
/// when it is made.
[[nodiscard]] Connection openFullScreenWindow(std::string_view windowClass, bool grabs) {
  Connection connection = connectToX();
  xcb_connection_t* const x = connection.get();
  const xcb_screen_t& screen = screenOf(connection);
  const xcb_window_t window = xcb_generate_id(x);
  const std::array<std::uint32_t, 3> values{lockerColor & 0xFFFFFFU, 1, XCB_EVENT_MASK_FOCUS_CHANGE};
  xcb_create_window(x, XCB_COPY_FROM_PARENT, window, screen.root, 0, 0, screen.width_in_pixels,
                    screen.height_in_pixels, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                    XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values.data());
  xcb_change_property(x, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                      static_cast<std::uint32_t>(windowClass.size()), windowClass.data());
  if (grabs) xcb_grab_keyboard(x, 1, screen.root, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
  xcb_map_window(x, window);
  xcb_set_input_focus(x, XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
  xcb_flush(x);
  return connection;
}

/// How often a grab has taken the keyboard from the window of this connection so far.
[[nodiscard]] int grabsSeen(const Connection& connection) {
  int seen = 0;
  while (xcb_generic_event_t* event = xcb_poll_for_event(connection.get())) {
    if ((event->response_type & 0x7FU) == XCB_FOCUS_OUT &&
        reinterpret_cast<const xcb_focus_out_event_t*>(event)->mode == XCB_NOTIFY_MODE_GRAB)
      ++seen;
    std::free(event);
  }
  return seen;
}

TEST_F(X11OverlayTest, StaysBelowALockerOnly) {
  using namespace std::string_view_literals;
  const struct {
    std::string_view windowClass;
    bool grabs;
    bool staysAbove;
  } cases[] = {
      {"game\0Game\0"sv, false, false}, {"game\0Game\0"sv, true, true}, {"i3lock\0i3lock\0"sv, false, true}};
  for (const auto& [windowClass, grabs, staysAbove] : cases) {
    for (const bool isFirst : {false, true}) {
      SCOPED_TRACE(testing::Message() << windowClass << (grabs ? " grabs " : " ") << isFirst);
      Connection window = isFirst ? openFullScreenWindow(windowClass, grabs) : connectToX();
      cover(nominalScene);
      if (!isFirst) {
        ASSERT_TRUE(eventuallyStriped());
        window = openFullScreenWindow(windowClass, grabs);
      }
      if (staysAbove) {
        ASSERT_TRUE(eventuallyColor(probe, lockerColor));
        surface->present(alertScene);
        const auto rival = openRival("300x200+500+300");
        runFor(300);
        for (const QPoint at : {probe, onBanner}) EXPECT_EQ(screenshot().pixel(at), lockerColor);
        surface->present(nominalScene);
      } else {
        EXPECT_TRUE(eventually([&] { return screenshot().pixel(probe) != lockerColor; }));
        EXPECT_EQ(grabsSeen(window), 0) << "nobody takes the keys from a game";
      }
      window.reset();
      EXPECT_TRUE(eventuallyStriped());
      surface.reset();
    }
  }
}

TEST_F(X11OverlayTest, FollowsScaleAndPanelsOfTheDesktop) {
  setRoot("_NET_WORKAREA", "0, 30, 1024, 610");
  cover(darkScene);
  EXPECT_TRUE(eventuallyHintBelow(30));
  setRoot("_NET_WORKAREA", "0, 60, 1024, 580, 0, 0, 1024, 640");
  EXPECT_TRUE(eventuallyHintBelow(60)) << "a panel that grows";
  setRoot("_NET_CURRENT_DESKTOP", "1");
  EXPECT_TRUE(eventuallyHintBelow(0)) << "a desktop without panels";
  surface->present(nominalScene);
  desktop.run("sh", {"-c", "echo 'Xft.dpi: 192' | xrdb -merge"});
  EXPECT_TRUE(eventuallyStriped(0, width, height, 2));
  EXPECT_EQ(backend->screens().at(0).frame.width, width / 2);
}

TEST_F(X11OverlayWithoutCompositorTest, OnlyWhatMayBeOpaqueIsShownUntilOneComesAndOnceItEnds) {
  cover(nominalScene, "error_no_compositing");
  surface->setTint(20);
  surface->setPicture(flatPicture());
  const auto expectOpaque = [&] {
    surface->present(alertScene);
    ASSERT_TRUE(eventuallyGrey(probe, 255));
    EXPECT_TRUE(eventuallyColor(onBanner, 0xFFC8102E));
    EXPECT_TRUE(eventuallyColor(onRetro, retroColor));
    const QImage image = screenshot();
    EXPECT_EQ(image.pixel(onHint), white);
    EXPECT_EQ(image.pixel(width / 2, height - 76), white) << "the banner has no shadow";
    for (const QPoint at : {onBanner, onRetro}) EXPECT_TRUE(clickArrivesBelow(at));
  };
  expectOpaque();
  surface->setTint(0);
  surface->setPicture({});
  surface->present(coverScene);
  EXPECT_TRUE(eventuallyColor(probe, coverColor)) << "a cover needs no compositing manager";
  surface->present(alertScene);
  desktop.startPicom();
  ASSERT_TRUE(eventuallyLimited(""));
  EXPECT_TRUE(eventuallyStriped(0.7));
  desktop.stopPicom();
  ASSERT_TRUE(eventuallyLimited("error_no_compositing"));
  surface->setPicture(flatPicture());
  expectOpaque();
}

TEST_F(XwaylandOverlayTest, EveryPictureHasANewSize) {
  cover(alertScene);
  surface->setPicture(flatPicture());
  ASSERT_TRUE(eventuallyColor(onRetro, retroColor));
  const auto observer = startObserver();
  ASSERT_TRUE(eventually([&] {
    surface->setPicture(flatPicture());  // until the observer looks
    return restacks(observer) > 0;
  }));
  for (int i = 0; i < 40; ++i) {
    surface->setPicture(flatPicture());
    surface->setTint(i % 2 == 0 ? 26 : 3);
    surface->present(veiled(i % 2 == 0 ? 0.1 : 0.7));
    qsizetype before = 0;  // what the server has done so far, and the observer seen
    ASSERT_TRUE(eventually([&] { return std::exchange(before, restacks(observer)) >= i; }));
  }
  EXPECT_TRUE(eventuallyStriped(0.7)) << "and nothing is seen of what they are larger by";
  // Each of a window's events has another size than the one before.
  std::map<QString, QString> sizes;
  const QRegularExpression event("window (0x[0-9a-f]+), \\([^)]*\\), (width [0-9]+, height [0-9]+)");
  for (const auto& found : event.globalMatch(QString::fromStdString(observer.output()))) {
    const QString size = found.captured(2);
    EXPECT_NE(std::exchange(sizes[found.captured(1)], size), size) << found.captured(0).toStdString();
  }
  EXPECT_GE(sizes.size(), 2U);

  // A compositor that does not get to it is not sent more and more.
  mutterIsBusy = true;
  const qsizetype before = restacks(observer);
  for (int i = 0; i < 200; ++i) surface->setPicture(flatPicture());
  surface->present(alertScene);
  (void)screenshot();
  EXPECT_LE(restacks(observer), before + 4);
  mutterIsBusy = false;
  surface->present(veiled(0.2));
  EXPECT_TRUE(eventuallyStriped(0.2)) << "and the newest is shown when it does";
}

TEST_F(XwaylandOverlayTest, NothingIsCoveredWhereClicksWouldBeLost) {
  cover(alertScene);
  ASSERT_TRUE(eventuallyStriped(0.7));
  setMutter(false);
  ASSERT_TRUE(eventuallyLimited("error_no_overlay"));
  EXPECT_TRUE(backend->screens().empty());
  EXPECT_TRUE(eventuallyGrey(probe, 255));
  const X11OverlayBackend other(*loop, "");
  EXPECT_EQ(other.limitation(), "error_no_overlay");
  setMutter(true);
  EXPECT_TRUE(eventuallyStriped(0.7));
  EXPECT_TRUE(eventually([&] { return other.limitation().empty(); })) << other.limitation();
  unsetenv("DISPLAY");
  const auto none = createOverlayBackend(*loop);
  EXPECT_EQ(none->limitation(), "error_no_overlay");
  none->createSurface({})->present(alertScene);
}

TEST_F(WaylandOverlayTest, FollowsModeScaleTurnAndPanels) {
  cover(nominalScene);
  ASSERT_TRUE(eventuallyStriped());
  const Screen screen = backend->screens().at(0);
  sway("output * scale 2");
  EXPECT_TRUE(eventuallyStriped(0, width, height, 2));
  surface->present(coverScene);
  const auto [notice, place] = paintCover({0, 0, width, height}, 2, *coverScene.cover);
  const QPoint onButton(place.x + 30, place.y + 30);
  EXPECT_TRUE(eventuallyColor(notice.at + onButton, notice.image.pixel(onButton)));
  surface->present(nominalScene);
  sway("output * mode --custom 1280x720 scale 1.25");
  EXPECT_TRUE(eventuallyStriped(0, 1280, 720, 1.25));
  for (const char* turn : {"90", "270"}) {
    sway(std::string("output * transform ") + turn);
    EXPECT_TRUE(eventuallyStriped(0, 720, 1280, 1.25)) << turn;
  }
  EXPECT_EQ(backend->screens().at(0), (Screen{screen.id, screen.name, {0, 0, 576, 1024}, true, 1.25}));
  // So large that the memory of one picture serves the next.
  sway("output * mode --custom 2560x1600 scale 1 transform normal");
  for (const double veil : {0.0, 0.7, 0.2, 0.5}) {
    surface->present(veiled(veil));
    EXPECT_TRUE(eventuallyStriped(veil, 2560, 1600)) << veil;
  }
  surface->present(darkScene);
  sway("output * mode --custom " + std::to_string(width) + "x" + std::to_string(height));
  EXPECT_TRUE(eventuallyHintBelow(0));
  std::ofstream(desktop.runtimeFolder().parent_path() / "sway.conf", std::ios::app)
      << "bar {\n position top\n height 40\n tray_output none\n}\n";
  sway("reload");
  EXPECT_TRUE(eventuallyHintBelow(40));
}

TEST_F(WaylandOverlayTest, ACompositorThatHangsHoldsNothingUp) {
  cover(nominalScene);
  ASSERT_TRUE(eventuallyStriped());
  ::kill(desktop.swayPid(), SIGSTOP);
  surface->present(alertScene);
  bool lost = false;
  const Registration losses = backend->limitationChanged.connect([&lost] { lost = true; });
  for (int step = 0; step < 6000; ++step) {
    surface->setTint(1 + step % 26);
    if (step % 10 == 0) runFor(1);
  }
  surface->setTint(0);
  EXPECT_FALSE(lost) << "what flashes piles up until the connection breaks";
  const auto late = createOverlayBackend(*loop);  // a program that starts just now
  QCoreApplication::processEvents();
  EXPECT_EQ(late->limitation(), "error_no_overlay");
  ::kill(desktop.swayPid(), SIGCONT);
  EXPECT_TRUE(eventually([&] { return late->limitation().empty() && late->screens().size() == 1; }));
  EXPECT_TRUE(eventuallyStriped(0.7)) << "what was shown meanwhile";
}

TEST_F(WaylandOverlayTest, ExhaustedMemoryDelaysTheCoverAndNeverKeepsIt) {
  cover(nominalScene);
  ASSERT_TRUE(eventuallyStriped());
  const auto presentWithin = [&](auto resource, rlim_t limit, const OverlayScene& scene) {
    rlimit former{};
    getrlimit(resource, &former);
    const rlimit exhausted{limit, former.rlim_max};
    setrlimit(resource, &exhausted);
    surface->present(scene);
    setrlimit(resource, &former);
  };
  presentWithin(RLIMIT_NOFILE, 3, veiled(0.7));
  EXPECT_TRUE(eventuallyStriped(0.7)) << "once there is memory again";
  presentWithin(RLIMIT_FSIZE, 100'000, veiled(0.2));
  EXPECT_TRUE(eventuallyStriped(0.2)) << "once there is memory again";
  presentWithin(RLIMIT_FSIZE, 0, {});
  EXPECT_TRUE(eventuallyGrey(probe, 255));
}

/// Hundreds of screens that come and go within tenths of a second, calm and in an alert. Made to be run under
/// the sanitizers.
struct OutputStorm : OverlayTest, testing::WithParamInterface<Server> {
  static constexpr int mostScreens = 4;
  OutputStorm() : OverlayTest(GetParam(), true, mostScreens, {480, 320}) {}

  /// Whether the mean grey in the upper left of every screen is between these.
  bool everyScreenIs(int least, int most) {
    const auto screens = backend->screens();
    if (screens.size() != names.size()) return false;
    const int left = std::ranges::min(screens, {}, [](const Screen& s) { return s.frame.x; }).frame.x;
    const QImage image = screenshot();
    return std::ranges::all_of(screens, [&](const Screen& screen) {
      const QImage part = image.copy(screen.frame.x - left + 100, 100, 40, 40);
      const int grey = qGray(part.scaled(1, 1, Qt::IgnoreAspectRatio, Qt::SmoothTransformation).pixel(0, 0));
      return grey >= least && grey <= most;
    });
  }
};
INSTANTIATE_TEST_SUITE_P(Servers, OutputStorm, testing::Values(Server::x11, Server::wayland),
                         testing::PrintToStringParamName());

TEST_P(OutputStorm, LongHundredsComeAndGo) {
  std::minstd_rand random{20261121};
  const auto clock = std::make_shared<SystemClock>();
  const auto manager = std::make_shared<OverlayWindowManager>(backend, loop, clock);
  RetroPiPManager retro(manager, loop, clock);
  const auto toggleAlert = [&] {
    manager->isAlertMode = !manager->isAlertMode;
    manager->isAlertMode ? retro.openWindow() : retro.hide();
  };
  manager->currentAlpha = 0.75F;
  manager->show();
  for (int step = 0; step < 1000; ++step) {
    if (names.size() == 1 || (names.size() < mostScreens && random() % 2 == 0)) {
      addScreen();
    } else {
      const std::size_t first = isWayland() ? 0 : 1;
      removeScreen(first + random() % (names.size() - first));
    }
    if (random() % 10 == 0) toggleAlert();
    runFor(10 + static_cast<int>(random() % 191));
    if (step % 50 != 49) continue;
    ASSERT_TRUE(eventually([&] {
      return manager->isAlertMode ? everyScreenIs(0, 100) : everyScreenIs(190, 235);
    })) << step;
  }
  if (manager->isAlertMode) toggleAlert();
  manager->hide();
  EXPECT_TRUE(eventually([&] { return everyScreenIs(250, 255); }));
}

TEST(WaylandOutputState, ScaleIsFractionalAndSane) {
  const struct {
    const char* what;
    WaylandOutputState state;
    double scale;
    Rect frame;
  } cases[] = {
      {"in between", {"", {0, 0, 2560, 1440}, 3840, 2160, 2}, 1.5, {0, 0, 2560, 1440}},
      {"a turn not told", {"", {0, 0, 1440, 2560}, 3840, 2160, 2}, 2, {0, 0, 1440, 2560}},
      {"rounded sizes", {"", {0, 0, 911, 512}, 1366, 768, 2}, 1366.0 / 911, {0, 0, 911, 512}},
      {"an absurd extent", {"", {0, 0, 2, 1}, 3840, 2160, 1}, 1, {0, 0, 2, 1}},
      {"an absurd scale", {"", {}, 3840, 2160, 5000}, 8, {0, 0, 0, 0}},
      {"a scale of nothing", {"", {}, 3840, 2160, -1}, 1, {0, 0, 3840, 2160}},
      {"no mode", {"", {0, 0, 1920, 1080}, 0, 0, 1}, 1, {0, 0, 1920, 1080}},
  };
  for (const auto& [what, state, scale, frame] : cases) {
    EXPECT_NEAR(deviceScale(state), scale, 1e-9) << what;
    EXPECT_EQ(logicalFrame(state), frame) << what;
  }
}

TEST(X11Monitors, AreNumberedAndScaledAndCopiesAreLeftOut) {
  const Rect small{0, 0, 1920, 1080};
  const Rect large{1920, 0, 3840, 2160};
  const X11MonitorInfo laptop{"eDP-1", small, 310, false};
  const X11MonitorInfo desk{"DP-1", large, 600, true};
  const X11MonitorInfo turned{"DP-1", {0, 0, 2160, 3840}, 600, true};
  EXPECT_EQ(arrangeMonitors({turned}, {})[0].screen.id, arrangeMonitors({laptop, desk}, {})[1].screen.id);
  const struct {
    std::vector<X11MonitorInfo> monitors;
    const char* resources;
    const char* arranged;  // name, scale and logical width, the main one's with a star
  } cases[] = {
      {{}, "", ""},
      {{laptop, desk}, "", "eDP-1 1 1920, DP-1 1 3840*, "},
      {{{"HDMI-1", {0, 0, 1280, 720}, 0, false}, laptop}, "", "eDP-1 1 1920*, "},
      {{laptop, {"HDMI-2", small, 310, true}}, "", "HDMI-2 1 1920*, "},
      {{{"near", large, 340, true}}, "", "near 2 1920*, "},
      {{{"unknown", large, 0, true}}, "", "unknown 1 3840*, "},
      {{desk}, "Xft.antialias:\t1\nXft.dpi:\t192\nXft.rgba:\tnone\n", "DP-1 2 1920*, "},
      {{desk}, "Xft.dpi: 118.5", "DP-1 1.25 3072*, "},
      {{desk}, "Xft.dpi: 100000", "DP-1 1 3840*, "},
      {{desk}, "XXft.dpi: 144\nXft.dpiX: 144", "DP-1 1 3840*, "},
  };
  for (const auto& [monitors, resources, arranged] : cases) {
    std::ostringstream found;
    for (const auto& [screen, pixels] : arrangeMonitors(monitors, parseXftDpi(resources)))
      found << screen.name << " " << screen.scale << " " << screen.frame.width
            << (screen.isMain ? "*, " : ", ");
    EXPECT_EQ(found.str(), arranged) << resources;
  }
}

TEST(X11Monitors, HaveTheirPartOfTheWorkArea) {
  const Rect left{0, 0, 1920, 1080};
  const Rect right{1920, 500, 1280, 720};
  const struct {
    const char* what;
    Rect monitor;
    std::vector<Rect> areas;
    Rect expected;
  } cases[] = {
      {"nobody tells", right, {}, right},
      {"one for both", right, {{0, 30, 3200, 1190}}, right},
      {"a panel above", left, {{0, 30, 3200, 1190}}, {0, 30, 1920, 1050}},
      {"one each", right, {{0, 0, 1920, 1040}, {1920, 530, 1280, 690}}, {1920, 530, 1280, 690}},
      {"a panel of the lower monitor, for both", left, {{0, 560, 3200, 660}}, left},
      {"elsewhere", right, {{0, 0, 1920, 1080}}, right},
      {"nonsense", left, {{-1, -1, -1, -1}, {2147483647, 0, 2147483647, -7}}, left},
  };
  for (const auto& [what, monitor, areas, expected] : cases)
    EXPECT_EQ(workAreaOf(monitor, areas), expected) << what;
}

}  // namespace
}  // namespace sentrel::test
