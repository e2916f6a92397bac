// SPDX-License-Identifier: Apache-2.0
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <optional>
#include <string>

#include "desktop_shell.h"
#include "nested_screen.h"
#include "screen_locker.h"

namespace sentrel::test {

namespace {

constexpr int barHeight = 32;

/// Sway in a window of an X server, with its own bar, which counts what it gets, and with its own X server.
class SwayShell final : public DesktopShell {
 public:
  explicit SwayShell(HeadlessDesktop& desktop)
      : desktop_(desktop), host_(desktop), folder_(desktop.runtimeFolder()) {
    desktop.setVariable("XDG_CURRENT_DESKTOP", "sway");
    desktop.setVariable("XDG_SESSION_TYPE", "wayland");
    // One wide block; the bar writes every click on it to the one who printed it, and who keeps its own side
    // open.
    desktop.startSway(
        "xwayland enable\n"
        "bindsym Mod4+l exec " +
        locker_.command() +
        "\n"
        "exec xhost +local: && echo \"$DISPLAY\" > " +
        file("display") +
        "\n"
        "bar {\n  position top\n  height " +
        std::to_string(barHeight) +
        "\n"
        "  status_command \"printf '%s\\n' '{\\\"version\\\":1,\\\"click_events\\\":true}' "
        "'[[{\\\"name\\\":\\\"trial\\\",\\\"full_text\\\":\\\"Trial\\\",\\\"min_width\\\":1500}],' && exec "
        "cat 3>&1 > " +
        file("clicks") + "\"\n}\n");
    waitFor("sway's bar and its X server start",
            [this] { return read("display").ends_with('\n') && hasBar(); });
    const std::string display = read("display");
    desktop.setVariable("DISPLAY", display.substr(0, display.find('\n')));
    notifications_ = desktop.spawn("mako");
  }

  ~SwayShell() override { hang(false); }

  [[nodiscard]] std::string version() const override { return outputOf(desktop_, "sway", {"--version"}); }

  void click(QPoint at) override { host_.click(at * scale_); }
  void pressKey(const std::string& keys) override { host_.pressKey(keys); }

  [[nodiscard]] std::optional<QRect> window(const QString& title) override {
    std::optional<QRect> place;
    forEachWindow([&](const QJsonObject& node, const QRect& rect) {
      if (node[u"name"].toString() == title) place = rect;
    });
    return place;
  }

  [[nodiscard]] QString under(QPoint at) override {
    QStringList names;
    forEachWindow([&](const QJsonObject& node, const QRect& rect) {
      if (rect.contains(at)) names += node[u"name"].toString();
    });
    return names.join(QStringLiteral(" above "));
  }

  /// Out of the tiles, above which it stays.
  void raiseWindow(const QString& title) override {
    message("[title=\"^" + title.toStdString() + "$\"] floating enable, move position 1450 350");
  }
  /// A lone tile fills what the bar leaves.
  void maximizeWindow(const QString& /*title*/) override {}

  [[nodiscard]] std::vector<QPoint> panelSpots() override {
    return {{1000, barHeight / 2}, {1300, barHeight / 2}, {1700, barHeight / 2}};
  }
  [[nodiscard]] int panelClicks() override {
    return static_cast<int>(QByteArray::fromStdString(read("clicks")).count("\"button\""));
  }

  void setHanging(bool hangs) override { hang(hangs); }
  void screenshot(const std::filesystem::path& path) override { (void)desktop_.run("grim", {path.string()}); }

  QRect addOutput() override {
    message("create_output");
    QRect place;
    waitFor("sway's second output comes", [&] {
      const QJsonArray outputs = ask("get_outputs").array();
      place = outputs.size() == 2 ? placeOf(outputs.last().toObject()) : QRect();
      return !place.isEmpty();
    });
    return place;
  }
  void pressShortcut(const std::string& /*keys*/) override {
    throw NotHere("sway gives its keys to commands, not to programs");
  }
  void removeOutput() override {
    desktop_.removeOutput("X11-2");
    message("workspace number 1");  // not that of the screen which has gone
  }

  [[nodiscard]] std::optional<QRect> notification() override { return shownByMako(desktop_, barHeight); }
  void setAppearance(Appearance appearance) override { setInSettings(desktop_, appearance); }

  /// As people have it, by a key.
  void setLocked(bool locked) override {
    if (!locked) return locker_.end();
    pressKey("super+l");
    locker_.waitUntilShown(*this);
  }

  void setScale(double scale) override {
    message("output * scale " + std::to_string(scale));
    scale_ = scale;
  }

 private:
  [[nodiscard]] std::string file(const char* name) const { return (folder_ / name).string(); }
  [[nodiscard]] std::string read(const char* name) const {
    std::ifstream in(file(name));
    return {std::istreambuf_iterator<char>(in), {}};
  }

  void hang(bool hangs) const { ::kill(desktop_.swayPid(), hangs ? SIGSTOP : SIGCONT); }
  void message(const std::string& command) const { (void)desktop_.run("swaymsg", {command}); }
  [[nodiscard]] QJsonDocument ask(const std::string& what) const {
    return QJsonDocument::fromJson(
        QByteArray::fromStdString(desktop_.run("swaymsg", {"--raw", "--type", what})));
  }

  [[nodiscard]] bool hasBar() const {
    const QJsonArray outputs = ask("get_workspaces").array();
    return !outputs.isEmpty() && placeOf(outputs.first().toObject()).top() == barHeight;
  }

  static QRect placeOf(const QJsonObject& node) { return rectOf(node[u"rect"]).value_or(QRect()); }

  /// The highest comes last.
  void forEachWindow(const std::function<void(const QJsonObject& node, const QRect& rect)>& visit) const {
    const std::function<void(const QJsonObject&)> walk = [&](const QJsonObject& node) {
      if (node[u"pid"].isDouble()) visit(node, placeOf(node));
      for (const auto list : {u"nodes", u"floating_nodes"}) {
        for (const QJsonValue& child : node[QStringView(list)].toArray()) walk(child.toObject());
      }
    };
    walk(ask("get_tree").object());
  }

  HeadlessDesktop& desktop_;
  NestedScreen host_;
  const std::filesystem::path folder_;
  const ScreenLocker locker_{desktop_, "swaylock", SIGUSR1};  // which unlocks it
  double scale_ = 1;
  ChildProcess notifications_;
};

}  // namespace

std::unique_ptr<DesktopShell> startSway(HeadlessDesktop& desktop) {
  return std::make_unique<SwayShell>(desktop);
}

}  // namespace sentrel::test
