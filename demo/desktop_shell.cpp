// SPDX-License-Identifier: Apache-2.0
#include "desktop_shell.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "x11_outputs.h"

namespace sentrel::test {

const std::vector<DesktopKind>& desktopKinds() {
  constexpr HeadlessDesktop::Options services{.activation = true, .systemBus = true, .pipeWire = true};
  // Also for compositors that have their outputs as windows of the server.
  constexpr HeadlessDesktop::Options x11{.activation = true,
                                         .systemBus = true,
                                         .pipeWire = true,
                                         .x11 = true,
                                         .windowManager = false,
                                         .compositor = false};
  HeadlessDesktop::Options twoMonitors = x11;
  twoMonitors.width = 2 * X11Outputs::width;
  static const std::vector<DesktopKind> kinds{
      {"gnome-wayland", services, true, startGnomeOnWayland},
      {"gnome-x11", x11, false, startGnomeOnX11},
      {"xfce", twoMonitors, false, startXfce},
      {"kwin-x11", twoMonitors, false, startKWinOnX11},
      {"plasma-wayland", twoMonitors, true, startPlasmaOnWayland},
      {"sway", x11, true, startSway},
      {"wayfire", services, true, startWayfire},
  };
  return kinds;
}

std::optional<QRect> shownByMako(HeadlessDesktop& desktop, int panelHeight) {
  // Each version writes its list in another way.
  if (desktop.run("makoctl", {"list"}).find("Regard indiscret") == std::string::npos) return {};
  return QRect(1920 - 10 - 300, panelHeight + 10, 300, 100);
}

void DesktopShell::waitFor(const std::string& words, const std::function<bool()>& condition,
                           std::chrono::milliseconds limit) {
  if (!waitUntil(condition, limit, lookInterval)) throw std::runtime_error("this did not follow: " + words);
}

void DesktopShell::waitForStart(ChildProcess& program, const std::string& name,
                                const std::function<bool()>& isReady, std::chrono::milliseconds interval) {
  bool ready = false;
  (void)waitUntil([&] { return (ready = isReady()) || !program.isRunning(); }, startLimit, interval);
  if (!ready) throw std::runtime_error(name + " did not start; it printed:\n" + program.output());
}

std::string DesktopShell::outputOf(HeadlessDesktop& desktop, const std::string& program,
                                   const std::vector<std::string>& arguments) {
  // Complaints are no part of it.
  std::vector<std::string> shell{"-c", "exec \"$0\" \"$@\" 2>/dev/null", program};
  shell.insert(shell.end(), arguments.begin(), arguments.end());
  return QString::fromStdString(desktop.run("sh", shell)).trimmed().toStdString();
}

std::optional<QRect> DesktopShell::rectOf(const QJsonValue& value) {
  if (!value.isObject()) return {};
  return QRectF(value[u"x"].toDouble(), value[u"y"].toDouble(), value[u"width"].toDouble(),
                value[u"height"].toDouble())
      .toRect();
}

QString DesktopShell::inScript(const QJsonArray& values) {
  return QString::fromUtf8(QJsonDocument(values).toJson(QJsonDocument::Compact));
}

}  // namespace sentrel::test
