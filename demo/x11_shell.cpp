// SPDX-License-Identifier: Apache-2.0
#include <QRegularExpression>
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <fstream>
#include <iterator>
#include <sstream>

#include "desktop_shell.h"
#include "kde_session.h"
#include "screen_locker.h"
#include "x11_outputs.h"

namespace sentrel::test {

namespace {

namespace fs = std::filesystem;

/// Any desktop on X11: mouse and keys by the server's test extension, windows as the window manager tells of
/// them, pictures of the root window.
class X11Shell : public DesktopShell {
 public:
  X11Shell(HeadlessDesktop& desktop, const std::string& name) : desktop_(desktop) {
    desktop.setVariable("XDG_CURRENT_DESKTOP", name);
    desktop.setVariable("XDG_SESSION_TYPE", "x11");
    desktop.run("dbus-update-activation-environment", {"--all"});
  }
  ~X11Shell() override { windowManager_.signal(SIGCONT); }
  X11Shell(const X11Shell&) = delete;
  X11Shell& operator=(const X11Shell&) = delete;

  void click(QPoint at) override {
    desktop_.run("xdotool", {"mousemove", std::to_string(at.x()), std::to_string(at.y()), "click", "1"});
  }
  void pressKey(const std::string& keys) override { desktop_.run("xdotool", {"key", keys}); }

  [[nodiscard]] std::optional<QRect> window(const QString& title) override {
    return windowOf({"--name", "^" + title.toStdString() + "$"});
  }

  [[nodiscard]] QString under(QPoint at) override {
    const std::string printed = desktop_.run(
        "xdotool",
        {"mousemove", std::to_string(at.x()), std::to_string(at.y()), "getmouselocation", "--shell"});
    const std::string window = printed.substr(printed.find("WINDOW=") + 7);
    return QString::fromStdString(desktop_.run("xprop", {"-id", window, "WM_NAME", "WM_CLASS"})).simplified();
  }

  void raiseWindow(const QString& title) override { setState(title, "above"); }
  void maximizeWindow(const QString& title) override { setState(title, "maximized_vert,maximized_horz"); }
  void setHanging(bool hangs) override { windowManager_.signal(hangs ? SIGSTOP : SIGCONT); }
  QRect addOutput() override { return outputs_.addSecond(); }
  void removeOutput() override { outputs_.removeSecond(); }
  void screenshot(const fs::path& path) override { desktop_.screenshot(path); }

 protected:
  /// Returns once it manages windows and blends them. It is what can hang.
  void startWindowManager(const std::string& program, const std::vector<std::string>& arguments) {
    windowManager_ = desktop_.spawn(program, arguments);
    waitForStart(windowManager_, program,
                 [this] { return desktop_.hasWindowManager() && desktop_.hasCompositor(); });
  }

  /// Where the first window is that xdotool finds so.
  [[nodiscard]] std::optional<QRect> windowOf(std::vector<std::string> search) {
    search.insert(search.begin(), {"search", "--onlyvisible"});
    ChildProcess found = desktop_.spawn("xdotool", search);
    if (found.waitForExit(std::chrono::seconds(30)) != 0) return {};
    std::string id;
    std::istringstream(found.output()) >> id;
    if (id.empty()) return {};
    const QString printed = QString::fromStdString(desktop_.run("xwininfo", {"-id", id}));
    const auto numberAfter = [&](const char* words) {
      static const QRegularExpression number(QStringLiteral(": +(-?\\d+)"));
      return number.match(printed, printed.indexOf(QLatin1String(words))).captured(1).toInt();
    };
    return QRect(numberAfter("Absolute upper-left X"), numberAfter("Absolute upper-left Y"),
                 numberAfter("Width"), numberAfter("Height"));
  }

  /// Of the Debian package.
  [[nodiscard]] std::string versionOf(const std::string& package) const {
    return outputOf(desktop_, "dpkg-query", {"-W", "-f", "${source:Upstream-Version}", package});
  }

  HeadlessDesktop& desktop_;

 private:
  void setState(const QString& title, const std::string& state) {
    desktop_.run("wmctrl", {"-F", "-r", title.toStdString(), "-b", "add," + state});
  }

  X11Outputs outputs_{desktop_};
  ChildProcess windowManager_;
};

/// Xfce as it is installed, but for a panel of which each click can be counted.
class Xfce final : public X11Shell {
 public:
  explicit Xfce(HeadlessDesktop& desktop) : X11Shell(desktop, "XFCE") {
    writePanel();
    set("xfce4-keyboard-shortcuts", "/commands/custom/override", "bool", "true");
    set("xfce4-keyboard-shortcuts", "/commands/custom/<Super><Alt>k", "string", writeCounter("desktop-keys"));
    settings_ = desktop.spawn("xfsettingsd", {"--no-daemon"});
    // As a session starts it, before any other that is installed.
    notifications_ = desktop.spawn(
        "sh", {"-c", "eval exec \"$(sed -n 's/^Exec=//p' /etc/xdg/autostart/xfce4-notifyd.desktop)\""});
    startWindowManager("xfwm4", {"--compositor=on"});
    panel_ = desktop.spawn("xfce4-panel", {"--disable-wm-check", "--sm-client-disable"});
    // It is there before its buttons are.
    const auto isClicked = [this] {
      for (const QPoint spot : panelSpots()) click(spot);
      return panelClicks() >= static_cast<int>(launchers.size());
    };
    waitForStart(panel_, "xfce4-panel", isClicked, std::chrono::milliseconds(500));
  }

  [[nodiscard]] std::string version() const override { return "Xfwm4 " + versionOf("xfwm4"); }

  // Three at the left, and the last thing of the panel.
  [[nodiscard]] std::vector<QPoint> panelSpots() override {
    return {{14, 16}, {44, 16}, {74, 16}, {1904, 16}};
  }
  [[nodiscard]] int panelClicks() override { return counted("panel-clicks"); }
  [[nodiscard]] std::string desktopKey() override { return "super+alt+k"; }
  [[nodiscard]] int desktopKeys() override { return counted("desktop-keys"); }
  [[nodiscard]] std::optional<QRect> notification() override {
    return windowOf({"--class", "Xfce4-notifyd"});
  }

  void setScale(double scale) override {
    if (scale != std::floor(scale)) throw NotHere("whole scales only");
    set("xsettings", "/Gdk/WindowScalingFactor", "int", std::to_string(static_cast<int>(scale)));
  }

  void setAppearance(Appearance appearance) override {
    set("xsettings", "/Net/ThemeName", "string",
        appearance == Appearance::light  ? "Adwaita"
        : appearance == Appearance::dark ? "Adwaita-dark"
                                         : "HighContrast");
  }

  /// As its session manager does, by the command that the person has chosen.
  void setLocked(bool locked) override {
    if (!locked) return locker_.end();
    locking_ = desktop_.spawn("sh", {"-c", locker_.command()});
    locker_.waitUntilShown(*this);
  }

 private:
  static constexpr std::array launchers{1, 2, 3, 7};

  /// How many times the command has run that adds a line to this file.
  [[nodiscard]] int counted(const char* file) const {
    std::ifstream lines(desktop_.home() / file);
    return static_cast<int>(std::count(std::istreambuf_iterator<char>(lines), {}, '\n'));
  }

  [[nodiscard]] fs::path writeCounter(const char* file) const {
    const fs::path command = desktop_.home() / (std::string("count-") + file);
    std::ofstream(command) << "#!/bin/sh\necho >>'" << (desktop_.home() / file).string() << "'\n";
    fs::permissions(command, fs::perms::owner_all);
    return command;
  }

  void set(const std::string& channel, const std::string& property, const std::string& type,
           const std::string& value) const {
    desktop_.run("xfconf-query", {"-c", channel, "-p", property, "-n", "-t", type, "-s", value});
  }

  void writePanel() const {
    const fs::path xfce = desktop_.configFolder() / "xfce4";
    const fs::path command = writeCounter("panel-clicks");
    std::ostringstream plugins;
    for (const int id : launchers) {
      const std::string name = "launcher-" + std::to_string(id);
      fs::create_directories(xfce / "panel" / name);
      std::ofstream(xfce / "panel" / name / "count.desktop")
          << "[Desktop Entry]\nType=Application\nName=Count\nIcon=view-refresh\nStartupNotify=false\nExec="
          << command.string() << "\n";
      plugins
          << "<property name=\"plugin-" << id << R"(" type="string" value="launcher">)"
          << R"(<property name="items" type="array"><value type="string" value="count.desktop"/></property>)"
          << "</property>";
    }
    const fs::path file = xfce / "xfconf" / "xfce-perchannel-xml" / "xfce4-panel.xml";
    fs::create_directories(file.parent_path());
    std::ofstream(file) << R"(<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array"><value type="int" value="1"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="length" type="uint" value="100"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="size" type="uint" value="30"/>
      <property name="plugin-ids" type="array">
        <value type="int" value="1"/><value type="int" value="2"/><value type="int" value="3"/>
        <value type="int" value="4"/><value type="int" value="5"/><value type="int" value="6"/>
        <value type="int" value="7"/>
      </property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-4" type="string" value="separator">
      <property name="expand" type="bool" value="true"/>
    </property>
    <property name="plugin-5" type="string" value="systray"/>
    <property name="plugin-6" type="string" value="clock"/>
    )" << plugins.str() << "\n  </property>\n</channel>\n";
  }

  const ScreenLocker locker_{desktop_, "i3lock --nofork", SIGTERM};
  ChildProcess locking_;
  ChildProcess settings_;
  ChildProcess notifications_;
  ChildProcess panel_;
};

/// KDE's window manager and its session manager, which locks.
class KWin final : public X11Shell {
 public:
  explicit KWin(HeadlessDesktop& desktop) : X11Shell(desktop, "KDE"), session_(desktop) {
    startWindowManager("kwin_x11", {});
    manager_ = desktop.spawn("ksmserver");
    session_.bus().waitForName(QStringLiteral("org.freedesktop.ScreenSaver"));
  }

  [[nodiscard]] std::string version() const override { return "KWin " + versionOf("kwin-x11"); }
  [[nodiscard]] std::vector<QPoint> panelSpots() override { throw NotHere("KWin alone has no panel"); }
  void setLocked(bool locked) override { session_.setLocked(locked); }

 private:
  KdeSession session_;
  ChildProcess manager_;
};

}  // namespace

std::unique_ptr<DesktopShell> startXfce(HeadlessDesktop& desktop) {
  return std::make_unique<Xfce>(desktop);
}

std::unique_ptr<DesktopShell> startKWinOnX11(HeadlessDesktop& desktop) {
  return std::make_unique<KWin>(desktop);
}

}  // namespace sentrel::test
