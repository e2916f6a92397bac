// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonArray>
#include <QJsonValue>
#include <QPoint>
#include <QRect>
#include <QString>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "stage/headless_desktop.h"

namespace sentrel::test {

/// What a desktop cannot do, or not without a screen. The words say why, and stand in the table of a trial.
class NotHere : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// How a desktop is set to look.
enum class Appearance { light, dark, highContrast };

/// In GNOME's settings, which other desktops go by, too.
void setInSettings(HeadlessDesktop& desktop, Appearance appearance);

/// Where mako shows the newest alert below a panel of this height, unless it is told otherwise; nothing while
/// it shows none.
[[nodiscard]] std::optional<QRect> shownByMako(HeadlessDesktop& desktop, int panelHeight);

/// A real desktop without a screen, of one output of 1920 x 1080 at first, started on the services of a
/// `HeadlessDesktop`: what a person does with it, and what a trial must know of it. Ready when it is made,
/// the environment of the `HeadlessDesktop` leads to it, and it ends with the object. Coordinates are those
/// of the desktop's own layout, those of pictures are pixels of the screen. Whatever a desktop does not have
/// throws `NotHere`; other failures throw std::runtime_error. Main thread.
class DesktopShell {
 public:
  DesktopShell() = default;
  virtual ~DesktopShell() = default;
  DesktopShell(const DesktopShell&) = delete;
  DesktopShell& operator=(const DesktopShell&) = delete;

  /// Its name and version, as in "GNOME Shell 43.9".
  [[nodiscard]] virtual std::string version() const = 0;

  /// Moves the pointer there, then presses and releases its first button, as a mouse would.
  virtual void click(QPoint at) = 0;
  /// Puts a finger there and takes it away.
  virtual void touch(QPoint /*at*/) { throw NotHere("no touch screen"); }
  /// Presses and releases a key, after the modifiers before it: "a", "Return", "ctrl+alt+shift+c". Names are
  /// those of X without their prefix.
  virtual void pressKey(const std::string& keys) = 0;

  /// Where the window of this title is, without shadows; nothing where there is none.
  [[nodiscard]] virtual std::optional<QRect> window(const QString& title) = 0;
  /// What would get a click there, in words, to tell why one is lost.
  [[nodiscard]] virtual QString under(QPoint at) = 0;
  /// Puts it above every other window that is no panel, for good.
  virtual void raiseWindow(const QString& title) = 0;
  virtual void maximizeWindow(const QString& title) = 0;
  /// With which a program that is started shows that a person wanted it: a new window gets the focus then.
  /// Empty where nobody asks for one.
  [[nodiscard]] virtual std::string startupToken() { return {}; }

  /// Where it can be clicked on the panel so that `panelClicks()` counts it.
  [[nodiscard]] virtual std::vector<QPoint> panelSpots() { throw NotHere("no panel"); }
  /// How many presses the panel has got so far.
  [[nodiscard]] virtual int panelClicks() { throw NotHere("no panel"); }
  /// While it is deaf, the panel counts presses and does nothing else.
  virtual void setPanelDeaf(bool /*deaf*/) {}

  /// A key that the desktop keeps for itself, and how many times it has answered it so far.
  [[nodiscard]] virtual std::string desktopKey() { throw NotHere("no key of the desktop's own"); }
  [[nodiscard]] virtual int desktopKeys() { throw NotHere("no key of the desktop's own"); }
  /// Presses the keys of a program's shortcut, where the desktop lets programs have some.
  virtual void pressShortcut(const std::string& keys) { pressKey(keys); }
  /// Where a notification is shown; nothing while there is none.
  [[nodiscard]] virtual std::optional<QRect> notification() { throw NotHere("no notifications"); }

  /// Opens or closes the overview with the mouse, as a person would; returns when that has happened.
  virtual void clickOverview(bool /*open*/) { throw NotHere("no overview"); }

  /// Lets what composes the screen hang, or go on.
  virtual void setHanging(bool hangs) = 0;
  /// Saves the composed screen as PNG; the path is absolute.
  virtual void screenshot(const std::filesystem::path& path) = 0;

  /// Plugs in or pulls out a second screen, to the right of the first one; returns where it is, in the layout
  /// and in a picture of everything.
  virtual QRect addOutput() { throw NotHere("one screen only"); }
  virtual void removeOutput() { throw NotHere("one screen only"); }
  /// Of every output; 1 at the start.
  virtual void setScale(double /*scale*/) { throw NotHere("one scale only"); }

  virtual void setAppearance(Appearance /*appearance*/) { throw NotHere("one appearance only"); }
  /// By the desktop's own locker; returns when the screen is locked or unlocked.
  virtual void setLocked(bool /*locked*/) { throw NotHere("no locker"); }

 protected:
  /// The processor draws it all, on a machine that may be busy.
  static constexpr std::chrono::seconds startLimit{240};
  static constexpr std::chrono::milliseconds lookInterval{100};

  /// Throws std::runtime_error where it does not come to that.
  static void waitFor(const std::string& words, const std::function<bool()>& condition,
                      std::chrono::milliseconds limit = startLimit);
  /// Throws std::runtime_error, with what the program printed, where it ends before that or it takes too
  /// long.
  static void waitForStart(ChildProcess& program, const std::string& name,
                           const std::function<bool()>& isReady,
                           std::chrono::milliseconds interval = lookInterval);
  /// What a program prints, without the space at its ends.
  [[nodiscard]] static std::string outputOf(HeadlessDesktop& desktop, const std::string& program,
                                            const std::vector<std::string>& arguments);

  // For desktops that are asked in JavaScript.
  /// A list, to be written into a script.
  [[nodiscard]] static QString inScript(const QJsonArray& values);
  /// Of an object with x, y, width and height; nothing of anything else.
  [[nodiscard]] static std::optional<QRect> rectOf(const QJsonValue& value);
};

/// A desktop that can be tried.
struct DesktopKind {
  const char* name;
  HeadlessDesktop::Options options;  ///< what it is started on
  /// Whether its own windows are Wayland's; X11 windows are there either way.
  bool wayland;
  std::unique_ptr<DesktopShell> (*start)(HeadlessDesktop& desktop);
};

/// All that there are.
[[nodiscard]] const std::vector<DesktopKind>& desktopKinds();

// By family, for `desktopKinds()` alone.
[[nodiscard]] std::unique_ptr<DesktopShell> startGnomeOnWayland(HeadlessDesktop& desktop);
[[nodiscard]] std::unique_ptr<DesktopShell> startGnomeOnX11(HeadlessDesktop& desktop);
[[nodiscard]] std::unique_ptr<DesktopShell> startXfce(HeadlessDesktop& desktop);
[[nodiscard]] std::unique_ptr<DesktopShell> startKWinOnX11(HeadlessDesktop& desktop);
[[nodiscard]] std::unique_ptr<DesktopShell> startPlasmaOnWayland(HeadlessDesktop& desktop);
[[nodiscard]] std::unique_ptr<DesktopShell> startSway(HeadlessDesktop& desktop);
[[nodiscard]] std::unique_ptr<DesktopShell> startWayfire(HeadlessDesktop& desktop);

}  // namespace sentrel::test
