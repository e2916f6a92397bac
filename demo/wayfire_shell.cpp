// SPDX-License-Identifier: Apache-2.0
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QStringList>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>

#include "desktop_shell.h"
#include "screen_locker.h"

namespace sentrel::test {

namespace {

constexpr int barHeight = 32;

/// What locks is still to come.
constexpr const char* settings = R"([core]
plugins = autostart command expo place )" SENTREL_WAYFIRE_HANDS R"(
[autostart]
autostart_wf_shell = false
display = echo "$WAYLAND_DISPLAY $DISPLAY" > "$SENTREL_TRIAL/display"
[expo]
toggle = <super> KEY_E
[output:HEADLESS-1]
mode = 1920x1080@60000
[output:HEADLESS-2]
mode = 1920x1080@60000
[command]
binding_own = <super> KEY_K
command_own = echo >> "$SENTREL_TRIAL/keys"
binding_lock = <super> KEY_L
command_lock = )";

/// Wayfire on virtual screens, which draws on a card that is ordinary memory. Waybar is its panel; mouse,
/// keys and finger come from devices that a plugin makes within it, so that they take the way of real ones.
class WayfireShell final : public DesktopShell {
 public:
  explicit WayfireShell(HeadlessDesktop& desktop) : desktop_(desktop), folder_(desktop.runtimeFolder()) {
    desktop.setVariable("XDG_CURRENT_DESKTOP", "wayfire");
    desktop.setVariable("XDG_SESSION_TYPE", "wayland");
    std::ofstream(file("wayfire.ini")) << settings << locker_.command() << '\n';
    process_ =
        desktop.spawn("env", {"LD_PRELOAD=" SENTREL_MEMORY_RENDER_NODE, "WLR_BACKENDS=headless",
                              "WLR_HEADLESS_OUTPUTS=1", "WLR_RENDERER_ALLOW_SOFTWARE=1",
                              "SENTREL_TRIAL=" + folder_.string(), "wayfire", "-c", file("wayfire.ini")});
    waitForStart(process_, "wayfire", [this] { return read("display").ends_with('\n'); });
    std::istringstream names(read("display"));
    for (const char* name : {"WAYLAND_DISPLAY", "DISPLAY"}) {
      std::string value;
      names >> value;
      desktop.setVariable(name, value);
    }
    std::ofstream(file("bar.json"))
        << R"({"height": )" << barHeight
        << R"(, "modules-center": ["custom/trial"], "custom/trial": {"format": "Trial",
        "min-length": 150, "tooltip": false, "on-click": "echo >> )"
        << file("clicks") << "\"}}";
    bar_ = desktop.spawn("waybar", {"--config", file("bar.json")});
    waitFor("the panel is there", [this] { return under(panelSpots().front()).contains(u"waybar"); });
    notifications_ = desktop.spawn("mako");
  }

  ~WayfireShell() override {
    process_.signal(SIGCONT);
    process_.terminate();
  }

  WayfireShell(const WayfireShell&) = delete;
  WayfireShell& operator=(const WayfireShell&) = delete;

  [[nodiscard]] std::string version() const override {
    return "Wayfire " + outputOf(desktop_, "wayfire", {"--version"});
  }

  void click(QPoint at) override {
    ask("move", at - QPoint(4, 0));
    ask("move", at);
    ask("button 1");
    ask("button 0");
  }
  void touch(QPoint at) override { ask("touch", at); }

  void pressKey(const std::string& keys) override {
    QStringList names;
    for (const QString& name : QString::fromStdString(keys).split(u'+')) {
      names.prepend(name == u"super"   ? QStringLiteral("Super_L")
                    : name == u"shift" ? QStringLiteral("Shift_L")
                                       : name);
    }
    for (auto name = names.crbegin(); name != names.crend(); ++name) ask("key " + name->toStdString() + " 1");
    for (const QString& name : names) ask("key " + name.toStdString() + " 0");
  }

  [[nodiscard]] std::optional<QRect> window(const QString& title) override {
    std::istringstream windows(ask("windows"));
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    while (windows >> x >> y >> width >> height) {
      std::string name;
      std::getline(windows >> std::ws, name);
      if (name == title.toStdString()) return QRect(x, y, width, height);
    }
    return {};
  }
  [[nodiscard]] QString under(QPoint at) override { return QString::fromStdString(ask("under", at)); }
  void raiseWindow(const QString& title) override { ask("above 1450 350 " + title.toStdString()); }
  void maximizeWindow(const QString& title) override { ask("maximize " + title.toStdString()); }

  [[nodiscard]] std::vector<QPoint> panelSpots() override {
    return {{700, barHeight / 2}, {960, barHeight / 2}, {1200, barHeight / 2}};
  }
  [[nodiscard]] int panelClicks() override { return linesIn("clicks"); }
  [[nodiscard]] std::string desktopKey() override { return "super+k"; }
  [[nodiscard]] int desktopKeys() override { return linesIn("keys"); }
  void pressShortcut(const std::string& /*keys*/) override {
    throw NotHere("Wayfire gives its keys to commands, not to programs");
  }

  /// A click on the first of its workspaces closes it.
  void clickOverview(bool open) override {
    const QPoint at(300, 200);
    open ? pressKey("super+e") : click(at);
    waitFor("the overview opens or closes", [&] { return (under(at) == u"the overview") == open; });
  }

  void setHanging(bool hangs) override { process_.signal(hangs ? SIGSTOP : SIGCONT); }
  void screenshot(const std::filesystem::path& path) override { (void)desktop_.run("grim", {path.string()}); }

  QRect addOutput() override {
    ask("output add");
    click({2900, 500});  // new windows open on the screen that is in use
    return {1920, 0, 1920, 1080};
  }
  void removeOutput() override { ask("output remove"); }
  void setScale(double scale) override { ask("scale " + std::to_string(scale)); }

  [[nodiscard]] std::optional<QRect> notification() override { return shownByMako(desktop_, barHeight); }
  void setAppearance(Appearance appearance) override { setInSettings(desktop_, appearance); }

  /// As people have it, by a key.
  void setLocked(bool locked) override {
    if (!locked) return locker_.end();
    pressKey("super+l");
    locker_.waitUntilShown(*this);
  }

 private:
  [[nodiscard]] std::string file(const char* name) const { return (folder_ / name).string(); }
  [[nodiscard]] std::string read(const char* name) const {
    std::ifstream in(file(name));
    return {std::istreambuf_iterator<char>(in), {}};
  }
  [[nodiscard]] int linesIn(const char* name) const {
    return static_cast<int>(QByteArray::fromStdString(read(name)).count('\n'));
  }

  /// The plugin's answer; its requests stand with it.
  std::string ask(const std::string& request) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    file("hands").copy(address.sun_path, sizeof address.sun_path - 1);
    const int socket = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    std::array<char, 8192> answer{};
    ssize_t size = -1;
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        ::send(socket, request.data(), request.size(), MSG_NOSIGNAL) >= 0) {
      size = ::recv(socket, answer.data(), answer.size(), 0);
    }
    const int error = errno;
    ::close(socket);
    if (size < 0) throw std::system_error(error, std::generic_category(), "Wayfire does not answer");
    return {answer.data(), static_cast<std::size_t>(size)};
  }
  std::string ask(const std::string& what, QPoint at) const {
    return ask(what + " " + std::to_string(at.x()) + " " + std::to_string(at.y()));
  }

  HeadlessDesktop& desktop_;
  const std::filesystem::path folder_;
  const ScreenLocker locker_{desktop_, "swaylock", SIGUSR1};  // which unlocks it
  ChildProcess process_;
  ChildProcess bar_;
  ChildProcess notifications_;
};

}  // namespace

std::unique_ptr<DesktopShell> startWayfire(HeadlessDesktop& desktop) {
  if (std::strlen(SENTREL_WAYFIRE_HANDS) == 0)
    throw std::runtime_error("there was no Wayfire 0.7 with its headers when this was built");
  return std::make_unique<WayfireShell>(desktop);
}

}  // namespace sentrel::test
