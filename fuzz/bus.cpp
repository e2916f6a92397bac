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

#include <QCoreApplication>
#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/program_bus.h"
#include "fuzz_input.h"
#include "linux/desktop/bus.h"
#include "linux/desktop/desktop_appearance.h"
#include "linux/desktop/desktop_key_monitor.h"
#include "linux/desktop/desktop_notifications.h"
#include "linux/desktop/desktop_screen_sharing.h"
#include "linux/desktop/desktop_session_events.h"
#include "linux/desktop/upower_power_source.h"
#include "support/manual_main_loop.h"

namespace {

namespace fs = std::filesystem;
using namespace sentrel;  // NOLINT(google-build-using-namespace): a program of one function
using fuzz::require;
using Input = FuzzedDataProvider;

constexpr auto owner = ":1.9";
constexpr auto ourName = ":1.7";
constexpr auto daemon = "org.freedesktop.DBus";

/// What a program may be sent, above all what it waits for.
constexpr std::array signatures{
    "",   "b",   "i",   "u",     "x",        "d",         "s",         "o",        "h",       "v",
    "y",  "q",   "g",   "as",    "ao",       "a{sv}",     "sa{sv}as",  "ua{sv}",   "(so)",    "uu",
    "us", "ss",  "sss", "ssv",   "bs",       "xx",        "sava{sv}",  "asa{sv}",  "osa{sv}", "a(uo)",
    "av", "aas", "ay",  "a{ss}", "(a{sv}v)", "a{sa{sv}}", "a(sa{sv})", "osta{sv}", "ssss"};
constexpr std::array words{"",
                           "/",
                           "org.freedesktop.appearance",
                           "color-scheme",
                           "contrast",
                           "text-scaling-factor",
                           "org.gnome.desktop.interface",
                           "org.gnome.desktop.a11y.interface",
                           "high-contrast",
                           "enable-animations",
                           "prefer-dark",
                           "LockedHint",
                           "Active",
                           "PowerSaveMode",
                           "Type",
                           "IsPresent",
                           "Percentage",
                           "State",
                           "PowerSupply",
                           "session_handle",
                           "toggle",
                           "cover",
                           "default",
                           "actions",
                           "Inhibited",
                           "org.kde.KWin",
                           "org.kde.plasmashell",
                           "pause",
                           "org.freedesktop.impl.portal.desktop.x",
                           "preferences",
                           "activation-token",
                           "quit"};
constexpr std::array paths{
    "/", "/org/freedesktop/login1/session/_31", "/org/freedesktop/UPower/devices/battery_BAT0",
    "/org/freedesktop/UPower/devices/DisplayDevice", "/org/freedesktop/portal/desktop/session/1_7/sentrel"};

template <class Values>
const char* oneOf(Input& input, const Values& values) {
  return values.at(input.ConsumeIntegralInRange<std::size_t>(0, values.size() - 1));
}

/// The length of the first complete type of a signature.
std::size_t typeLength(std::string_view signature) {
  if (signature.front() == 'a') return 1 + typeLength(signature.substr(1));
  int depth = 0;
  std::size_t at = 0;
  do {
    depth += signature[at] == '(' || signature[at] == '{' ? 1 : 0;
    depth -= signature[at] == ')' || signature[at] == '}' ? 1 : 0;
    ++at;
  } while (depth > 0);
  return at;
}

std::string text(Input& input) {
  std::string value = input.ConsumeBool() ? oneOf(input, words) : input.ConsumeRandomLengthString(40);
  for (char& c : value) c = static_cast<char>(static_cast<unsigned char>(c) % 95 + 32);
  return value;
}

void append(sd_bus_message* message, std::string_view signature, Input& input, int depth = 0);

void appendBasic(sd_bus_message* message, char type, Input& input) {
  if (type == 's' || type == 'o' || type == 'g') {
    const std::string value = type == 's'   ? text(input)
                              : type == 'o' ? oneOf(input, paths)
                                            : std::string(oneOf(input, signatures));
    sd_bus_message_append_basic(message, type, value.c_str());
  } else if (type == 'h') {
    const int descriptor = STDIN_FILENO;
    sd_bus_message_append_basic(message, type, &descriptor);
  } else if (type == 'd') {
    const auto value = input.ConsumeFloatingPoint<double>();
    sd_bus_message_append_basic(message, type, &value);
  } else if (type == 'b') {
    const int value = input.ConsumeBool() ? 1 : 0;
    sd_bus_message_append_basic(message, type, &value);
  } else {
    const auto value = input.ConsumeBool() ? input.ConsumeIntegralInRange<std::int64_t>(-1, 6)
                                           : input.ConsumeIntegral<std::int64_t>();
    sd_bus_message_append_basic(message, type, &value);
  }
}

void append(sd_bus_message* message, std::string_view signature, Input& input, int depth) {
  while (!signature.empty()) {
    const std::size_t length = typeLength(signature);
    const std::string type(signature.substr(0, length));
    signature.remove_prefix(length);
    if (type == "v") {
      const std::string_view any = depth < 6 ? oneOf(input, signatures) : "i";
      const std::string content(any.empty() ? "s" : any.substr(0, typeLength(any)));
      sd_bus_message_open_container(message, 'v', content.c_str());
      append(message, content, input, depth + 1);
      sd_bus_message_close_container(message);
    } else if (type.front() == 'a') {
      const std::string element = type.substr(1);
      sd_bus_message_open_container(message, 'a', element.c_str());
      for (int left = input.ConsumeIntegralInRange(0, 4); left > 0; --left)
        append(message, element, input, depth + 1);
      sd_bus_message_close_container(message);
    } else if (type.front() == '(' || type.front() == '{') {
      const std::string inside = type.substr(1, type.size() - 2);
      sd_bus_message_open_container(message, type.front() == '(' ? 'r' : 'e', inside.c_str());
      append(message, inside, input, depth + 1);
      sd_bus_message_close_container(message);
    } else {
      appendBasic(message, type.front(), input);
    }
  }
}

/// The other end of one of our connections.
class FakeBus {
 public:
  FakeBus(int descriptor, Input& input) : input_(input) {
    sd_bus* made = nullptr;
    require(sd_bus_new(&made) >= 0);
    bus_.reset(made);
    sd_id128_t id{};
    sd_id128_randomize(&id);
    sd_bus_set_fd(made, descriptor, descriptor);
    sd_bus_set_server(made, 1, id);
    sd_bus_set_trusted(made, 1);
    sd_bus_negotiate_fds(made, 1);
    sd_bus_add_filter(
        made, nullptr,
        [](sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
          return static_cast<FakeBus*>(self)->received(message);
        },
        this);
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
    sd_bus_message* message = nullptr;
    const bool signals = !rules_.empty() && input_.ConsumeBool();
    if (signals) {
      const std::string& rule = rules_.at(input_.ConsumeIntegralInRange<std::size_t>(0, rules_.size() - 1));
      const std::string path = part(rule, "path");
      if (sd_bus_message_new_signal(bus_.get(), &message, path.empty() ? oneOf(input_, paths) : path.c_str(),
                                    part(rule, "interface").c_str(), part(rule, "member").c_str()) < 0)
        return;
      sd_bus_message_set_sender(message, part(rule, "sender").c_str());
      const std::string first = part(rule, "arg0");
      const std::string_view signature = oneOf(input_, signatures);
      if (!first.empty() && signature.starts_with('s')) {
        sd_bus_message_append_basic(message, 's', first.c_str());
        append(message, signature.substr(1), input_);
      } else {
        append(message, signature, input_);
      }
    } else {
      struct Method {
        const char* interface;
        const char* name;
        const char* types;
      };
      constexpr auto own = "expert.mardeck.sentrel1";
      constexpr auto application = "org.freedesktop.Application";
      constexpr auto properties = "org.freedesktop.DBus.Properties";
      constexpr std::array methods{Method{application, "Activate", "a{sv}"},
                                   Method{application, "ActivateAction", "sava{sv}"},
                                   Method{application, "Open", "asa{sv}"},
                                   Method{own, "Pause", "x"},
                                   Method{own, "Welcome", "xx"},
                                   Method{own, "SwitchOff", ""},
                                   Method{own, "Privacy", ""},
                                   Method{properties, "Get", "ss"},
                                   Method{properties, "GetAll", "s"},
                                   Method{properties, "Set", "ssv"}};
      const Method& method = methods.at(input_.ConsumeIntegralInRange<std::size_t>(0, methods.size() - 1));
      if (sd_bus_message_new_method_call(bus_.get(), &message, ourName, "/expert/mardeck/sentrel",
                                         method.interface, method.name) < 0)
        return;
      sd_bus_message_set_sender(message, owner);
      append(message, input_.ConsumeBool() ? method.types : oneOf(input_, signatures), input_);
    }
    sd_bus_send(bus_.get(), message, nullptr);
    sd_bus_message_unref(message);
  }

 private:
  struct Release {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  };

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
    const bool ofDaemon = destination != nullptr && std::string_view(destination) == daemon;
    sd_bus_message* reply = nullptr;
    const char* rule = nullptr;
    if (ofDaemon && member == "AddMatch" && sd_bus_message_read(call, "s", &rule) > 0)
      rules_.emplace_back(rule);
    if (input_.remaining_bytes() > 0 && !ofDaemon && input_.ConsumeIntegralInRange(0, 7) == 0) {
      sd_bus_reply_method_errorf(call, "org.freedesktop.DBus.Error.NoReply", "no");
      return handled;
    }
    if (sd_bus_message_new_method_return(call, &reply) < 0) return handled;
    sd_bus_message_set_sender(reply, ofDaemon ? daemon : owner);
    if (ofDaemon && member == "Hello") {
      sd_bus_message_append(reply, "s", ourName);
    } else if (ofDaemon && member == "GetNameOwner") {
      sd_bus_message_append(reply, "s", owner);
    } else if (ofDaemon && member == "RequestName" && input_.ConsumeBool()) {
      sd_bus_message_append(reply, "u", 1U);
    } else if (!ofDaemon || !member.starts_with("AddMatch")) {
      append(reply, oneOf(input_, signatures), input_);
    }
    sd_bus_send(bus_.get(), reply, nullptr);
    sd_bus_message_unref(reply);
    return handled;
  }

  Input& input_;
  std::unique_ptr<sd_bus, Release> bus_;
  std::vector<std::string> rules_;
};

/// Where both buses are to be found, for as long as the process lives.
class Sockets {
 public:
  Sockets() {
    std::string name = (fs::temp_directory_path() / "sentrel-fuzz-XXXXXX").string();
    require(mkdtemp(name.data()) != nullptr);
    folder_ = name;
    listen(0, "DBUS_SESSION_BUS_ADDRESS");
    listen(1, "DBUS_SYSTEM_BUS_ADDRESS");
  }
  ~Sockets() { fs::remove_all(folder_); }
  Sockets(const Sockets&) = delete;
  Sockets& operator=(const Sockets&) = delete;

  /// A connection that waits on one of them, or -1.
  [[nodiscard]] int accept() const {
    for (const int socket : sockets_) {
      const int accepted = accept4(socket, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
      if (accepted >= 0) return accepted;
    }
    return -1;
  }

 private:
  void listen(std::size_t which, const char* variable) {
    const std::string path = folder_ / variable;
    setenv(variable, ("unix:path=" + path).c_str(), 1);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
    sockets_.at(which) = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    require(bind(sockets_.at(which), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
            ::listen(sockets_.at(which), 8) == 0);
  }

  fs::path folder_;
  std::array<int, 2> sockets_{};
};

struct Reads final : ScreenReads {
  [[nodiscard]] Registration observe() override { return {}; }
  [[nodiscard]] const Published<std::vector<ScreenRead>>& screenReads() const override { return reads; }
  Published<std::vector<ScreenRead>> reads{{{1, 2}, {1, 3}}};
};

/// Everybody in the program who listens to a bus.
struct Listeners {
  explicit Listeners(std::shared_ptr<test::ManualMainLoop> itsLoop, std::shared_ptr<EventThread> displays)
      : loop(std::move(itsLoop)), events({loop, loop, session, system, displays}) {
    keys = std::make_unique<DesktopKeyMonitor>(
        DesktopKeyMonitor::Parts{loop, session, displays, nullptr, {"a", "b"}});
    held.push_back(events.install([this](SessionEvent) { events.cameraIsClosed(); }));
    held.push_back(events.followLock([](bool) {}));
    held.push_back(power.observe());
    held.push_back(sharing.observe());
    for (const Shortcut shortcut : {Shortcut::toggle, Shortcut::cover})
      held.push_back(keys->observe(shortcut, [] {}));
    program.perform = [](const std::string&, const std::vector<std::int64_t>&) { return nullptr; };
    program.prove = [](const ProgramBus::ProofTold& told) { told(true, "report"); };
    program.claimName([](InstanceRole) {});
    notifications.requestAuthorization([this](bool) {
      notifications.add("alert",
                        {.title = "title", .body = "body", .actions = {{"guest", "a"}, {"nobody", "b"}}});
    });
  }

  std::shared_ptr<test::ManualMainLoop> loop;
  std::shared_ptr<Bus> session = std::make_shared<Bus>(loop, BusKind::session);
  std::shared_ptr<Bus> system = std::make_shared<Bus>(loop, BusKind::system);
  DesktopSessionEvents events;
  UPowerPowerSource power{system};
  DesktopScreenSharing sharing{loop, session, std::make_shared<Reads>()};
  DesktopAppearance appearance{session, "/nowhere"};
  DesktopNotifications notifications{loop, session};
  FeedbackdHaptics haptics{session};
  std::unique_ptr<DesktopKeyMonitor> keys;
  ProgramBus program{loop, session, Launch::person};
  std::vector<Registration> held;
};

void settle(Input& input) {
  static const Sockets sockets;
  static int count = 1;
  static char* arguments[] = {program_invocation_name, nullptr};
  static const QCoreApplication application(count, static_cast<char**>(arguments));
  static const auto displays = std::make_shared<EventThread>(QStringLiteral("displays"));
  const auto loop = std::make_shared<test::ManualMainLoop>();
  std::vector<std::unique_ptr<FakeBus>> buses;
  {
    Listeners listeners(loop, displays);
    constexpr int mostTurns = 300;
    constexpr int quietTurns = 3;
    for (int turn = 0, quiet = 0; turn < mostTurns && quiet < quietTurns; ++turn) {
      loop->advance(0);
      QCoreApplication::processEvents();
      bool moved = false;
      for (int accepted = sockets.accept(); accepted >= 0; accepted = sockets.accept()) {
        buses.push_back(std::make_unique<FakeBus>(accepted, input));
        moved = true;
      }
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
      if (what > 3) buses.at(which)->speak();
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
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  settle(input);
  return 0;
}
