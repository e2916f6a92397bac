// SPDX-License-Identifier: Apache-2.0
//
// What other programs send on the buses. The input plays both buses and every service on them: it owns each
// name, answers each call, sends the signals that are listened to, and calls us, with values of its choice.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <QByteArrayList>
#include <QCoreApplication>
#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/program_bus.h"
#include "app/program_interface.h"
#include "fuzz_input.h"
#include "linux/desktop/bus.h"
#include "linux/desktop/camera_portal.h"
#include "linux/desktop/desktop_appearance.h"
#include "linux/desktop/desktop_key_monitor.h"
#include "linux/desktop/desktop_notifications.h"
#include "linux/desktop/desktop_portal.h"
#include "linux/desktop/desktop_screen_sharing.h"
#include "linux/desktop/desktop_session_events.h"
#include "linux/desktop/upower_power_source.h"
#include "support/fake_desktop.h"
#include "support/manual_main_loop.h"

namespace {

using namespace sentrel;  // NOLINT(google-build-using-namespace): a program of one function
using fuzz::require;
using Input = FuzzedDataProvider;

constexpr auto owner = ":1.9";
constexpr auto ourName = ":1.7";
constexpr std::string_view daemonName = "org.freedesktop.DBus";

// What a program may be sent, above all what it waits for; between spaces, the first one is empty.
constexpr auto signatures =
    " b i u x d s o h v y q g as ao a{sv} sa{sv}as ua{sv} (so) uu us ss sss ssv bs xx sava{sv} asa{sv} "
    "osa{sv} "
    "oa(sa{sv}) a(uo) av aas ay a{ss} (a{sv}v) a{sa{sv}} a(sa{sv}) osta{sv} ssss";
constexpr auto words =
    " / org.freedesktop.appearance color-scheme contrast text-scaling-factor org.gnome.desktop.interface "
    "org.gnome.desktop.a11y.interface high-contrast enable-animations prefer-dark xsettings /Net/ThemeName "
    "LockedHint Active PowerSaveMode Type IsPresent Percentage State PowerSupply session_handle shortcuts "
    "trigger_description toggle cover default actions Inhibited org.kde.KWin org.kde.plasmashell pause "
    "org.freedesktop.impl.portal.desktop.x preferences activation-token quit";
constexpr auto paths =
    "/ /org/freedesktop/login1/session/_31 /org/freedesktop/UPower/devices/battery_BAT0 "
    "/org/freedesktop/UPower/devices/DisplayDevice /org/freedesktop/portal/desktop/session/1_7/sentrel";

/// What is called of ours, and with what.
struct Method {
  const char* interface;
  const char* name;
  const char* types;
};
constexpr auto properties = "org.freedesktop.DBus.Properties";
constexpr std::array methods{Method{program_interface::application, "Activate", "a{sv}"},
                             Method{program_interface::application, "ActivateAction", "sava{sv}"},
                             Method{program_interface::application, "Open", "asa{sv}"},
                             Method{program_interface::name, "Pause", "x"},
                             Method{program_interface::name, "Welcome", "xx"},
                             Method{program_interface::name, "SwitchOff", ""},
                             Method{program_interface::name, "Privacy", ""},
                             Method{program_interface::name, "Report", ""},
                             Method{properties, "Get", "ss"},
                             Method{properties, "GetAll", "s"},
                             Method{properties, "Set", "ssv"}};

std::string oneOf(Input& input, const char* these) {
  const QByteArrayList all = QByteArray(these).split(' ');
  return all[input.ConsumeIntegralInRange<qsizetype>(0, all.size() - 1)].toStdString();
}

std::string text(Input& input) {
  if (input.ConsumeBool()) return oneOf(input, words);
  std::string value = input.ConsumeRandomLengthString(40);
  for (char& c : value) c = static_cast<char>(static_cast<unsigned char>(c) % 95 + ' ');
  return value;
}

/// The first complete type of a signature.
std::string firstType(std::string_view signature) {
  std::size_t end = signature.find_first_not_of('a');
  int depth = 0;
  do {
    depth += signature[end] == '(' || signature[end] == '{' ? 1 : 0;
    depth -= signature[end] == ')' || signature[end] == '}' ? 1 : 0;
    ++end;
  } while (depth > 0);
  return std::string(signature.substr(0, end));
}

void appendBasic(sd_bus_message* message, char type, Input& input) {
  if (type == 's' || type == 'o' || type == 'g') {
    const std::string value = type == 's' ? text(input) : oneOf(input, type == 'o' ? paths : signatures);
    sd_bus_message_append_basic(message, type, value.c_str());
  } else if (type == 'd') {
    const auto value = input.ConsumeFloatingPoint<double>();
    sd_bus_message_append_basic(message, type, &value);
  } else {
    const std::int64_t value = type == 'h'           ? STDIN_FILENO
                               : input.ConsumeBool() ? input.ConsumeIntegralInRange<std::int64_t>(-1, 6)
                                                     : input.ConsumeIntegral<std::int64_t>();
    sd_bus_message_append_basic(message, type, &value);
  }
}

void append(sd_bus_message* message, std::string_view signature, Input& input, int depth = 0) {
  constexpr int deepest = 6;
  while (!signature.empty()) {
    const std::string type = firstType(signature);
    signature.remove_prefix(type.size());
    const char kind = type.front();
    if (std::string_view("va({").find(kind) == std::string_view::npos) {
      appendBasic(message, kind, input);
      continue;
    }
    const std::string contents = kind == 'a'       ? type.substr(1)
                                 : kind != 'v'     ? type.substr(1, type.size() - 2)
                                 : depth < deepest ? firstType(oneOf(input, signatures) + 's')
                                                   : "s";
    const char container = kind == '(' ? SD_BUS_TYPE_STRUCT : kind == '{' ? SD_BUS_TYPE_DICT_ENTRY : kind;
    sd_bus_message_open_container(message, container, contents.c_str());
    for (int left = kind == 'a' ? input.ConsumeIntegralInRange(0, 4) : 1; left > 0; --left)
      append(message, contents, input, depth + 1);
    sd_bus_message_close_container(message);
  }
}

/// The bus at the other end of one of our connections, and every service on it.
class OtherEnd {
 public:
  OtherEnd(int descriptor, Input& input) : input_(input) {
    sd_bus* made = nullptr;
    require(sd_bus_new(&made) >= 0);
    bus_.reset(made);
    sd_id128_t id{};
    sd_id128_randomize(&id);
    sd_bus_set_fd(made, descriptor, descriptor);
    sd_bus_set_server(made, 1, id);
    sd_bus_set_trusted(made, 1);
    sd_bus_negotiate_fds(made, 1);
    const auto received = [](sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
      return static_cast<OtherEnd*>(self)->received(message);
    };
    sd_bus_add_filter(made, nullptr, received, this);
    require(sd_bus_start(made) >= 0);
  }

  /// Whether there was anything to do.
  bool process() {
    bool done = false;
    while (sd_bus_process(bus_.get(), nullptr) > 0) done = true;
    return done;
  }

  /// One of the signals that are listened to, or a call of a method of ours.
  void speak() {
    const Message message = !rules_.empty() && input_.ConsumeBool() ? newSignal() : newCall();
    if (message) sd_bus_send(bus_.get(), message.get(), nullptr);
  }

 private:
  struct Release {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
  };
  using Message = std::unique_ptr<sd_bus_message, Release>;

  Message newSignal() {
    const std::string& rule = rules_.at(input_.ConsumeIntegralInRange<std::size_t>(0, rules_.size() - 1));
    const std::string path = part(rule, "path");
    sd_bus_message* made = nullptr;
    sd_bus_message_new_signal(bus_.get(), &made, (path.empty() ? oneOf(input_, paths) : path).c_str(),
                              part(rule, "interface").c_str(), part(rule, "member").c_str());
    Message signal(made);
    if (!signal) return signal;
    sd_bus_message_set_sender(made, part(rule, "sender").c_str());
    const std::string first = part(rule, "arg0");
    std::string signature = oneOf(input_, signatures);
    if (!first.empty() && signature.starts_with('s')) {
      sd_bus_message_append_basic(made, 's', first.c_str());
      signature.erase(0, 1);
    }
    append(made, signature, input_);
    return signal;
  }

  Message newCall() {
    const Method& method = methods.at(input_.ConsumeIntegralInRange<std::size_t>(0, methods.size() - 1));
    sd_bus_message* made = nullptr;
    sd_bus_message_new_method_call(bus_.get(), &made, ourName, program_interface::path, method.interface,
                                   method.name);
    Message call(made);
    if (!call) return call;
    sd_bus_message_set_sender(made, owner);
    append(made, input_.ConsumeBool() ? method.types : oneOf(input_, signatures), input_);
    return call;
  }

  /// The value of a key of a match rule.
  static std::string part(const std::string& rule, const std::string& key) {
    const auto at = rule.find(key + "='");
    if (at == std::string::npos) return {};
    const auto begin = at + key.size() + 2;
    return rule.substr(begin, rule.find('\'', begin) - begin);
  }

  int received(sd_bus_message* call) {
    constexpr int handled = 1;
    if (sd_bus_message_is_method_call(call, nullptr, nullptr) <= 0) return handled;
    const std::string_view member = sd_bus_message_get_member(call);
    const char* destination = sd_bus_message_get_destination(call);
    const bool ofDaemon = destination != nullptr && destination == daemonName;
    if (!ofDaemon && input_.remaining_bytes() > 0 && input_.ConsumeIntegralInRange(0, 7) == 0) {
      sd_bus_reply_method_errorf(call, "org.freedesktop.DBus.Error.NoReply", "no");
      return handled;
    }
    sd_bus_message* made = nullptr;
    if (sd_bus_message_new_method_return(call, &made) < 0) return handled;
    const Message reply(made);
    sd_bus_message_set_sender(made, ofDaemon ? daemonName.data() : owner);
    const char* rule = nullptr;
    if (ofDaemon && member == "AddMatch") {
      if (sd_bus_message_read(call, "s", &rule) > 0) rules_.emplace_back(rule);
    } else if (ofDaemon && member == "Hello") {
      sd_bus_message_append(made, "s", ourName);
    } else if (ofDaemon && member == "GetNameOwner") {
      sd_bus_message_append(made, "s", owner);
    } else if (ofDaemon && member == "RequestName" && input_.ConsumeBool()) {
      sd_bus_message_append(made, "u", 1U);
    } else {
      append(made, oneOf(input_, signatures), input_);
    }
    sd_bus_send(bus_.get(), made, nullptr);
    return handled;
  }

  Input& input_;
  std::unique_ptr<sd_bus, Release> bus_;
  std::vector<std::string> rules_;
};

/// The socket where both buses are to be found; the kernel chooses its name.
int listen() {
  const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  socklen_t length = sizeof address.sun_family;
  auto* const named = reinterpret_cast<sockaddr*>(&address);
  require(bind(made, named, length) == 0 && ::listen(made, 8) == 0);
  length = sizeof address;
  require(getsockname(made, named, &length) == 0);
  const std::string name(address.sun_path + 1, length - sizeof address.sun_family - 1);
  for (const char* variable : {"DBUS_SESSION_BUS_ADDRESS", "DBUS_SYSTEM_BUS_ADDRESS"})
    setenv(variable, ("unix:abstract=" + name).c_str(), 1);
  return made;
}

struct Reads final : ScreenReads {
  [[nodiscard]] Registration observe() override { return {}; }
  [[nodiscard]] const Published<std::vector<ScreenRead>>& screenReads() const override { return reads; }
  Published<std::vector<ScreenRead>> reads{{{1, 2}, {1, 3}}};
};

/// Everybody in the program who reads what comes from a bus, but for the icon of the panel.
struct Listeners {
  Listeners(std::shared_ptr<test::ManualMainLoop> itsLoop, std::shared_ptr<EventThread> itsDisplays)
      : loop(std::move(itsLoop)), displays(std::move(itsDisplays)) {
    held.push_back(events->install([this](SessionEvent) { events->cameraIsClosed(); }));
    held.push_back(events->followLock([](bool) {}));
    held.push_back(power.observe());
    held.push_back(sharing.observe());
    for (const Shortcut shortcut : {Shortcut::toggle, Shortcut::cover})
      held.push_back(keys.observe(shortcut, [] {}));
    program.perform = [](const std::string&, const std::vector<std::int64_t>&) { return nullptr; };
    program.prove = [](const ProgramBus::ProofTold& told) { told(true, "report"); };
    program.report = [](const ProgramBus::ReportTold& told) { told("words"); };
    program.claimName([](InstanceRole) {});
    notifications.requestAuthorization([this](bool) {
      notifications.add("alert",
                        {.title = "title", .body = "body", .actions = {{"guest", "a"}, {"nobody", "b"}}});
    });
  }

  std::shared_ptr<test::ManualMainLoop> loop;
  std::shared_ptr<EventThread> displays;
  std::shared_ptr<Bus> session = std::make_shared<Bus>(loop, BusKind::session);
  std::shared_ptr<Bus> system = std::make_shared<Bus>(loop, BusKind::system);
  std::shared_ptr<DesktopPortal> portal = std::make_shared<DesktopPortal>(session);
  std::shared_ptr<DesktopSessionEvents> events = std::make_shared<DesktopSessionEvents>(
      DesktopSessionEvents::Parts{loop, loop, session, system, displays});
  UPowerPowerSource power{system};
  DesktopScreenSharing sharing{loop, session, std::make_shared<Reads>()};
  DesktopAppearance appearance{session, portal, "/nowhere"};
  DesktopNotifications notifications{loop, session};
  FeedbackdHaptics haptics{session};
  CameraPortal cameras{portal};
  DesktopKeyMonitor keys{
      {loop, session, portal, std::make_shared<test::MemoryUserDefaults>(), displays, events, {"a", "b"}}};
  ProgramBus program{loop, session, Launch::person};
  std::vector<Registration> held;
};

void play(Input& input) {
  static const int listening = listen();
  static int count = 1;
  static char* arguments[] = {program_invocation_name, nullptr};
  static const QCoreApplication application(count, static_cast<char**>(arguments));
  static const auto displays = std::make_shared<EventThread>(QStringLiteral("displays"));
  const auto loop = std::make_shared<test::ManualMainLoop>();
  std::vector<std::unique_ptr<OtherEnd>> buses;
  {
    Listeners listeners(loop, displays);
    constexpr int mostTurns = 300;
    constexpr int quietTurns = 3;
    for (int turn = 0, quiet = 0; turn < mostTurns && quiet < quietTurns; ++turn) {
      loop->advance(0);
      QCoreApplication::processEvents();
      bool moved = false;
      for (int accepted = 0;
           (accepted = accept4(listening, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)) >= 0; moved = true)
        buses.push_back(std::make_unique<OtherEnd>(accepted, input));
      for (const auto& bus : buses) moved = bus->process() || moved;
      if (moved) continue;
      ++quiet;
      if (input.remaining_bytes() == 0 || buses.empty()) continue;
      quiet = 0;
      const int what = input.ConsumeIntegralInRange(0, 15);
      const auto which = input.ConsumeIntegralInRange<std::size_t>(0, buses.size() - 1);
      if (what == 0) loop->advance(input.ConsumeIntegralInRange(0, 9000));
      if (what == 1) listeners.haptics.perform();
      if (what == 2) listeners.notifications.add("alert", {.title = text(input), .body = text(input)});
      if (what == 3) buses.erase(buses.begin() + static_cast<std::ptrdiff_t>(which));  // it breaks
      if (what == 4) listeners.cameras.open([](const BusDescriptor& remote) { require(*remote >= 0); });
      if (what > 4) buses.at(which)->speak();
    }
    const auto battery = listeners.power.first();
    if (battery && battery->currentCapacity)
      require(*battery->currentCapacity >= 0 && *battery->currentCapacity <= 100);
  }
  loop->advance(0);
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
  for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY", "XDG_SESSION_ID"}) unsetenv(variable);
  setenv("XDG_CURRENT_DESKTOP", "KDE:XFCE", 1);  // which say more on the bus than others do
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  play(input);
  return 0;
}
