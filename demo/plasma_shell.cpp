// SPDX-License-Identifier: Apache-2.0
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>

#include "desktop_shell.h"
#include "kde_session.h"
#include "nested_screen.h"

namespace sentrel::test {

namespace {

namespace fs = std::filesystem;
using namespace Qt::StringLiterals;

/// What a widget of the trial prints when it is pressed.
constexpr auto pressed = "trial: pressed";
// At the end of the panel; so wide, and as high as the panel.
constexpr int widgetWidth = 300;

constexpr auto metadata = R"({"KPlugin": {"Id": "trial", "Name": "Trial", "Category": "Utilities"},
 "KPackageStructure": "Plasma/Applet", "X-Plasma-API": "declarativeappletscript",
 "X-Plasma-API-Minimum-Version": "6.0", "X-Plasma-MainScript": "ui/main.qml", "ServiceTypes": ["Plasma/Applet"]})";

// A widget is written in another way since version 6; %1 is what it shows.
constexpr auto widget5 = R"(import QtQuick 2.15
import QtQuick.Layouts 1.15
import org.kde.plasma.plasmoid 2.0
Item {
  Plasmoid.preferredRepresentation: Plasmoid.fullRepresentation
  Plasmoid.fullRepresentation: %1
})";
constexpr auto widget6 = R"(import QtQuick
import QtQuick.Layouts
import org.kde.plasma.plasmoid
PlasmoidItem {
  preferredRepresentation: fullRepresentation
  fullRepresentation: %1
})";
constexpr auto pressArea = R"(MouseArea {
    Layout.minimumWidth: %1
    onPressed: console.warn("%2")
    Rectangle { anchors.fill: parent; color: "steelblue" }
  })";

void write(const fs::path& path, const QString& text) {
  fs::create_directories(path.parent_path());
  std::ofstream file(path);
  file << text.toStdString();
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

/// KWin as a Wayland compositor in a window of an X server, with its own X server and Plasma's panel. KWin
/// tells of its windows in scripts that it runs.
class PlasmaShell final : public DesktopShell {
 public:
  explicit PlasmaShell(HeadlessDesktop& desktop)
      : desktop_(desktop), session_(desktop), bus_(session_.bus()), host_(desktop) {
    desktop.setVariable("XDG_SESSION_TYPE", "wayland");
    desktop.setVariable("KDE_FULL_SESSION", "true");
    desktop.setVariable("QT_LOGGING_RULES", "js.debug=true;kwin_scripting.debug=true;qml.debug=true");
    startKwin();
    desktop.setVariable("KDE_SESSION_VERSION", isSix() ? "6" : "5");
    startPanel();
  }

  ~PlasmaShell() override {
    kwin_.signal(SIGCONT);
    panel_.terminate();
  }

  PlasmaShell(const PlasmaShell&) = delete;
  PlasmaShell& operator=(const PlasmaShell&) = delete;

  [[nodiscard]] std::string version() const override {
    return outputOf(desktop_, "plasmashell", {"--version"}) + ", " + kwinVersion();
  }

  void click(QPoint at) override { host_.click(at * scale_); }
  void pressKey(const std::string& keys) override { host_.pressKey(keys); }

  [[nodiscard]] std::optional<QRect> window(const QString& title) override {
    return place(windowNamed(title));
  }

  [[nodiscard]] QString under(QPoint at) override {
    return evaluate(
               u"windows.filter(w => { const r = w.frameGeometry; return %1 >= r.x && %1 < r.x + r.width && "
               "%2 >= r.y && %2 < r.y + r.height; }).map(w => w.caption).join(', ')"_s.arg(at.x())
                   .arg(at.y()))
        .toString();
  }

  void raiseWindow(const QString& title) override {
    (void)evaluate(
        u"(w => { w.keepAbove = true; w.frameGeometry = {x: 1450, y: 350, width: w.frameGeometry.width, "
        "height: w.frameGeometry.height}; return true; })(%1)"_s.arg(windowNamed(title)));
  }
  void maximizeWindow(const QString& title) override {
    (void)evaluate(u"(w => { w.noBorder = true; w.setMaximize(true, true); return true; })(%1)"_s.arg(
        windowNamed(title)));
  }

  [[nodiscard]] std::vector<QPoint> panelSpots() override {
    const QPoint right(screen_.width() - widgetWidth / 2, screen_.height() - 20);
    return {right, right - QPoint(70, 5), right + QPoint(60, 3)};
  }
  [[nodiscard]] int panelClicks() override {
    return static_cast<int>(QByteArray::fromStdString(panel_.output()).count(pressed));
  }

  [[nodiscard]] std::optional<QRect> notification() override {
    return place(u"windows.find(w => w.notification || w.criticalNotification)"_s);
  }

  QRect addOutput() override {
    setOutput(1, u"enable"_s);
    setOutput(1, u"position.%1,0"_s.arg(screen_.width()));
    return {QPoint(screen_.width(), 0), screen_};
  }
  void removeOutput() final { setOutput(1, u"disable"_s); }

  void setScale(double scale) override {
    setOutput(0, u"scale.%1"_s.arg(scale));
    scale_ = scale;
  }

  void setAppearance(Appearance appearance) override { session_.setAppearance(appearance); }
  void setLocked(bool locked) override { session_.setLocked(locked); }
  void setHanging(bool hangs) override { kwin_.signal(hangs ? SIGSTOP : SIGCONT); }
  void screenshot(const fs::path& path) override { host_.screenshot(path); }

 private:
  [[nodiscard]] bool isSix() const { return kwinVersion().find(" 6.") != std::string::npos; }
  [[nodiscard]] std::string kwinVersion() const {
    return outputOf(desktop_, program_.string(), {"--version"});
  }

  void startKwin() {
    fs::copy_file("/usr/bin/kwin_wayland", program_);
    const fs::path display = desktop_.runtimeFolder() / "display";
    desktop_.setVariable("KWIN_COMPOSE", "Q");
    kwin_ = desktop_.spawn(
        program_, {"--x11-display", host_.display(), "--width", std::to_string(screen_.width()), "--height",
                   std::to_string(screen_.height()), "--output-count", canSetOutputs_ ? "2" : "1",
                   "--xwayland", "--socket", "wayland-0",
                   "sh -c 'printf \"%s\\n%s\\n\" \"$DISPLAY\" \"$XAUTHORITY\" > " + display.string() + "'"});
    std::string name;
    std::string authority;
    waitForStart(kwin_, "KWin", [&] {
      std::ifstream in(display);
      return std::getline(in, name) && std::getline(in, authority) && !in.eof();
    });
    desktop_.setVariable("DISPLAY", name);
    desktop_.setVariable("XAUTHORITY", authority);
    desktop_.setVariable("WAYLAND_DISPLAY", "wayland-0");
    bus_.waitForName(u"org.kde.KWin"_s);
    if (canSetOutputs_) placeSecondOutput();
    (void)desktop_.run("dbus-update-activation-environment", {"--all"});
  }

  /// The windows that are its outputs lie above each other. It is there when it is asked for.
  void placeSecondOutput() {
    static const QRegularExpression windows(u"(0x[0-9a-f]+) \"KDE.*(0x[0-9a-f]+) \"KDE"_s,
                                            QRegularExpression::DotMatchesEverythingOption);
    QString second;
    const auto areThere = [&] {
      const auto found = windows.match(QString::fromStdString(host_.run("xwininfo", {"-root", "-children"})));
      second = found.captured(1);  // the highest comes first
      return found.hasMatch();
    };
    if (!waitUntil(areThere, startLimit, lookInterval)) throw std::runtime_error("KWin has no second output");
    host_.run("xdotool", {"windowmove", second.toStdString(), std::to_string(screen_.width()), "0"});
    removeOutput();
  }

  void startPanel() {
    const fs::path folder = desktop_.home() / ".local/share/plasma/plasmoids/trial";
    write(folder / "metadata.json", QString::fromLatin1(metadata));
    write(folder / "contents/ui/main.qml",
          QString::fromLatin1(isSix() ? widget6 : widget5)
              .arg(QString::fromLatin1(pressArea).arg(widgetWidth).arg(QLatin1String(pressed))));
    services_ = desktop_.spawn(isSix() ? "kded6" : "kded5", {});
    // Where it shows them by itself they lie below the onlooker's picture.
    write(desktop_.configFolder() / "plasmanotifyrc", u"[Notifications]\nPopupPosition=TopLeft\n"_s);
    panel_ = desktop_.spawn("env", {"QT_QPA_PLATFORM=wayland", "plasmashell"});
    bus_.waitForName(u"org.kde.plasmashell"_s);
    waitForStart(panel_, "Plasma's panel", [&] {
      return script(u"if (panels().length > 0) { panels()[0].addWidget('trial'); print('added'); }"_s) ==
             u"added";
    });
  }

  /// What a script within Plasma's shell prints.
  [[nodiscard]] QString script(const QString& text) const {
    const auto shell = u"org.kde.PlasmaShell"_s;
    try {
      return bus_.call(u"org.kde.plasmashell"_s, u"/PlasmaShell"_s, shell, u"evaluateScript"_s, {text})
          .arguments()
          .value(0)
          .toString()
          .trimmed();
    } catch (const std::runtime_error&) {
      return {};  // not so far
    }
  }

  /// Of the window that an expression within KWin is.
  [[nodiscard]] std::optional<QRect> place(const QString& expression) {
    return rectOf(evaluate(
        u"(w => w && (r => ({x: r.x, y: r.y, width: r.width, height: r.height}))(w.frameGeometry))(%1)"_s.arg(
            expression)));
  }

  void setOutput(int number, const QString& setting) const {
    if (!canSetOutputs_) throw NotHere("no kscreen-doctor");
    (void)desktop_.run("kscreen-doctor", {u"output.%1.%2"_s.arg(number + 1).arg(setting).toStdString()});
  }

  static QString windowNamed(const QString& title) {
    return u"windows.find(w => %1.includes(w.caption))"_s.arg(inScript({title}));
  }

  /// What an expression is within KWin, where `windows` are all windows.
  [[nodiscard]] QJsonValue evaluate(const QString& expression) {
    const QString mark = u"trial %1 "_s.arg(++asked_);
    const fs::path file = desktop_.runtimeFolder() / "question.js";
    write(file,
          u"const windows = workspace.windowList ? workspace.windowList() : workspace.clientList();\n"
          "print('%1' + JSON.stringify([(%2) ?? null]));\n"_s.arg(mark, expression));
    const auto scripting = u"org.kde.kwin.Scripting"_s;
    const auto call = [&](const QString& member, const QVariantList& arguments) {
      (void)bus_.call(u"org.kde.KWin"_s, u"/Scripting"_s, scripting, member, arguments, startLimit);
    };
    call(u"loadScript"_s, {QString::fromStdString(file.string()), mark});
    call(u"start"_s, {});
    QByteArray answer;
    (void)waitUntil(
        [&] {
          const QByteArray printed = QByteArray::fromStdString(kwin_.output());
          const auto begin = printed.lastIndexOf(mark.toUtf8());
          const auto end = begin < 0 ? -1 : printed.indexOf('\n', begin);
          if (end >= 0) answer = printed.mid(begin + mark.size(), end - begin - mark.size());
          return end >= 0;
        },
        startLimit);
    call(u"unloadScript"_s, {mark});
    if (answer.isEmpty()) throw std::runtime_error("KWin does not answer; it printed:\n" + kwin_.output());
    return QJsonDocument::fromJson(answer).array().first();
  }

  HeadlessDesktop& desktop_;
  KdeSession session_;
  const BusClient& bus_;
  NestedScreen host_;
  const QSize screen_{1920, 1080};
  /// A copy: the installed one takes a privilege with it that not every machine gives.
  const fs::path program_ = desktop_.home() / "kwin_wayland";
  /// Not every release has it among what comes with Plasma.
  const bool canSetOutputs_ = fs::exists("/usr/bin/kscreen-doctor");
  int asked_ = 0;
  double scale_ = 1;
  ChildProcess kwin_;
  ChildProcess services_;
  ChildProcess panel_;
};

}  // namespace

std::unique_ptr<DesktopShell> startPlasmaOnWayland(HeadlessDesktop& desktop) {
  return std::make_unique<PlasmaShell>(desktop);
}

}  // namespace sentrel::test
