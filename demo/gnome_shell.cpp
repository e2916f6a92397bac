// SPDX-License-Identifier: Apache-2.0
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QStringList>
#include <chrono>
#include <cmath>
#include <csignal>
#include <optional>

#include "desktop_shell.h"
#include "stage/bus_doubles.h"

namespace sentrel::test {

namespace {

constexpr std::chrono::seconds answerLimit{120};

const auto shellName = QStringLiteral("org.gnome.Shell");
const auto displayManagerName = QStringLiteral("org.gnome.DisplayManager");
const auto displayManagerPath = QStringLiteral("/org/gnome/DisplayManager/Manager");
constexpr int width = 1920;
constexpr int height = 1080;
/// "Activities".
constexpr QPoint overviewButton{55, 16};

/// Nobody else has it.
constexpr const char* ownKey = "super+alt+k";

// A pointer, keys and a finger, and a count of what the panel and a key of the shell's get.
const auto prelude = QStringLiteral(R"((() => {
  const { Clutter, Meta, Shell } = imports.gi;
  const seat = Clutter.get_default_backend().get_default_seat();
  const trial = { clicks: 0, keys: 0, deaf: false,
                  pointer: seat.create_virtual_device(Clutter.InputDeviceType.POINTER_DEVICE),
                  keyboard: seat.create_virtual_device(Clutter.InputDeviceType.KEYBOARD_DEVICE),
                  finger: seat.create_virtual_device(Clutter.InputDeviceType.TOUCHSCREEN_DEVICE) };
  global.trial = trial;
  Main.panel.connect('captured-event', (panel, event) => {
    if (event.type() === Clutter.EventType.BUTTON_PRESS) ++trial.clicks;
    const isButton = [Clutter.EventType.BUTTON_PRESS, Clutter.EventType.BUTTON_RELEASE].includes(event.type());
    return trial.deaf && isButton ? Clutter.EVENT_STOP : Clutter.EVENT_PROPAGATE;
  });
  const key = global.display.grab_accelerator('<Super><Alt>k', Meta.KeyBindingFlags.NONE);
  Main.wm.allowKeybinding(Meta.external_binding_name_for_action(key), Shell.ActionMode.ALL);
  global.display.connect('accelerator-activated', (display, action) => { if (action === key) ++trial.keys; });
  // Nobody answers who unlocks; without a display manager the locker would ask again and again.
  imports.gi.Gdm.Client.prototype.open_reauthentication_channel = () => new Promise(() => {});
  Main.overview.hide();
  return true;
})())");

/// GNOME's shell: as the Wayland compositor of a private desktop, with virtual monitors that the processor
/// draws and with its own X server, or on the X server that is there. What a person does with mouse and keys
/// comes from virtual devices of the shell's, so that it takes the way of real ones.
class GnomeShell final : public DesktopShell {
 public:
  GnomeShell(HeadlessDesktop& desktop, bool wayland)
      : desktop_(desktop),
        wayland_(wayland),
        bus_(desktop, TestBus::session),
        systemBus_(desktop, TestBus::system),
        loginManager_(mockLoginManager(desktop, systemBus_)),
        displayManager_(BusMock::empty(desktop, systemBus_, displayManagerName, displayManagerPath)) {
    // Without one that it knows it has no locker.
    displayManager_.control(displayManagerPath, QStringLiteral("AddProperties"),
                            {QStringLiteral("org.gnome.DisplayManager.Manager"),
                             QVariantMap{{QStringLiteral("Version"), QStringLiteral("43.0")}}});
    desktop.setVariable("XDG_CURRENT_DESKTOP", "GNOME");
    desktop.setVariable("XDG_SESSION_ID", "c2");  // as the login manager has it
    desktop.setVariable("XDG_SESSION_TYPE", wayland ? "wayland" : "x11");
    hideOtherPortals();
    const std::string monitor = std::to_string(width) + "x" + std::to_string(height);
    process_ =
        desktop.spawn("gnome-shell", wayland ? std::vector<std::string>{"--headless", "--wayland",
                                                                        "--unsafe-mode", "--virtual-monitor",
                                                                        monitor, "--virtual-monitor", monitor}
                                             : std::vector<std::string>{"--x11", "--unsafe-mode"});
    waitForStart(process_, "gnome-shell", [this] { return hasStarted(); });
    for (const char* name : {"WAYLAND_DISPLAY", "DISPLAY", "XAUTHORITY"}) {
      const QJsonValue value =
          evaluate(QStringLiteral("imports.gi.GLib.getenv('%1')").arg(QLatin1String(name)));
      if (value.isString()) desktop.setVariable(name, value.toString().toStdString());
    }
    desktop.run("dbus-update-activation-environment", {"--all"});
    if (wayland) arrangeOutputs(1, 1);
    // As a whole session starts them; notifications before any other that is installed.
    for (const char* service : {"org.gnome.Shell.Notifications", "org.gnome.ScreenSaver"}) {
      (void)bus_.call(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                      QStringLiteral("org.freedesktop.DBus"), QStringLiteral("StartServiceByName"),
                      {QString::fromLatin1(service), 0U}, answerLimit);
    }
    (void)evaluate(prelude);
    waitFor("the overview closes", [this] { return !overviewIsOpen(); });
  }

  ~GnomeShell() override {
    process_.signal(SIGCONT);
    process_.terminate();
  }

  GnomeShell(const GnomeShell&) = delete;
  GnomeShell& operator=(const GnomeShell&) = delete;

  [[nodiscard]] std::string version() const override {
    return outputOf(desktop_, "gnome-shell", {"--version"});
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

  void touch(QPoint at) override {
    if (!wayland_) throw NotHere("no touch screen");
    (void)evaluate(QStringLiteral(R"((() => {
    const now = () => imports.gi.GLib.get_monotonic_time();
    global.trial.finger.notify_touch_down(now(), 0, %1, %2);
    global.trial.finger.notify_touch_up(now(), 0);
    return true;
  })())")
                       .arg(at.x())
                       .arg(at.y()));
  }

  void pressKey(const std::string& keys) override {
    if (!wayland_) {
      desktop_.run("xdotool", {"key", keys});
      return;
    }
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
                       .arg(inScript(QJsonArray::fromStringList(names))));
  }

  [[nodiscard]] std::optional<QRect> window(const QString& title) override {
    return rectOf(
        evaluate(QStringLiteral("(w => { if (!w) return null; const r = w.get_frame_rect();"
                                " return {x: r.x, y: r.y, width: r.width, height: r.height}; })(%1)")
                     .arg(windowNamed(title))));
  }

  [[nodiscard]] QString under(QPoint at) override {
    return evaluate(QStringLiteral(R"((() => {
    const actor = global.stage.get_actor_at_pos(imports.gi.Clutter.PickMode.REACTIVE, %1, %2);
    let owner = actor;
    while (owner && !owner.meta_window) owner = owner.get_parent();
    return `${actor} ${owner?.meta_window.title ?? ''}`;
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

  [[nodiscard]] std::string desktopKey() override { return ownKey; }
  [[nodiscard]] int desktopKeys() override { return evaluate(QStringLiteral("global.trial.keys")).toInt(); }

  [[nodiscard]] std::optional<QRect> notification() override {
    return rectOf(evaluate(QStringLiteral(R"((banner => {
    if (!banner) return null;
    const [x, y] = banner.get_transformed_position();
    return { x, y, width: banner.width, height: banner.height };
  })(Main.messageTray._banner))")));
  }

  void clickOverview(bool open) override {
    click(overviewButton);
    waitFor(
        open ? "the overview opens" : "the overview closes", [&] { return overviewIsOpen() == open; },
        std::chrono::seconds(5));
  }

  void setHanging(bool hangs) override { process_.signal(hangs ? SIGSTOP : SIGCONT); }

  QRect addOutput() override {
    if (!wayland_) throw NotHere("its X server without a screen has one output");
    arrangeOutputs(2, 1);
    return {width, 0, width, height};
  }
  void removeOutput() override { arrangeOutputs(1, 1); }

  void setScale(double scale) override {
    if (!wayland_) throw NotHere("the X server without a screen has one scale");
    if (scale != std::floor(scale)) throw NotHere("fractions only where the person opens them");
    arrangeOutputs(1, scale);
  }

  void setAppearance(Appearance appearance) override { setInSettings(desktop_, appearance); }

  void setLocked(bool locked) override {
    if (!evaluate(QStringLiteral("Main.screenShield !== null")).toBool())
      throw NotHere("GNOME locks nothing where systemd has no seats");
    (void)evaluate(locked ? QStringLiteral("Main.screenShield.lock(false) ?? true")
                          : QStringLiteral("Main.screenShield.deactivate(false) ?? true"));
    waitFor(locked ? "the screen is locked" : "the screen is unlocked",
            [&] { return evaluate(QStringLiteral("Main.screenShield.locked")).toBool() == locked; });
    // It is black until somebody moves the pointer.
    (void)evaluate(QStringLiteral(
        "['_shortLightbox', '_longLightbox'].forEach(name => Main.screenShield[name].lightOff()) ?? true"));
  }

  void pressShortcut(const std::string& keys) override {
    if (wayland_ && !offersShortcuts()) throw NotHere("its portal offers no shortcuts");
    pressKey(keys);
  }

  void screenshot(const std::filesystem::path& path) override {
    const auto service = QStringLiteral("org.gnome.Shell.Screenshot");
    const QDBusMessage reply = bus_.call(service, QStringLiteral("/org/gnome/Shell/Screenshot"), service,
                                         QStringLiteral("Screenshot"),
                                         {false, false, QString::fromStdString(path.string())}, answerLimit);
    if (!reply.arguments().at(0).toBool()) throw std::runtime_error("no picture of the screen");
  }

 private:
  /// Those of other desktops may be installed, and would be asked for what GNOME's do not offer.
  void hideOtherPortals() const {
    const std::filesystem::path installed = "/usr/share/xdg-desktop-portal/portals";
    const std::filesystem::path own = desktop_.home() / "portals";
    std::filesystem::create_directories(own);
    for (const char* name : {"gnome.portal", "gnome-shell.portal", "gtk.portal"}) {
      if (std::filesystem::exists(installed / name)) std::filesystem::copy_file(installed / name, own / name);
    }
    desktop_.setVariable("XDG_DESKTOP_PORTAL_DIR", own);
  }

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

  [[nodiscard]] static QString windowNamed(const QString& title) {
    return QStringLiteral(
               "global.get_window_actors().map(a => a.meta_window).find(w => %1.includes(w.title))")
        .arg(inScript({title}));
  }

  [[nodiscard]] bool overviewIsOpen() const {
    return evaluate(QStringLiteral("Main.overview.visible")).toBool();
  }

  [[nodiscard]] bool offersShortcuts() const {
    try {
      (void)bus_.call(
          QStringLiteral("org.freedesktop.portal.Desktop"), QStringLiteral("/org/freedesktop/portal/desktop"),
          QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
          {QStringLiteral("org.freedesktop.portal.GlobalShortcuts"), QStringLiteral("version")}, answerLimit);
      return true;
    } catch (const std::runtime_error&) {
      return false;
    }
  }

  /// The first ones of those that it was started with, side by side.
  void arrangeOutputs(int count, double scale) const {
    const std::string service = "org.gnome.Mutter.DisplayConfig";
    const auto call = [&](const std::string& method, std::vector<std::string> arguments) {
      arguments.insert(arguments.begin(),
                       {"call", "--session", "--dest", service, "--object-path",
                        "/org/gnome/Mutter/DisplayConfig", "--method", service + "." + method});
      return QString::fromStdString(desktop_.run("gdbus", arguments));
    };
    const QString state = call("GetCurrentState", {});
    static const QRegularExpression serial(QStringLiteral("^\\(uint32 (\\d+)"));
    static const QRegularExpression monitor(
        QStringLiteral("\\(\\('([^']+)', '[^']*', '[^']*', '[^']*'\\), \\[\\('([^']+)'"));
    QStringList outputs;
    for (auto found = monitor.globalMatch(state); found.hasNext() && outputs.size() < count;) {
      const auto match = found.next();
      outputs += QStringLiteral("(%1, 0, %2, uint32 0, %3, [('%4', '%5', @a{sv} {})])")
                     .arg(outputs.size() * width)
                     .arg(scale, 0, 'f', 2)
                     .arg(QLatin1String(outputs.isEmpty() ? "true" : "false"))
                     .arg(match.captured(1), match.captured(2));
    }
    constexpr const char* temporary = "1";
    (void)call("ApplyMonitorsConfig", {serial.match(state).captured(1).toStdString(), temporary,
                                       ("[" + outputs.join(u',') + "]").toStdString(), "@a{sv} {}"});
  }

  /// Not before it is on the bus, nor before it can be asked.
  [[nodiscard]] bool hasStarted() const {
    try {
      return evaluate(QStringLiteral("!Main.layoutManager._startingUp")).toBool();
    } catch (const std::runtime_error&) {
      return false;
    }
  }

  HeadlessDesktop& desktop_;
  const bool wayland_;
  BusClient bus_;
  BusClient systemBus_;
  BusMock loginManager_;
  BusMock displayManager_;
  ChildProcess process_;
};

}  // namespace

void setInSettings(HeadlessDesktop& desktop, Appearance appearance) {
  const auto set = [&](const char* where, const char* name, const char* value) {
    desktop.run("gsettings", {"set", where, name, value});
  };
  set("org.gnome.desktop.interface", "color-scheme",
      appearance == Appearance::dark ? "prefer-dark" : "default");
  set("org.gnome.desktop.a11y.interface", "high-contrast",
      appearance == Appearance::highContrast ? "true" : "false");
}

std::unique_ptr<DesktopShell> startGnomeOnWayland(HeadlessDesktop& desktop) {
  return std::make_unique<GnomeShell>(desktop, true);
}

std::unique_ptr<DesktopShell> startGnomeOnX11(HeadlessDesktop& desktop) {
  return std::make_unique<GnomeShell>(desktop, false);
}

}  // namespace sentrel::test
