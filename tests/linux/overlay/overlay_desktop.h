// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <xcb/xcb.h>
#include <QByteArray>
#include <QEventLoop>
#include <QGuiApplication>
#include <QImage>
#include <QPoint>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "linux/desktop/qt_main_loop.h"
#include "linux/overlay/desktop_overlay_backend.h"
#include "linux/overlay/stripe_reference.h"
#include "stage/headless_desktop.h"

namespace sentrel::test {

/// The second is an X server that looks as one behind Mutter does.
enum class Server { x11, xwayland, wayland };
inline void PrintTo(Server server, std::ostream* out) {
  *out << (server == Server::x11 ? "x11" : server == Server::xwayland ? "xwayland" : "wayland");
}

inline constexpr StripePattern darkStripes{11.3137, 0x000000, 0.42, 1};
inline const OverlayScene nominalScene{.stripes = darkStripes, .shortcutInHint = true};
inline const OverlayScene alertScene{
    .stripes = darkStripes, .veilAlpha = 0.7, .banner = true, .shortcutInHint = true};

/// A new onlooker's picture of a flat grey, which is `retroColor` between two scan lines.
[[nodiscard]] inline RetroPicture flatPicture() {
  auto picture = std::make_shared<GreyPicture>();
  *picture = {1, 1, FrameMemory<std::uint8_t>(1)};
  picture->levels[0] = 200;
  return {picture, 0};
}
inline constexpr QRgb retroColor = 0xFF24C838;

/// A private desktop of white screens side by side, at first one, and this process's back end on it. Screens
/// of Wayland are windows of an X server, so that they have a pointer and can go.
class OverlayDesktop {
 public:
  struct Options {
    Server server;
    bool compositor = true;
    int width = 1024;
    int height = 640;
    int mostScreens = 2;
  };
  explicit OverlayDesktop(const Options& options)
      : desktop({.x11 = true,
                 .windowManager = false,
                 .compositor = options.server != Server::wayland && options.compositor,
                 .sway = options.server == Server::wayland,
                 .width = options.width * (options.server == Server::wayland ? 1 : options.mostScreens),
                 .height = options.height}),
        options_(options) {
    desktop.exportToProcess();
    furnish();
    backend = createOverlayBackend(*loop);
  }

  void addScreen() {  ///< beside the others
    if (isWayland()) {
      names_.push_back("X11-" + std::to_string(++outputs_));
      if (outputs_ > 1) sway("create_output");
      return;
    }
    const char* prefix = options_.server == Server::xwayland ? "XWAYLAND" : "monitor";
    std::string name = prefix + std::to_string(0);
    int place = 0;
    while (std::ranges::count(names_, name) > 0) name = prefix + std::to_string(++place);
    names_.push_back(name);
    desktop.run("xrandr", {"--setmonitor", name,
                           std::to_string(options_.width) + "/271x" + std::to_string(options_.height) +
                               "/169+" + std::to_string(place * options_.width) + "+0",
                           place == 0 ? "screen" : "none"});
  }
  /// In the order of their coming. An X server cannot do without the first.
  void removeScreen(std::size_t index) {
    const std::string name = names_.at(index);
    std::erase(names_, name);
    if (isWayland()) return desktop.removeOutput(name);
    desktop.run("xrandr", {"--delmonitor", name});
  }
  [[nodiscard]] std::size_t screenCount() const { return names_.size(); }

  /// Makes the window manager known as Mutter, or as another one.
  void setMutter(bool isMutter) {
    if (!isMutter) {
      desktop.run("xprop", {"-root", "-remove", "_NET_SUPPORTING_WM_CHECK"});
      return;
    }
    mutter_.reset(xcb_connect(nullptr, nullptr));
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(mutter_.get())).data->root;
    const std::uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(mutter_.get(), root, XCB_CW_EVENT_MASK, &events);
    xcb_flush(mutter_.get());
    // The root window serves as the one on which a window manager describes itself.
    desktop.run("xprop", {"-root", "-f", "_MUTTER_VERSION", "8u", "-set", "_MUTTER_VERSION", "43.8"});
    desktop.run("xprop", {"-root", "-f", "_NET_SUPPORTING_WM_CHECK", "32c", "-set",
                          "_NET_SUPPORTING_WM_CHECK", std::to_string(root)});
  }
  /// Whether it answers what it is asked, which it does from `eventually`.
  void setMutterBusy(bool busy) { mutterBusy_ = busy; }
  void kill() { isWayland() ? desktop.killSway() : desktop.killX(); }  ///< the display server, as a crash
  /// False when it has another display now, where nobody looks for it.
  [[nodiscard]] bool restart() {
    const std::string former = desktop.environment().at("DISPLAY");
    if (isWayland()) {
      desktop.startSway();
      return true;
    }
    desktop.startX();
    names_.clear();
    furnish();
    return desktop.environment().at("DISPLAY") == former;
  }
  void sway(const std::string& command) { desktop.run("swaymsg", {command}); }

  QImage screenshot() {
    desktop.screenshot(desktop.home() / "screen.png");
    return QImage(QString::fromStdString((desktop.home() / "screen.png").string()));
  }
  /// Clicks there and waits for the click in the window that lies below everything.
  bool clickArrivesBelow(QPoint at) {
    if (!below_.isRunning()) openWindowBelow();
    const char* press = isWayland() ? "pressed" : "ButtonPress event";
    desktop.run("xdotool",
                {"mousemove", "--sync", std::to_string(at.x()), std::to_string(at.y()), "click", "1"});
    ++clicks_;
    return eventually([&] { return QByteArray::fromStdString(below_.output()).count(press) == clicks_; });
  }

  /// Runs the event loop until the condition holds.
  template <class Condition>
  [[nodiscard]] bool eventually(Condition&& condition) {
    return waitUntil([&] {
      processEvents();
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
  bool eventuallyStriped(int columns, int rows, double scale, double veil = 0) {
    return eventually([&] {
      const QImage image = screenshot();
      if (image.width() < columns || image.height() != rows) return false;
      for (int i = 0; i < 200; ++i) {
        // Between the hint, what the window below everything draws, and the picture-in-picture.
        const QPoint at(4 + (i * 131) % (columns - 8), 72 + (i * 37) % (rows / 2 - 40));
        const double stripe =
            0.42 * sampledStripeCoverage(columns, rows, scale, darkStripes.period, at.x(), at.y());
        if (std::abs(qRed(image.pixel(at)) - 255 * (1 - stripe) * (1 - veil)) > 3) return false;
      }
      return true;
    });
  }

  static inline int argumentCount = 1;
  static inline char program[] = "test";                 // NOLINT(modernize-avoid-c-arrays)
  static inline char* arguments[] = {program, nullptr};  // NOLINT(modernize-avoid-c-arrays)
  QGuiApplication application{(qputenv("QT_QPA_PLATFORM", "offscreen"), argumentCount), arguments};
  HeadlessDesktop desktop;
  std::shared_ptr<QtMainLoop> loop = std::make_shared<QtMainLoop>();
  std::shared_ptr<OverlayBackend> backend;

 private:
  [[nodiscard]] bool isWayland() const { return options_.server == Server::wayland; }
  void furnish() {
    addScreen();
    if (options_.server == Server::xwayland) setMutter(true);
    if (!isWayland()) openWindowBelow();  // the ground itself is not white
  }
  void processEvents() {
    // With a wait, as in the program: before it the back end looks at what has come with something else.
    QEventLoop events;
    QTimer::singleShot(1, &events, &QEventLoop::quit);
    events.exec();
    if (mutter_ && !mutterBusy_) answerAsMutter();
  }
  void openWindowBelow() {
    if (isWayland()) {
      below_ = desktop.spawn("stdbuf", {"-oL", "wev", "-f", "wl_pointer:button"});
      (void)waitUntil([this] {
        return desktop.run("swaymsg", {"-t", "get_tree"}).find("wev") != std::string::npos;
      });
      return;
    }
    const std::string size = std::to_string(options_.width * options_.mostScreens) + "x" +
                             std::to_string(options_.height) + "+0+0";
    below_ = desktop.spawn("stdbuf", {"-oL", "xev", "-geometry", size, "-event", "button"});
    (void)waitUntil([this] { return qRed(screenshot().pixel(100, 100)) == 255; });
  }
  /// How wide a window's frame is, as a property of that window.
  void answerAsMutter() {
    while (xcb_generic_event_t* event = xcb_poll_for_event(mutter_.get())) {
      const auto& message = reinterpret_cast<const xcb_client_message_event_t&>(*event);
      if ((event->response_type & 0x7FU) == XCB_CLIENT_MESSAGE) {
        const std::uint32_t none = 0;
        xcb_change_property(mutter_.get(), XCB_PROP_MODE_REPLACE, message.window, message.type,
                            XCB_ATOM_CARDINAL, 32, 1, &none);
      }
      std::free(event);
    }
    xcb_flush(mutter_.get());
  }

  Options options_;
  int outputs_ = 0;  // of Wayland, that were ever there
  std::vector<std::string> names_;
  ChildProcess below_;
  int clicks_ = 0;
  std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> mutter_{nullptr, &xcb_disconnect};
  bool mutterBusy_ = false;
};

}  // namespace sentrel::test
