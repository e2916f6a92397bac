// SPDX-License-Identifier: Apache-2.0
#include "stage/headless_desktop.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace sentrel::test {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr seconds readyLimit{30};

/// A bus on which anybody who reaches its socket may own any name. Unless services are named nothing is
/// started on demand, so that an installed one never stands in for the one that a test registers.
std::string busConfiguration(const std::string& socket, const std::string& services) {
  return "<busconfig><type>session</type><listen>unix:path=" + socket + "</listen>" + services +
         R"(<policy context="default"><allow user="*"/><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/>)"
         R"(<allow own="*"/></policy></busconfig>)";
}

// Real devices stay out of tests, and nothing is remembered from one run to the next. One form for each
// generation of the session manager; each ignores the other's.
constexpr const char* withoutMainDevicesLua =
    "alsa_monitor.enabled = false\nv4l2_monitor.enabled = false\nlibcamera_monitor.enabled = false\n";
constexpr const char* withoutBluetoothLua = "bluez_monitor.enabled = false\n";
constexpr const char* withoutDevicesConf =
    "wireplumber.profiles = { main = { hardware.audio = disabled, hardware.bluetooth = disabled, "
    "hardware.video-capture = disabled, support.reserve-device = disabled } }\n";

// A picture of one white pixel, which the compositor repeats. A colour would be one pixel that is stretched,
// and at a broken scale some compositors blend its edges with what is behind.
constexpr std::string_view whitePng{
    "\x89PNG\r\n\x1a\n"
    "\0\0\0\x0dIHDR\0\0\0\x01\0\0\0\x01\x08\0\0\0\0\x3a\x7e\x9b\x55"
    "\0\0\0\x0aIDAT\x78\xda\x63\xf8\x0f\0\x01\x01\x01\0\x1c\xb0\x8c\x99"
    "\0\0\0\0IEND\xae\x42\x60\x82",
    67};

void write(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream file(path);
  file << text;
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

bool accepts(const fs::path& socketPath) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = socketPath.string();
  if (path.size() >= sizeof(address.sun_path)) throw std::runtime_error("socket path too long: " + path);
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool connected = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  ::close(fd);
  return connected;
}

/// Of this process.
void setEnvironment(const Environment& environment) {
  ::clearenv();
  for (const auto& [name, value] : environment) ::setenv(name.c_str(), value.c_str(), 1);
}

/// Waits for a service; throws with what it printed when it ends first or does not get ready.
template <typename Condition>
void waitForService(ChildProcess& service, const std::string& name, Condition&& ready) {
  bool isReady = false;
  (void)waitUntil(
      [&] {
        isReady = ready();
        return isReady || !service.isRunning();
      },
      readyLimit);
  if (isReady) return;
  throw std::runtime_error(name + (service.isRunning() ? " did not get ready" : " ended") +
                           "; it printed:\n" + service.output());
}

}  // namespace

/// A connection to the X server, for questions only.
class HeadlessDesktop::XProbe {
 public:
  explicit XProbe(const std::string& display)
      : connection_(xcb_connect(display.c_str(), nullptr), &xcb_disconnect) {
    if (xcb_connection_has_error(connection_.get()) != 0) {
      throw std::runtime_error("cannot connect to the X server " + display);
    }
    root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_.get())).data->root;
    // Programs that only use names which somebody else has brought in find them.
    for (const char* name : {"WM_PROTOCOLS", "WM_DELETE_WINDOW", "_NET_WM_NAME", "UTF8_STRING"}) atom(name);
  }

  [[nodiscard]] bool hasCompositor() const {
    const Reply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        connection_.get(), xcb_get_selection_owner(connection_.get(), atom("_NET_WM_CM_S0")), nullptr));
    return reply && reply->owner != XCB_NONE;
  }

  /// The check window must exist: the property alone survives a window manager that was killed.
  [[nodiscard]] bool hasWindowManager() const {
    xcb_window_t window = root_;
    for (int i = 0; i < 2; ++i) {
      const std::string value = property(window, "_NET_SUPPORTING_WM_CHECK");
      if (value.size() != sizeof window) return false;
      std::memcpy(&window, value.data(), sizeof window);
    }
    return true;
  }

  /// Asks the owner of a window whose name ends so to close it, as the button of its frame would. False when
  /// there is none.
  [[nodiscard]] bool askToClose(const std::string& name) const {
    const Reply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(connection_.get(), xcb_query_tree(connection_.get(), root_), nullptr));
    if (!tree) return false;
    const std::span windows(xcb_query_tree_children(tree.get()),
                            static_cast<std::size_t>(tree->children_len));
    const auto found = std::ranges::find_if(
        windows, [&](xcb_window_t window) { return property(window, "_NET_WM_NAME").ends_with(name); });
    if (found == windows.end()) return false;
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = *found;
    message.type = atom("WM_PROTOCOLS");
    message.data.data32[0] = atom("WM_DELETE_WINDOW");
    xcb_send_event(connection_.get(), 0, message.window, XCB_EVENT_MASK_NO_EVENT,
                   reinterpret_cast<const char*>(&message));
    xcb_flush(connection_.get());
    return true;
  }

 private:
  struct Free {
    void operator()(void* reply) const { std::free(reply); }
  };
  template <typename T>
  using Reply = std::unique_ptr<T, Free>;

  xcb_atom_t atom(const char* name) const {
    const auto length = static_cast<std::uint16_t>(std::strlen(name));
    const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        connection_.get(), xcb_intern_atom(connection_.get(), 0, length, name), nullptr));
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
  }

  /// The first 256 bytes; none of a window that does not exist.
  [[nodiscard]] std::string property(xcb_window_t window, const char* name) const {
    const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection_.get(), xcb_get_property(connection_.get(), 0, window, atom(name), XCB_ATOM_ANY, 0, 64),
        nullptr));
    if (!reply) return {};
    return {static_cast<const char*>(xcb_get_property_value(reply.get())),
            static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))};
  }

  std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection_;
  xcb_window_t root_ = XCB_NONE;
};

HeadlessDesktop::Folder::~Folder() {
  std::error_code ignored;  // a left-over folder of a test is no reason to fail it
  fs::remove_all(path, ignored);
}

HeadlessDesktop::HeadlessDesktop(const Options& options) : options_(options) {
  prepareFolders();
  prepareEnvironment();
  if (options_.sessionBus) replaceSessionBus();
  if (options_.systemBus) startSystemBus();
  if (options_.pipeWire) startPipeWire();
  if (options_.x11) startX();
  if (options_.sway) startSway();
}

HeadlessDesktop::~HeadlessDesktop() {
  if (replaced_) setEnvironment(*replaced_);
}

void HeadlessDesktop::prepareFolders() {
  // Socket paths are limited to 107 bytes, so the folder sits directly below the one for temporary files.
  std::string name = (fs::temp_directory_path() / "sentrel-desktop-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("cannot make " + name + ": " + std::strerror(errno));
  }
  root_.path = name;
  for (const auto& folder : {runtimeFolder(), configFolder(), root_.path / "log"})
    fs::create_directories(folder);
  for (const auto& folder : {root_.path, runtimeFolder(), home()}) {
    fs::permissions(folder, fs::perms::owner_all, fs::perm_options::replace);
  }
}

void HeadlessDesktop::prepareEnvironment() {
  environment_ = currentEnvironment();
  // Whatever leads to the session of the person who runs the test, or changes how programs look and speak.
  std::erase_if(environment_, [](const auto& entry) {
    const auto& variable = entry.first;
    constexpr const char* prefixes[] = {"XDG_",
                                        "DBUS_",
                                        "PIPEWIRE_",
                                        "WIREPLUMBER_",
                                        "QT_",
                                        "GTK_",
                                        "LC_",
                                        "GST_",
                                        "WAYLAND_DISPLAY",
                                        "DISPLAY",
                                        "XAUTHORITY",
                                        "LANGUAGE",
                                        "DESKTOP_SESSION",
                                        "SESSION_MANAGER"};
    return std::ranges::any_of(prefixes, [&](const char* prefix) { return variable.starts_with(prefix); });
  });
  environment_["LANG"] = "C.UTF-8";
  environment_["HOME"] = home().string();
  environment_["XDG_CONFIG_HOME"] = configFolder().string();
  environment_["XDG_RUNTIME_DIR"] = runtimeFolder().string();
  environment_["PIPEWIRE_RUNTIME_DIR"] = runtimeFolder().string();
  // Set even when there is no such bus: a missing variable would lead to the real one.
  environment_["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + (runtimeFolder() / "bus").string();
  environment_["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=" + (runtimeFolder() / "system_bus").string();
  // Software rendering everywhere, and no accessibility bus to look for.
  environment_["NO_AT_BRIDGE"] = "1";
  environment_["LIBGL_ALWAYS_SOFTWARE"] = "1";
}

void HeadlessDesktop::exportToProcess() {
  if (!replaced_) replaced_ = currentEnvironment();
  setEnvironment(environment_);
}

ChildProcess HeadlessDesktop::spawn(const std::string& program, const std::vector<std::string>& arguments) {
  const std::string leaf = fs::path(program).filename().string();
  const fs::path log = root_.path / "log" / (leaf + "." + std::to_string(spawned_++));
  return ChildProcess({program, arguments, environment_, log});
}

std::string HeadlessDesktop::run(const std::string& program, const std::vector<std::string>& arguments,
                                 milliseconds timeout) {
  ChildProcess child = spawn(program, arguments);
  const auto status = child.waitForExit(timeout);
  if (status != 0) {
    throw std::runtime_error(program + (status ? " failed" : " took too long") + "; it printed:\n" +
                             child.output());
  }
  return child.output();
}

ChildProcess HeadlessDesktop::startBus(const std::string& name, const std::string& services) {
  const fs::path socket = runtimeFolder() / name;
  const fs::path configuration = root_.path / (name + ".conf");
  write(configuration, busConfiguration(socket, services));
  fs::remove(socket);
  ChildProcess bus =
      spawn("dbus-daemon", {"--nofork", "--nopidfile", "--config-file=" + configuration.string()});
  waitForService(bus, "dbus-daemon", [&] { return accepts(socket); });
  return bus;
}

void HeadlessDesktop::replaceSessionBus() {
  sessionBus_.kill();
  sessionBus_ =
      startBus("bus", options_.activation ? "<standard_session_servicedirs/>"
                                          : "<servicedir>" + serviceFolder().string() + "</servicedir>");
}

void HeadlessDesktop::startSystemBus() {
  if (!systemBus_.isRunning()) systemBus_ = startBus("system_bus");
}

void HeadlessDesktop::startPipeWire() {
  if (pipeWire_.isRunning()) return;
  sessionManager_.terminate();
  const fs::path socket = runtimeFolder() / "pipewire-0";
  fs::remove(socket);
  pipeWire_ = spawn("pipewire", {});
  waitForService(pipeWire_, "pipewire", [&] { return accepts(socket); });
  const fs::path configuration = configFolder() / "wireplumber";
  write(configuration / "main.lua.d" / "80-without-devices.lua", withoutMainDevicesLua);
  write(configuration / "bluetooth.lua.d" / "80-without-devices.lua", withoutBluetoothLua);
  write(configuration / "wireplumber.conf.d" / "80-without-devices.conf", withoutDevicesConf);
  sessionManager_ = spawn("wireplumber", {});
  // Its settings objects are what clients look for; once they are listed, streams are linked.
  waitForService(sessionManager_, "wireplumber", [&] {
    return run("pw-cli", {"ls", "Metadata"}).find("metadata.name = \"default\"") != std::string::npos;
  });
}

void HeadlessDesktop::killPipeWire() {
  pipeWire_.kill();
  sessionManager_.kill();
}

void HeadlessDesktop::startX() {
  if (xServer_.isRunning()) return;
  const std::string size = std::to_string(options_.width) + "x" + std::to_string(options_.height) + "x24";
  // The server chooses a free display itself and prints its number once it accepts connections.
  xServer_ = spawn("Xvfb", {"-displayfd", "1", "-screen", "0", size, "-dpi", "96", "-nolisten", "tcp",
                            "-noreset", "+extension", "RANDR", "+extension", "COMPOSITE"});
  std::string display;
  waitForService(xServer_, "Xvfb", [&] {
    std::istringstream printed(xServer_.output());
    for (std::string line; std::getline(printed, line) && !printed.eof();) {
      if (line.find_first_not_of("0123456789") == std::string::npos) display = ":" + line;
    }
    return !display.empty();
  });
  environment_["DISPLAY"] = display;
  if (replaced_) exportToProcess();
  probe_ = std::make_unique<XProbe>(display);
  if (options_.windowManager) {
    windowManager_ = spawn("openbox", {"--sm-disable"});
    waitForService(windowManager_, "openbox", [&] { return probe_->hasWindowManager(); });
  }
  if (options_.compositor) startPicom();
}

void HeadlessDesktop::killX() {
  probe_.reset();
  xServer_.kill();
  // They end by themselves without a server; this only waits for it.
  windowManager_.terminate();
  compositor_.terminate();
}

bool HeadlessDesktop::hasWindowManager() const {
  return probe_->hasWindowManager();
}

bool HeadlessDesktop::hasCompositor() const {
  return probe_->hasCompositor();
}

void HeadlessDesktop::startPicom() {
  if (compositor_.isRunning()) return;
  compositor_ = spawn("picom", {"--config", "/dev/null", "--backend", "xrender", "--no-vsync"});
  waitForService(compositor_, "picom", [&] { return probe_->hasCompositor(); });
}

// It refuses to run as root and then gets an own user, who must reach its socket's folder.
void HeadlessDesktop::startSway(const std::string& lines) {
  if (sway_.isRunning()) return;
  const std::string size = std::to_string(options_.width) + "x" + std::to_string(options_.height);
  const fs::path background = root_.path / "white.png";
  write(background, std::string(whitePng));
  const fs::path configuration = root_.path / "sway.conf";
  write(configuration, "output * mode --custom " + size + "\noutput * bg " + background.string() +
                           " tile\ndefault_border none\nxwayland disable\n" + lines);
  environment_["WLR_BACKENDS"] = options_.x11 ? "x11" : "headless";
  environment_["WLR_RENDERER"] = "pixman";
  environment_["WLR_LIBINPUT_NO_DEVICES"] = "1";
  environment_["SWAYSOCK"] = (runtimeFolder() / "sway").string();
  environment_.erase("WAYLAND_DISPLAY");
  std::vector<std::string> command{"sway", "--config", configuration.string()};
  if (::geteuid() == 0) {
    constexpr uid_t nobody = 65534;
    for (const auto& folder : {root_.path, runtimeFolder()}) {
      if (::chown(folder.c_str(), nobody, nobody) != 0)
        throw std::runtime_error("cannot give " + folder.string());
    }
    const std::string id = std::to_string(nobody);
    command.insert(command.begin(),
                   {"setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups", "--pdeathsig=KILL"});
  }
  const fs::path socket = runtimeFolder() / "wayland-1";
  fs::remove(socket);
  fs::remove(environment_["SWAYSOCK"]);
  sway_ = spawn(command.front(), {command.begin() + 1, command.end()});
  waitForService(sway_, "sway", [&] { return fs::exists(environment_["SWAYSOCK"]) && accepts(socket); });
  environment_["WAYLAND_DISPLAY"] = "wayland-1";
  if (replaced_) exportToProcess();
}

void HeadlessDesktop::removeOutput(const std::string& name) {
  if (!waitUntil([&] { return probe_->askToClose(name); }, readyLimit)) {
    throw std::runtime_error("there is no output " + name);
  }
}

bool HeadlessDesktop::hasNode(const std::string& nodeName) {
  return run("pw-cli", {"ls", "Node"}).find("node.name = \"" + nodeName + "\"") != std::string::npos;
}

void HeadlessDesktop::waitForNode(const std::string& nodeName) {
  if (!waitUntil([&] { return hasNode(nodeName); }, readyLimit)) {
    throw std::runtime_error("the node " + nodeName + " did not appear");
  }
}

void HeadlessDesktop::screenshot(const fs::path& path) {
  const fs::path file = fs::absolute(path);
  fs::create_directories(file.parent_path());
  ChildProcess child = beginScreenshot(file);
  if (child.waitForExit(readyLimit) != 0) {
    throw std::runtime_error("no picture of the screen: " + child.output());
  }
}

ChildProcess HeadlessDesktop::beginScreenshot(const fs::path& path) {
  if (options_.sway) return spawn("grim", {path.string()});
  return spawn("import", {"-silent", "-window", "root", "png:" + path.string()});
}

}  // namespace sentrel::test
