// SPDX-License-Identifier: Apache-2.0
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <chrono>
#include <csignal>
#include <optional>

#include "desktop_shell.h"
#include "stage/bus_doubles.h"

namespace sentrel::test {

namespace {

/// The processor draws it all, on a machine that may be busy.
constexpr std::chrono::seconds startLimit{90};
constexpr std::chrono::seconds answerLimit{120};

const auto shellName = QStringLiteral("org.gnome.Shell");
/// "Activities".
constexpr QPoint overviewButton{55, 16};

QString quoted(const QString& text) {
  const QByteArray list = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
  return QString::fromUtf8(list).mid(1, list.size() - 2);
}

QString windowNamed(const QString& title) {
  return QStringLiteral("global.get_window_actors().map(a => a.meta_window).find(w => w.title === %1)")
      .arg(quoted(title));
}

// A pointer and keys, and a count of what the panel gets.
const auto prelude = QStringLiteral(R"((() => {
  const { Clutter } = imports.gi;
  const seat = Clutter.get_default_backend().get_default_seat();
  const trial = { clicks: 0, deaf: false,
                  pointer: seat.create_virtual_device(Clutter.InputDeviceType.POINTER_DEVICE),
                  keyboard: seat.create_virtual_device(Clutter.InputDeviceType.KEYBOARD_DEVICE) };
  global.trial = trial;
  Main.panel.connect('captured-event', (panel, event) => {
    if (event.type() === Clutter.EventType.BUTTON_PRESS) ++trial.clicks;
    const isButton = [Clutter.EventType.BUTTON_PRESS, Clutter.EventType.BUTTON_RELEASE].includes(event.type());
    return trial.deaf && isButton ? Clutter.EVENT_STOP : Clutter.EVENT_PROPAGATE;
  });
  Main.overview.hide();
  return true;
})())");

/// GNOME's shell as the Wayland compositor of a private desktop, with one virtual monitor that the processor
/// draws, and with its own X server. What a person does with mouse and keys comes from virtual devices of the
/// shell's, so that it takes the way of real ones.
class GnomeShell final : public DesktopShell {
 public:
  GnomeShell(HeadlessDesktop& desktop, QSize screen) : desktop_(desktop), bus_(desktop, TestBus::session) {
    desktop.setVariable("XDG_CURRENT_DESKTOP", "GNOME");
    desktop.setVariable("XDG_SESSION_TYPE", "wayland");
    const std::string monitor = std::to_string(screen.width()) + "x" + std::to_string(screen.height());
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

  ~GnomeShell() override {
    process_.signal(SIGCONT);
    process_.terminate();
  }

  GnomeShell(const GnomeShell&) = delete;
  GnomeShell& operator=(const GnomeShell&) = delete;

  [[nodiscard]] std::string version() const override {
    return QString::fromStdString(desktop_.run("gnome-shell", {"--version"})).trimmed().toStdString();
  }

  void click(QPoint at) override {
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

  void pressKey(const std::string& keys) override {
    QStringList names;
    for (const QString& name : QString::fromStdString(keys).split(u'+')) {
      names += name == u"ctrl"    ? QStringLiteral("Control_L")
               : name == u"alt"   ? QStringLiteral("Alt_L")
               : name == u"shift" ? QStringLiteral("Shift_L")
               : name == u"super" ? QStringLiteral("Super_L")
                                  : name;
    }
    (void)evaluate(QStringLiteral(R"((() => {
    const { Clutter } = imports.gi;
    const keys = %1.map(name => Clutter[`KEY_${name}`]);
    const notify = (key, state) =>
        global.trial.keyboard.notify_keyval(imports.gi.GLib.get_monotonic_time(), key, state);
    keys.forEach(key => notify(key, Clutter.KeyState.PRESSED));
    keys.reverse().forEach(key => notify(key, Clutter.KeyState.RELEASED));
    return true;
  })())")
                       .arg(QString::fromUtf8(
                           QJsonDocument(QJsonArray::fromStringList(names)).toJson(QJsonDocument::Compact))));
  }

  [[nodiscard]] std::optional<QRect> window(const QString& title) override {
    const QJsonValue place =
        evaluate(QStringLiteral("(w => { if (!w) return null; const r = w.get_frame_rect();"
                                " return {x: r.x, y: r.y, width: r.width, height: r.height}; })(%1)")
                     .arg(windowNamed(title)));
    if (!place.isObject()) return {};
    return QRect(place[u"x"].toInt(), place[u"y"].toInt(), place[u"width"].toInt(), place[u"height"].toInt());
  }

  [[nodiscard]] QString under(QPoint at) override {
    return evaluate(QStringLiteral(R"((() => {
    const actor = global.stage.get_actor_at_pos(imports.gi.Clutter.PickMode.REACTIVE, %1, %2);
    return `${actor} ${actor?.get_parent()?.meta_window?.title ?? ''}`;
  })())")
                        .arg(at.x())
                        .arg(at.y()))
        .toString();
  }

  void raiseWindow(const QString& title) override {
    (void)evaluate(
        QStringLiteral("(w => { w.make_above(); w.raise(); return true; })(%1)").arg(windowNamed(title)));
  }

  void maximizeWindow(const QString& title) override {
    (void)evaluate(
        QStringLiteral("(w => { w.maximize(imports.gi.Meta.MaximizeFlags.BOTH); return true; })(%1)")
            .arg(windowNamed(title)));
  }

  [[nodiscard]] std::string startupToken() override {
    return evaluate(QStringLiteral(R"((() => {
    const { Gio } = imports.gi;
    const flags = Gio.AppInfoCreateFlags.SUPPORTS_STARTUP_NOTIFICATION;
    const program = Gio.AppInfo.create_from_commandline('sentrel', 'Sentrel', flags);
    return global.create_app_launch_context(0, -1).get_startup_notify_id(program, []);
  })())"))
        .toString()
        .toStdString();
  }

  // "Activities", the clock, and below the hint.
  [[nodiscard]] std::vector<QPoint> panelSpots() override { return {overviewButton, {960, 16}, {1880, 16}}; }

  [[nodiscard]] int panelClicks() override { return evaluate(QStringLiteral("global.trial.clicks")).toInt(); }

  void setPanelDeaf(bool deaf) override {
    (void)evaluate(QStringLiteral("global.trial.deaf = %1").arg(QLatin1String(deaf ? "true" : "false")));
  }

  void clickOverview(bool open) override {
    click(overviewButton);
    if (!waitUntil([&] { return overviewIsOpen() == open; }, std::chrono::seconds(5)))
      throw std::runtime_error(open ? "the overview does not open" : "the overview does not close");
  }

  void setHanging(bool hangs) override { process_.signal(hangs ? SIGSTOP : SIGCONT); }

  void screenshot(const std::filesystem::path& path) override {
    const auto service = QStringLiteral("org.gnome.Shell.Screenshot");
    const QDBusMessage reply = bus_.call(service, QStringLiteral("/org/gnome/Shell/Screenshot"), service,
                                         QStringLiteral("Screenshot"),
                                         {false, false, QString::fromStdString(path.string())}, answerLimit);
    if (!reply.arguments().at(0).toBool()) throw std::runtime_error("no picture of the screen");
  }

 private:
  /// What an expression is within the shell.
  [[nodiscard]] QJsonValue evaluate(const QString& expression) const {
    const QDBusMessage reply =
        bus_.call(shellName, QStringLiteral("/org/gnome/Shell"), shellName, QStringLiteral("Eval"),
                  {QStringLiteral("[%1]").arg(expression)}, answerLimit);
    const QByteArray answer = reply.arguments().at(1).toString().toUtf8();
    if (!reply.arguments().at(0).toBool())
      throw std::runtime_error("the shell does not understand: " + answer.toStdString());
    return QJsonDocument::fromJson(answer).array().first();
  }

  [[nodiscard]] bool overviewIsOpen() const {
    return evaluate(QStringLiteral("Main.overview.visible")).toBool();
  }

  void waitUntilStarted() {
    const bool started = waitUntil(
        [this] {
          if (!process_.isRunning()) return true;
          try {
            return evaluate(QStringLiteral("!Main.layoutManager._startingUp")).toBool();
          } catch (const std::runtime_error&) {
            return false;  // not on the bus yet, or not so far
          }
        },
        startLimit, std::chrono::milliseconds(100));
    if (!started || !process_.isRunning())
      throw std::runtime_error("gnome-shell did not start; it printed:\n" + process_.output());
  }

  HeadlessDesktop& desktop_;
  BusClient bus_;
  ChildProcess process_;
};

}  // namespace

std::unique_ptr<DesktopShell> startGnomeOnWayland(HeadlessDesktop& desktop, QSize screen) {
  return std::make_unique<GnomeShell>(desktop, screen);
}

}  // namespace sentrel::test
