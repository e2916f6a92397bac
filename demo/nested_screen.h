// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPoint>
#include <filesystem>
#include <string>

#include "stage/headless_desktop.h"

namespace sentrel::test {

/// The X server that a Wayland compositor has its outputs on, as windows: what goes in there comes to the
/// compositor as from a mouse and a keyboard. To be made while DISPLAY still leads to that server.
class NestedScreen {
 public:
  explicit NestedScreen(HeadlessDesktop& desktop)
      : desktop_(desktop), display_(desktop.environment().at("DISPLAY")) {}

  /// Of the server, as in DISPLAY.
  [[nodiscard]] const std::string& display() const { return display_; }

  /// In pixels of the server. The pointer comes through a place beside it, as that of a hand: an X server
  /// within the compositor loses a click before the pointer has moved on its window.
  void click(QPoint at) const {
    const std::string x = std::to_string(at.x());
    const std::string y = std::to_string(at.y());
    run("xdotool", {"mousemove", std::to_string(at.x() - 4), y, "sleep", "0.03", "mousemove", x, y, "sleep",
                    "0.03", "click", "1"});
  }
  /// As in `DesktopShell::pressKey`.
  void pressKey(const std::string& keys) const { run("xdotool", {"key", keys}); }
  void screenshot(const std::filesystem::path& path) const {
    run("import", {"-silent", "-window", "root", "png:" + path.string()});
  }

  /// Runs a program with this server as its display, and gives what it printed.
  std::string run(const std::string& program, std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"-u", "XAUTHORITY", "DISPLAY=" + display_, program});
    return desktop_.run("env", arguments);
  }

 private:
  HeadlessDesktop& desktop_;
  const std::string display_;
};

}  // namespace sentrel::test
