// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/overlay_desktop.h"

#include <QEventLoop>
#include <QGuiApplication>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <ostream>

#include "linux/overlay/desktop_overlay_backend.h"
#include "linux/overlay/stripe_reference.h"

namespace sentrel::test {

std::size_t count(const std::string& text, const std::string& word) {
  std::size_t result = 0;
  for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++result;
  return result;
}

WithApplication::WithApplication() {
  static int argumentCount = 1;
  static char name[] = "test";                 // NOLINT(modernize-avoid-c-arrays)
  static char* arguments[] = {name, nullptr};  // NOLINT(modernize-avoid-c-arrays)
  qputenv("QT_QPA_PLATFORM", "offscreen");
  static const QGuiApplication application(argumentCount, arguments);
}

void PrintTo(Server server, std::ostream* out) {
  *out << (server == Server::x11 ? "x11" : server == Server::xwayland ? "xwayland" : "wayland");
}

OverlayDesktop::OverlayDesktop(const Options& options)
    : desktop({.x11 = true,
               .windowManager = false,
               .compositor = options.server != Server::wayland && options.compositing == Compositing::there,
               .sway = options.server == Server::wayland,
               .width = options.width * (options.server == Server::wayland ? 1 : options.mostScreens),
               .height = options.height}),
      options_(options),
      places_(static_cast<std::size_t>(options.mostScreens)) {
  desktop.exportToProcess();
  addScreen();
  if (options_.server == Server::xwayland) setMutter(true);
  if (options_.server != Server::wayland) openWindowBelow();  // the ground itself is not white
  backend = createOverlayBackend(*loop);
}

void OverlayDesktop::openWindowBelow() {
  if (options_.server == Server::wayland) {
    below_ = desktop.spawn("stdbuf", {"-oL", "wev", "-f", "wl_pointer:button"});
    (void)waitUntil([this] { return count(desktop.run("swaymsg", {"-t", "get_tree"}), "wev") > 0; });
    return;
  }
  const std::string size =
      std::to_string(options_.width * options_.mostScreens) + "x" + std::to_string(options_.height) + "+0+0";
  below_ = desktop.spawn("stdbuf", {"-oL", "xev", "-geometry", size, "-event", "button"});
  (void)waitUntil([this] { return qRed(screenshot().pixel(100, 100)) == 255; });
}

void OverlayDesktop::addScreen() {
  const bool wayland = options_.server == Server::wayland;
  const char* prefix = wayland ? "X11-" : options_.server == Server::xwayland ? "XWAYLAND" : "monitor";
  names_.push_back(prefix + std::to_string(++screens_));
  if (wayland) {
    if (screens_ > 1) sway("create_output");
    return;
  }
  const auto place = std::ranges::find(places_, "");
  *place = names_.back();
  desktop.run("xrandr", {"--setmonitor", names_.back(),
                         std::to_string(options_.width) + "/271x" + std::to_string(options_.height) +
                             "/169+" + std::to_string((place - places_.begin()) * options_.width) + "+0",
                         names_.size() == 1 ? "screen" : "none"});
}

void OverlayDesktop::removeScreen(std::size_t index) {
  const std::string name = names_.at(index);
  std::erase(names_, name);
  std::ranges::replace(places_, name, "");
  if (options_.server == Server::wayland) return desktop.removeOutput(name);
  desktop.run("xrandr", {"--delmonitor", name});
}

void OverlayDesktop::setMutter(bool isMutter) {
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
  desktop.run("xprop", {"-root", "-f", "_NET_SUPPORTING_WM_CHECK", "32c", "-set", "_NET_SUPPORTING_WM_CHECK",
                        std::to_string(root)});
}

void OverlayDesktop::kill() {
  options_.server == Server::wayland ? desktop.killSway() : desktop.killX();
}

bool OverlayDesktop::restart() {
  const std::string former = desktop.environment().at("DISPLAY");
  if (options_.server == Server::wayland) {
    desktop.startSway();
    return true;
  }
  desktop.startX();
  names_.clear();
  std::ranges::fill(places_, "");
  screens_ = 0;
  addScreen();
  if (options_.server == Server::xwayland) setMutter(true);
  openWindowBelow();
  return desktop.environment().at("DISPLAY") == former;
}

void OverlayDesktop::processEvents() {
  // With a wait, as in the program: before it the back end looks at what has come with something else.
  QEventLoop events;
  QTimer::singleShot(1, &events, &QEventLoop::quit);
  events.exec();
  if (mutter_ && !mutterBusy_) answerAsMutter();
}

/// How wide a window's frame is, as a property of that window.
void OverlayDesktop::answerAsMutter() {
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

QImage OverlayDesktop::screenshot() {
  desktop.screenshot(desktop.home() / "screen.png");
  return QImage(QString::fromStdString((desktop.home() / "screen.png").string()));
}

bool OverlayDesktop::clickArrivesBelow(QPoint at) {
  if (!below_.isRunning()) openWindowBelow();
  const char* press = options_.server == Server::wayland ? "pressed" : "ButtonPress event";
  desktop.run("xdotool",
              {"mousemove", "--sync", std::to_string(at.x()), std::to_string(at.y()), "click", "1"});
  ++clicks_;
  return eventually([&] { return count(below_.output(), press) == clicks_; });
}

bool OverlayDesktop::eventuallyGrey(QPoint at, double grey) {
  return eventually([&] { return std::abs(qRed(screenshot().pixel(at)) - grey) <= 2; });
}

bool OverlayDesktop::eventuallyColor(QPoint at, QRgb color) {
  return eventually([&] { return screenshot().pixel(at) == color; });
}

bool OverlayDesktop::eventuallyStriped(int columns, int rows, double scale, double veil) {
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

RetroPicture flatPicture() {
  auto picture = std::make_shared<GreyPicture>();
  *picture = {1, 1, FrameMemory<std::uint8_t>(1)};
  picture->levels[0] = 200;
  return {picture, 0};
}

}  // namespace sentrel::test
