// SPDX-License-Identifier: Apache-2.0
#include "gnome_shell.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <stdexcept>
#include <string>

namespace sentrel::test {

namespace {

/// The processor draws it all, on a machine that may be busy.
constexpr std::chrono::seconds startLimit{90};
constexpr std::chrono::seconds answerLimit{120};

const auto shell = QStringLiteral("org.gnome.Shell");

QString quoted(const QString& text) {
  const QByteArray list = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
  return QString::fromUtf8(list).mid(1, list.size() - 2);
}

QString windowNamed(const QString& title) {
  return QStringLiteral("global.get_window_actors().map(a => a.meta_window).find(w => w.title === %1)")
      .arg(quoted(title));
}

// A pointer, and a count of what the panel gets.
const auto prelude = QStringLiteral(R"((() => {
  const { Clutter } = imports.gi;
  const Main = imports.ui.main;
  const seat = Clutter.get_default_backend().get_default_seat();
  const trial = { clicks: 0, deaf: false,
                  pointer: seat.create_virtual_device(Clutter.InputDeviceType.POINTER_DEVICE) };
  global.trial = trial;
  Main.panel.connect('captured-event', (panel, event) => {
    if (event.type() === Clutter.EventType.BUTTON_PRESS) ++trial.clicks;
    const isButton = [Clutter.EventType.BUTTON_PRESS, Clutter.EventType.BUTTON_RELEASE].includes(event.type());
    return trial.deaf && isButton ? Clutter.EVENT_STOP : Clutter.EVENT_PROPAGATE;
  });
  Main.overview.hide();
  return true;
})())");

}  // namespace

GnomeShell::GnomeShell(HeadlessDesktop& desktop, QSize size) : bus_(desktop, TestBus::session) {
  desktop.setVariable("XDG_CURRENT_DESKTOP", "GNOME");
  desktop.setVariable("XDG_SESSION_TYPE", "wayland");
  const std::string monitor = std::to_string(size.width()) + "x" + std::to_string(size.height());
  process_ = desktop.spawn("gnome-shell",
                           {"--headless", "--virtual-monitor", monitor, "--wayland", "--unsafe-mode"});
  waitUntilStarted();
  for (const char* name : {"WAYLAND_DISPLAY", "DISPLAY", "XAUTHORITY"}) {
    const QJsonValue value =
        evaluate(QStringLiteral("imports.gi.GLib.getenv('%1')").arg(QLatin1String(name)));
    desktop.setVariable(name, value.toString().toStdString());
  }
  (void)evaluate(prelude);
  if (!waitUntil([this] { return !overviewIsOpen(); }, startLimit))
    throw std::runtime_error("the overview stays");
}

GnomeShell::~GnomeShell() {
  setHanging(false);
  process_.terminate();
}

void GnomeShell::waitUntilStarted() {
  const bool started = waitUntil(
      [this] {
        if (!process_.isRunning()) return true;
        try {
          return evaluate(QStringLiteral("!imports.ui.main.layoutManager._startingUp")).toBool();
        } catch (const std::runtime_error&) {
          return false;  // not on the bus yet, or not so far
        }
      },
      startLimit, std::chrono::milliseconds(100));
  if (!started || !process_.isRunning())
    throw std::runtime_error("gnome-shell did not start; it printed:\n" + process_.output());
}

QJsonValue GnomeShell::evaluate(const QString& expression) const {
  const QDBusMessage reply =
      bus_.call(shell, QStringLiteral("/org/gnome/Shell"), shell, QStringLiteral("Eval"),
                {QStringLiteral("[%1]").arg(expression)}, answerLimit);
  const QByteArray answer = reply.arguments().at(1).toString().toUtf8();
  if (!reply.arguments().at(0).toBool())
    throw std::runtime_error("the shell does not understand: " + answer.toStdString());
  return QJsonDocument::fromJson(answer).array().first();
}

void GnomeShell::click(QPoint at) const {
  (void)evaluate(QStringLiteral(R"((() => {
    const { Clutter } = imports.gi;
    const now = () => imports.gi.GLib.get_monotonic_time();
    const pointer = global.trial.pointer;
    pointer.notify_absolute_motion(now(), %1, %2);
    pointer.notify_button(now(), Clutter.BUTTON_PRIMARY, Clutter.ButtonState.PRESSED);
    pointer.notify_button(now(), Clutter.BUTTON_PRIMARY, Clutter.ButtonState.RELEASED);
    return true;
  })())")
                     .arg(at.x())
                     .arg(at.y()));
}

QString GnomeShell::under(QPoint at) const {
  return evaluate(QStringLiteral(R"((() => {
    const actor = global.stage.get_actor_at_pos(imports.gi.Clutter.PickMode.REACTIVE, %1, %2);
    return `${actor} ${actor?.get_parent()?.meta_window?.title ?? ''}`;
  })())")
                      .arg(at.x())
                      .arg(at.y()))
      .toString();
}

std::optional<QRect> GnomeShell::window(const QString& title) const {
  const QJsonValue place =
      evaluate(QStringLiteral("(w => { if (!w) return null; const r = w.get_frame_rect();"
                              " return {x: r.x, y: r.y, width: r.width, height: r.height}; })(%1)")
                   .arg(windowNamed(title)));
  if (!place.isObject()) return {};
  return QRect(place[u"x"].toInt(), place[u"y"].toInt(), place[u"width"].toInt(), place[u"height"].toInt());
}

void GnomeShell::raiseWindow(const QString& title) const {
  (void)evaluate(
      QStringLiteral("(w => { w.make_above(); w.raise(); return true; })(%1)").arg(windowNamed(title)));
}

void GnomeShell::maximizeWindow(const QString& title) const {
  (void)evaluate(QStringLiteral("(w => { w.maximize(imports.gi.Meta.MaximizeFlags.BOTH); return true; })(%1)")
                     .arg(windowNamed(title)));
}

QString GnomeShell::startupToken() const {
  return evaluate(QStringLiteral(R"((() => {
    const { Gio } = imports.gi;
    const flags = Gio.AppInfoCreateFlags.SUPPORTS_STARTUP_NOTIFICATION;
    const program = Gio.AppInfo.create_from_commandline('sentrel', 'Sentrel', flags);
    return global.create_app_launch_context(0, -1).get_startup_notify_id(program, []);
  })())"))
      .toString();
}

int GnomeShell::panelClicks() const {
  return evaluate(QStringLiteral("global.trial.clicks")).toInt();
}

void GnomeShell::setPanelDeaf(bool deaf) const {
  (void)evaluate(QStringLiteral("global.trial.deaf = %1").arg(QLatin1String(deaf ? "true" : "false")));
}

bool GnomeShell::overviewIsOpen() const {
  return evaluate(QStringLiteral("imports.ui.main.overview.visible")).toBool();
}

void GnomeShell::screenshot(const std::filesystem::path& path) const {
  const auto service = QStringLiteral("org.gnome.Shell.Screenshot");
  const QDBusMessage reply =
      bus_.call(service, QStringLiteral("/org/gnome/Shell/Screenshot"), service, QStringLiteral("Screenshot"),
                {false, false, QString::fromStdString(path.string())}, answerLimit);
  if (!reply.arguments().at(0).toBool()) throw std::runtime_error("no picture of the screen");
}

}  // namespace sentrel::test
