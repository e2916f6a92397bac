// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_key_monitor.h"

#include <QGuiApplication>
#include <QVariantMap>
#include <algorithm>
#include <utility>
#include <vector>

#include "linux/display/x11_key_monitor.h"

namespace sentrel {

namespace {

/// Below a Wayland compositor an X server hears only the keys of its own windows.
bool isX11Session() {
  return qEnvironmentVariableIsSet("DISPLAY") && !qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
}

constexpr auto portalPath = "/org/freedesktop/portal/desktop";
constexpr auto shortcutId = "toggle";

/// As the portal writes shortcuts: modifiers in capitals, then the name of the key.
constexpr auto keys = "LOGO+SHIFT+c";

BusMember ofShortcuts(const char* member) {
  return {portalPath, "org.freedesktop.portal.GlobalShortcuts", member};
}

}  // namespace

/// The shortcut through the desktop portal's GlobalShortcuts (version 1): one portal session a process, bound
/// when first wanted; the desktop asks the person. Main thread.
class PortalShortcut {
 public:
  struct Followers {
    std::function<void(bool bound)> bound;
    std::function<void()> pressed;
  };

  /// `description` is shown to the person beside the keys.
  PortalShortcut(std::shared_ptr<Bus> sessionBus, std::string description, Followers followers);

  /// Binds the shortcut, unless it is bound or the person declined.
  void bind();

 private:
  enum class Stage { idle, binding, bound, declined };
  using Answer = std::function<void(const QVariantMap& results)>;

  void appeared();
  void gone();
  void createSession();
  void sessionCreated(const QVariantMap& results);
  void bindShortcut();
  [[nodiscard]] std::string expectAnswer(Answer answer);
  void listenForResponse(const std::string& path);
  [[nodiscard]] BusReply requested();
  void failed();

  const std::string description_;
  const Followers followers_;
  Stage stage_ = Stage::idle;
  bool wanted_ = false;
  int requests_ = 0;
  std::string session_;
  std::string requestPath_;  // of the request under way
  Answer answer_;            // to it
  Registration response_;
  std::vector<Registration> listening_;
  BusService portal_;  // last: its handlers use the others
};

PortalShortcut::PortalShortcut(std::shared_ptr<Bus> sessionBus, std::string description, Followers followers)
    : description_(std::move(description)),
      followers_(std::move(followers)),
      portal_(std::move(sessionBus), "org.freedesktop.portal.Desktop",
              {.appeared = [this] { appeared(); },
               .gone = [this] { gone(); },
               .absent =
                   [this] {
                     if (wanted_) portal_.start();
                   }}) {}

void PortalShortcut::bind() {
  const bool first = !std::exchange(wanted_, true);
  if (portal_.isPresent()) {
    appeared();
  } else if (first) {
    portal_.start();
  }
}

void PortalShortcut::appeared() {
  if (wanted_ && stage_ == Stage::idle) createSession();
}

void PortalShortcut::gone() {
  listening_.clear();
  answer_ = nullptr;
  session_.clear();
  if (stage_ == Stage::declined) return;
  if (std::exchange(stage_, Stage::idle) == Stage::bound) followers_.bound(false);
}

void PortalShortcut::createSession() {
  stage_ = Stage::binding;
  const auto registered = [this](const BusMessage&) {
    const std::string token = expectAnswer([this](const QVariantMap& results) { sessionCreated(results); });
    portal_.call(ofShortcuts("CreateSession"), requested(), "a{sv}", 2, "session_handle_token", "s",
                 "sentrel", "handle_token", "s", token.c_str());
  };
  // Portals since 2025 want to know who speaks; older ones do not know the question.
  constexpr int noOptions = 0;
  portal_.call({portalPath, "org.freedesktop.host.portal.Registry", "Register"}, {registered}, "sa{sv}",
               "expert.mardeck.sentrel", noOptions);
}

void PortalShortcut::sessionCreated(const QVariantMap& results) {
  // Documented as an object path, sent as a text.
  session_ = valueOf<QString>(results, "session_handle").value_or(QString()).toStdString();
  if (!session_.starts_with('/')) {
    failed();
    return;
  }
  listening_.push_back(portal_.listen(ofShortcuts("Activated"), [this](const BusMessage& signal) {
    const bool ours = valueOf<QString>(signal.arguments.value(0)) == QString::fromStdString(session_);
    if (ours && valueOf<QString>(signal.arguments.value(1)) == QLatin1String(shortcutId))
      followers_.pressed();
  }));
  listening_.push_back(portal_.listen({session_, "org.freedesktop.portal.Session", "Closed"},
                                      [this](const BusMessage&) { gone(); }));
  bindShortcut();
}

void PortalShortcut::bindShortcut() {
  const std::string token = expectAnswer([this](const QVariantMap&) {
    stage_ = Stage::bound;
    followers_.bound(true);
  });
  constexpr auto noParentWindow = "";
  portal_.call(ofShortcuts("BindShortcuts"), requested(), "oa(sa{sv})sa{sv}", session_.c_str(), 1, shortcutId,
               2, "description", "s", description_.c_str(), "preferred_trigger", "s", keys, noParentWindow, 1,
               "handle_token", "s", token.c_str());
}

/// The portal answers a request by a signal of an object whose path is known beforehand, so that it can be
/// listened to before the question is asked. Gives the token that the path is made of.
std::string PortalShortcut::expectAnswer(Answer answer) {
  answer_ = std::move(answer);
  const std::string token = "sentrel" + std::to_string(++requests_);
  std::string sender = portal_.bus().ownName().erase(0, 1);
  std::ranges::replace(sender, '.', '_');
  requestPath_ =
      QStringLiteral("%1/request/%2/%3")
          .arg(QLatin1String(portalPath), QString::fromStdString(sender), QString::fromStdString(token))
          .toStdString();
  listenForResponse(requestPath_);
  return token;
}

/// The call itself is answered with where the answer will come.
BusReply PortalShortcut::requested() {
  return {[this, expected = requestPath_](const BusMessage& reply) {
            const std::string path = reply.objectPath();
            if (path.empty()) {
              failed();
            } else if (path != expected) {
              listenForResponse(path);
            }
          },
          BusReply::noTimeout};  // a dialog may be open as long as the person likes
}

void PortalShortcut::listenForResponse(const std::string& path) {
  response_ =
      portal_.listen({path, "org.freedesktop.portal.Request", "Response"}, [this](const BusMessage& signal) {
        if (signal.signature != "ua{sv}") return;
        const auto answer = std::exchange(answer_, nullptr);
        response_.reset();
        if (!answer) return;
        if (signal.arguments.at(0).toUInt() == 0) {
          answer(signal.arguments.at(1).toMap());
        } else {
          failed();
        }
      });
}

/// The person declined, or this portal has no shortcuts: nobody is asked again in this process.
void PortalShortcut::failed() {
  stage_ = Stage::declined;
  answer_ = nullptr;
  response_.reset();
  listening_.clear();
}

/// `act` with this and the arguments, on the main thread, as long as this exists. Any thread.
template <class Act>
auto DesktopKeyMonitor::later(Act act) {
  return [loop = parts_.mainLoop, weak = std::weak_ptr(self_), act](auto... arguments) {
    loop->post([weak, act, arguments...] {
      if (const auto self = weak.lock()) act(**self, arguments...);
    });
  };
}

DesktopKeyMonitor::DesktopKeyMonitor(Parts parts) : parts_(std::move(parts)), onX11_(isX11Session()) {
  if (!onX11_) return;
  const auto tell = later([](DesktopKeyMonitor& self, bool possible) { self.setPossible(possible); });
  parts_.displays->post([tell] { tell(X11KeyMonitor::isPossible()); });
}

DesktopKeyMonitor::~DesktopKeyMonitor() = default;

Registration DesktopKeyMonitor::observe(std::function<void()> pressed) {
  const bool running = static_cast<bool>(observer_);
  observer_ = std::move(pressed);
  const std::uint64_t number = ++observerNumber_;
  if (!running) begin();
  return Registration([this, weak = std::weak_ptr(self_), number] {
    if (weak.expired() || observerNumber_ != number) return;
    observer_ = nullptr;
    x11_ = {};
  });
}

void DesktopKeyMonitor::begin() {
  if (onX11_) {
    const auto tellPress = later([](DesktopKeyMonitor& self) { self.pressed(); });
    x11_ = {parts_.displays, [tellPress] { return std::make_unique<X11KeyMonitor>(tellPress); }};
    return;
  }
  if (!portal_) {
    portal_ = std::make_unique<PortalShortcut>(
        parts_.sessionBus, parts_.description,
        PortalShortcut::Followers{[this](bool bound) { setPossible(bound); }, [this] { pressed(); }});
  }
  portal_->bind();
}

void DesktopKeyMonitor::setPossible(bool possible) {
  if (std::exchange(possible_, possible) != possible) canObserveChanged.emit();
}

void DesktopKeyMonitor::pressed() const {
  const bool ourWindow = QGuiApplication::focusWindow() != nullptr;
  const bool locked = parts_.sessionEvents && parts_.sessionEvents->isLocked();
  if (ourWindow || locked) return;
  if (const auto told = observer_) told();
}

}  // namespace sentrel
