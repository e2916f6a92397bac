// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonValue>
#include <QPoint>
#include <QRect>
#include <QString>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>

#include "stage/bus_doubles.h"
#include "stage/headless_desktop.h"

namespace sentrel::test {

/// GNOME's shell as the Wayland compositor of a private desktop, with one virtual monitor that the processor
/// draws, and with its own X server. What a person does with the mouse comes from a virtual device of the
/// shell's, so that it takes the way of a real one. Main thread.
class GnomeShell {
 public:
  /// Ready when it returns: the desktop is seen, not the overview, and the desktop's environment leads to it.
  /// Needs both buses, and activation on the session's. Throws std::runtime_error.
  GnomeShell(HeadlessDesktop& desktop, QSize size);
  ~GnomeShell();
  GnomeShell(const GnomeShell&) = delete;
  GnomeShell& operator=(const GnomeShell&) = delete;

  /// Moves the pointer there, in pixels of the monitor, then presses and releases its first button.
  void click(QPoint at) const;
  /// Where the window of this title is, without shadows.
  [[nodiscard]] std::optional<QRect> window(const QString& title) const;
  /// What would get a click there.
  [[nodiscard]] QString under(QPoint at) const;
  void raiseWindow(const QString& title) const;
  void maximizeWindow(const QString& title) const;
  /// With which a program that is started shows that a person wanted it: a new window gets the focus then.
  [[nodiscard]] QString startupToken() const;
  /// How many presses the panel has got. While it is deaf they do nothing else.
  [[nodiscard]] int panelClicks() const;
  void setPanelDeaf(bool deaf) const;
  [[nodiscard]] bool overviewIsOpen() const;
  /// Lets it hang, or go on.
  void setHanging(bool hangs) const { process_.signal(hangs ? SIGSTOP : SIGCONT); }
  /// Saves the composed monitor as PNG; the path is absolute.
  void screenshot(const std::filesystem::path& path) const;

 private:
  /// What an expression is within the shell.
  [[nodiscard]] QJsonValue evaluate(const QString& expression) const;
  void waitUntilStarted();

  BusClient bus_;
  ChildProcess process_;
};

}  // namespace sentrel::test
