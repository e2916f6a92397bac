// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <xcb/xcb.h>
#include <QImage>
#include <QPoint>

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "linux/desktop/qt_main_loop.h"
#include "platform/overlay_surface.h"
#include "stage/headless_desktop.h"

namespace sentrel::test {

/// The second is an X server that looks as one behind Mutter does.
enum class Server { x11, xwayland, wayland };
void PrintTo(Server server, std::ostream* out);
/// How often a word stands in a text.
[[nodiscard]] std::size_t count(const std::string& text, const std::string& word);

inline constexpr StripePattern darkStripes{11.3137, 0x000000, 0.42, 1};
inline const OverlayScene nominalScene{.stripes = darkStripes, .shortcutInHint = true};
inline const OverlayScene alertScene{
    .stripes = darkStripes, .veilAlpha = 0.7, .banner = true, .shortcutInHint = true};

/// A new onlooker's picture of a flat grey, which is `retroColor` between two scan lines.
[[nodiscard]] RetroPicture flatPicture();
inline constexpr QRgb retroColor = 0xFF24C838;

/// The one application of the process; it needs no display of its own.
struct WithApplication {
  WithApplication();
};

/// A private desktop of white screens side by side, at first one, and this process's back end on it. Screens
/// of Wayland are windows of an X server, so that they have a pointer and can go.
class OverlayDesktop : private WithApplication {
 public:
  enum class Compositing { there, missing };
  struct Options {
    Server server;
    Compositing compositing = Compositing::there;
    int width = 1024;
    int height = 640;
    int mostScreens = 2;
  };
  explicit OverlayDesktop(const Options& options);

  void addScreen();  ///< beside the others
  /// In the order of their coming. An X server cannot do without the first.
  void removeScreen(std::size_t index);
  [[nodiscard]] std::size_t screenCount() const { return names_.size(); }
  /// Makes the window manager known as Mutter, or as another one.
  void setMutter(bool isMutter);
  /// Whether it answers what it is asked, which it does from `eventually`.
  void setMutterBusy(bool busy) { mutterBusy_ = busy; }
  void kill();  ///< the display server, as a crash
  /// False when it has another display now, where nobody looks for it.
  [[nodiscard]] bool restart();
  void sway(const std::string& command) { desktop.run("swaymsg", {command}); }

  [[nodiscard]] QImage screenshot();
  /// Clicks there and waits for the click in the window that lies below everything.
  [[nodiscard]] bool clickArrivesBelow(QPoint at);

  /// Runs the event loop until the condition holds.
  template <class Condition>
  [[nodiscard]] bool eventually(Condition&& condition) {
    return waitUntil([&] {
      processEvents();
      return condition();
    });
  }
  [[nodiscard]] bool eventuallyGrey(QPoint at, double grey);
  [[nodiscard]] bool eventuallyColor(QPoint at, QRgb color);
  /// Waits until the first screen, of this size, is white under `darkStripes` and a veil.
  [[nodiscard]] bool eventuallyStriped(int columns, int rows, double scale, double veil = 0);
  HeadlessDesktop desktop;
  std::shared_ptr<QtMainLoop> loop = std::make_shared<QtMainLoop>();
  std::shared_ptr<OverlayBackend> backend;

 private:
  void processEvents();
  void openWindowBelow();
  void answerAsMutter();

  Options options_;
  int screens_ = 0;  // that were ever there
  std::vector<std::string> names_;
  std::vector<std::string> places_;  // by name, side by side; those of X only
  ChildProcess below_;
  std::size_t clicks_ = 0;
  std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> mutter_{nullptr, &xcb_disconnect};
  bool mutterBusy_ = false;
};

}  // namespace sentrel::test
