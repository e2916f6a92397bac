// SPDX-License-Identifier: Apache-2.0
//
// sentrel-try-desktop DESKTOP FOLDER [CLICKS [PROGRAM]]: runs the program, the one of this build unless
// another is named, on a real desktop without a screen, and clicks through its cover in every state, on each
// target 60 times or so many during the alert. Leaves a table and pictures in the folder; fails when a click
// is lost. Desktops: "gnome-wayland".
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QPoint>
#include <QRect>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "program_trial.h"
#include "stage/bus_doubles.h"

namespace sentrel::test {

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// The processor draws the desktop: a click may take some frames.
constexpr milliseconds clickLimit{3000};
/// Once none of the first ones has arrived.
constexpr milliseconds lostClickLimit{400};

/// Where no other window ever lies on the document.
const QRect bareDocument(700, 450, 560, 420);
/// From the middle of the program's window.
const QPoint switchInPopover(120, -98);

constexpr std::chrono::seconds hang{25};

constexpr int fewClicks = 20;  // while nothing flashes

// On a screen of 1920 x 1080: bare, below the banner, below the onlooker's picture and its dot, at the edges.
const std::vector<QPoint> onDocument{{960, 500},  {960, 975},  {810, 950}, {1772, 904},
                                     {1660, 820}, {1910, 600}, {30, 1070}, {1400, 120}};
// "Activities", the clock, and below the hint.
const std::vector<QPoint> onPanel{{55, 16}, {960, 16}, {1880, 16}};
/// The X11 window, smaller, in front of the document.
const auto other = QStringLiteral("other");

/// The processor draws it all, on a machine that may be busy.
constexpr std::chrono::seconds startLimit{90};
constexpr std::chrono::seconds answerLimit{120};

const auto shellName = QStringLiteral("org.gnome.Shell");

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

/// GNOME's shell as the Wayland compositor of a private desktop, with one virtual monitor that the processor
/// draws, and with its own X server. What a person does with the mouse comes from a virtual device of the
/// shell's, so that it takes the way of a real one. Main thread.
class GnomeShell {
 public:
  /// Ready when it returns: the desktop is seen, not the overview, and the desktop's environment leads to it.
  /// Needs both buses, and activation on the session's. Throws std::runtime_error.
  GnomeShell(HeadlessDesktop& desktop, QSize size) : bus_(desktop, TestBus::session) {
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

  ~GnomeShell() {
    setHanging(false);
    process_.terminate();
  }

  GnomeShell(const GnomeShell&) = delete;
  GnomeShell& operator=(const GnomeShell&) = delete;

  /// Moves the pointer there, in pixels of the monitor, then presses and releases its first button.
  void click(QPoint at) const {
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

  /// Where the window of this title is, without shadows.
  [[nodiscard]] std::optional<QRect> window(const QString& title) const {
    const QJsonValue place =
        evaluate(QStringLiteral("(w => { if (!w) return null; const r = w.get_frame_rect();"
                                " return {x: r.x, y: r.y, width: r.width, height: r.height}; })(%1)")
                     .arg(windowNamed(title)));
    if (!place.isObject()) return {};
    return QRect(place[u"x"].toInt(), place[u"y"].toInt(), place[u"width"].toInt(), place[u"height"].toInt());
  }

  /// What would get a click there.
  [[nodiscard]] QString under(QPoint at) const {
    return evaluate(QStringLiteral(R"((() => {
    const actor = global.stage.get_actor_at_pos(imports.gi.Clutter.PickMode.REACTIVE, %1, %2);
    return `${actor} ${actor?.get_parent()?.meta_window?.title ?? ''}`;
  })())")
                        .arg(at.x())
                        .arg(at.y()))
        .toString();
  }

  void raiseWindow(const QString& title) const {
    (void)evaluate(
        QStringLiteral("(w => { w.make_above(); w.raise(); return true; })(%1)").arg(windowNamed(title)));
  }

  void maximizeWindow(const QString& title) const {
    (void)evaluate(
        QStringLiteral("(w => { w.maximize(imports.gi.Meta.MaximizeFlags.BOTH); return true; })(%1)")
            .arg(windowNamed(title)));
  }

  /// With which a program that is started shows that a person wanted it: a new window gets the focus then.
  [[nodiscard]] QString startupToken() const {
    return evaluate(QStringLiteral(R"((() => {
    const { Gio } = imports.gi;
    const flags = Gio.AppInfoCreateFlags.SUPPORTS_STARTUP_NOTIFICATION;
    const program = Gio.AppInfo.create_from_commandline('sentrel', 'Sentrel', flags);
    return global.create_app_launch_context(0, -1).get_startup_notify_id(program, []);
  })())"))
        .toString();
  }

  /// How many presses the panel has got. While it is deaf they do nothing else.
  [[nodiscard]] int panelClicks() const { return evaluate(QStringLiteral("global.trial.clicks")).toInt(); }

  void setPanelDeaf(bool deaf) const {
    (void)evaluate(QStringLiteral("global.trial.deaf = %1").arg(QLatin1String(deaf ? "true" : "false")));
  }

  [[nodiscard]] bool overviewIsOpen() const {
    return evaluate(QStringLiteral("imports.ui.main.overview.visible")).toBool();
  }

  /// Lets it hang, or go on.
  void setHanging(bool hangs) const { process_.signal(hangs ? SIGSTOP : SIGCONT); }

  /// Saves the composed monitor as PNG; the path is absolute.
  void screenshot(const std::filesystem::path& path) const {
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

  void waitUntilStarted() {
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

  BusClient bus_;
  ChildProcess process_;
};

/// The program on a real desktop: in every state it must cover what it should, and every click must reach
/// what lies below: a Wayland window, an X11 window, the desktop's own panel, and the program's own switch.
class DesktopTrial final : public ProgramTrial {
 public:
  /// So many clicks go to each target while the tint flashes.
  DesktopTrial(HeadlessDesktop& desktop, const GnomeShell& shell, const fs::path& folder,
               const std::string& program, int clicks)
      : ProgramTrial(desktop, folder, program), shell_(shell), clicks_(clicks) {
    // The processor draws the cover, and the alert's tint must be at its height.
    pictureDelay_ = milliseconds(1200);
  }

 private:
  /// How many clicks of how many arrived.
  struct Row {
    std::string state;
    std::string target;
    int passed = 0;
    int clicks = 0;
  };

  void play() override {
    prepare();
    clickThrough("nominal", "nominal", fewClicks);
    clickThrough("inattention", "inattention", fewClicks);
    clickThrough("alert", "alert", clicks_);
    openOverview("alert");
    outliveHangingDesktop();
    clickThrough("after", "nominal", fewClicks);
    bringAbout("alert");
    switchOffWithTheMouse();
    quit();
    judge();
  }

  void screenshot(const fs::path& path) override { shell_.screenshot(path); }

  void prepare() {
    document_.show();
    follows("the document is painted", [this] { return document_.isPainted(); });
    shell_.maximizeWindow(document_.title());
    follows("the document fills the screen", [this] {
      const auto place = shell_.window(document_.title());
      return place && place->width() == 1920;
    });
    otherWindow_ = desktop_.spawn("stdbuf", {"-oL", "xev", "-event", "button", "-name", other.toStdString()});
    follows("the X11 window is there", [&] { return shell_.window(other).has_value(); });
    shell_.raiseWindow(other);
    see(Seen::alone);
    takePicture("uncovered");
    clickEverywhere("uncovered", fewClicks);  // that the clicks are real ones
    start();
  }

  void bringAbout(const std::string& state) {
    see(state == "alert" ? Seen::watched : state == "inattention" ? Seen::away : Seen::alone);
    follows("protection is in " + state, [&] { return isIn(state); });
  }

  /// Brings the state about, takes a picture of this name, and clicks.
  void clickThrough(const std::string& name, const std::string& state, int clicks) {
    bringAbout(state);
    pause(pictureDelay_);
    follows("the screen shows it", [&] {
      screenshot(pathOf(name));
      return showsOnlooker(picture(name)) == (state == "alert");
    });
    const auto began = std::chrono::steady_clock::now();
    const double before = ProcessUsage::of(program_.pid()).cpuSeconds;
    clickEverywhere(name, clicks);
    if (!isIn(state)) throw std::runtime_error("the state did not last: " + state);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
    std::printf("  %-12s processor time of the program: %.1f %%\n", name.c_str(),
                100 * (ProcessUsage::of(program_.pid()).cpuSeconds - before) / took.count());
  }

  void clickEverywhere(const std::string& state, int clicks) {
    shell_.setPanelDeaf(true);
    clickAt(state, "Wayland window", clicks, onDocument, [this] { return document_.clicks(); });
    const QPoint middle = shell_.window(other).value().center();
    clickAt(state, "X11 window", clicks, {middle, middle + QPoint(40, 50), middle - QPoint(60, 20)}, [this] {
      return static_cast<int>(QByteArray::fromStdString(otherWindow_.output()).count("ButtonPress event"));
    });
    clickAt(state, "panel", clicks, onPanel, [this] { return shell_.panelClicks(); });
    shell_.setPanelDeaf(false);
  }

  void clickAt(const std::string& state, const std::string& target, int clicks,
               const std::vector<QPoint>& points, const std::function<int()>& arrived) {
    Row row{state, target, 0, clicks};
    for (int i = 0; i < clicks; ++i) {
      const int before = arrived();
      // Never twice on the same pixel: a pointer that rests would not ask again what lies below it.
      const QPoint at = points[static_cast<std::size_t>(i) % points.size()] + QPoint(i % 5, i % 3);
      shell_.click(at);
      const milliseconds limit = i > 3 && row.passed == 0 ? lostClickLimit : clickLimit;
      if (runUntil([&] { return arrived() > before; }, limit)) {
        ++row.passed;
      } else if (i - row.passed < 3) {  // the others will have the same reason
        std::printf("  lost at %d,%d: there is %s\n", at.x(), at.y(), shell_.under(at).toUtf8().constData());
      }
    }
    rows_.push_back(row);
    std::printf("  %-12s %-16s %3d of %3d\n", state.c_str(), target.c_str(), row.passed, row.clicks);
  }

  /// What is painted while nobody takes it must not pile up: the X server would end, and every X11 program
  /// with it.
  void outliveHangingDesktop() {
    shell_.setHanging(true);
    pause(hang);
    shell_.setHanging(false);
    clickEverywhere("after a hang", fewClicks);
    if (!isIn("alert")) throw std::runtime_error("the alert did not outlive a desktop that hangs");
  }

  /// As a person sees that the desktop hears them.
  void openOverview(const std::string& state) {
    Row row{state, "overview", 0, 2};
    for (const bool open : {true, false}) {
      shell_.click(onPanel.front());
      if (runUntil([&] { return shell_.overviewIsOpen() == open; }, seconds(5))) ++row.passed;
      if (open) takePicture("overview");
    }
    rows_.push_back(row);
  }

  /// The way out for whoever does not want the cover any more: the program's window, and the switch in it.
  void switchOffWithTheMouse() {
    const auto title = QStringLiteral("Sentrel");
    // A second start opens the first one's window.
    const std::string token = shell_.startupToken().toStdString();
    desktop_.run("env", {"DESKTOP_STARTUP_ID=" + token, "XDG_ACTIVATION_TOKEN=" + token, binary_});
    follows("the program's window is there", [&] { return shell_.window(title).has_value(); });
    pause(pictureDelay_);
    takePicture("popover");
    const QRect window = shell_.window(title).value();
    Row row{"alert", "own switch", 0, 1};
    shell_.click(window.center() + switchInPopover);
    if (runUntil([this] { return isIn("inactive"); }, seconds(5))) ++row.passed;
    rows_.push_back(row);
    takePicture("switched-off");
  }

  void judge() const {
    std::ostringstream table;
    table << "state\ttarget\tpassed\tclicks\n";
    bool allPassed = true;
    for (const Row& row : rows_) {
      table << row.state << '\t' << row.target << '\t' << row.passed << '\t' << row.clicks << '\n';
      allPassed = allPassed && row.passed == row.clicks;
    }
    std::ofstream(folder_ / "clicks.tsv") << table.str();
    std::printf("\n%s\nThe table and the pictures are in %s\n", table.str().c_str(), folder_.c_str());
    if (!allPassed) throw std::runtime_error("clicks were lost");
    judgeCovers({"uncovered", "nominal", "inattention", "alert"}, bareDocument);
    if (std::abs(brightness("switched-off", bareDocument) - brightness("uncovered", bareDocument)) > 1)
      throw std::runtime_error("the document is still covered in switched-off");
  }

  void follows(const std::string& words, const std::function<bool()>& condition) {
    waitFor(words, condition);
    std::printf("  %s\n", words.c_str());
  }

  const GnomeShell& shell_;
  const int clicks_;
  ChildProcess otherWindow_;
  std::vector<Row> rows_;
};

}  // namespace

}  // namespace sentrel::test

int main(int argc, char** argv) {
  const std::string_view name = argc >= 3 && argc <= 5 ? argv[1] : "";
  const int clicks = argc >= 4 ? std::atoi(argv[3]) : 60;
  if (name != "gnome-wayland" || clicks < 1) {
    std::fputs("usage: sentrel-try-desktop gnome-wayland FOLDER [CLICKS [PROGRAM]]\n", stderr);
    return 2;
  }
  const auto folder = std::filesystem::absolute(argv[2]);
  const std::string program = argc == 5 ? argv[4] : SENTREL_PROGRAM;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  try {
    using namespace sentrel::test;  // NOLINT(google-build-using-namespace): in a program's main function
    HeadlessDesktop desktop({.activation = true, .systemBus = true, .pipeWire = true});
    const GnomeShell shell(desktop, {1920, 1080});
    desktop.exportToProcess();
    qputenv("QT_QPA_PLATFORM", "wayland");  // for the document, not for the program
    QLoggingCategory::setFilterRules(QStringLiteral("qt.gui.imageio.warning=false"));
    QGuiApplication application(argc, argv);
    return DesktopTrial(desktop, shell, folder, program, clicks).run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sentrel-try-desktop: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
