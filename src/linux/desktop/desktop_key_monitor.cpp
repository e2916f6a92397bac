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
/// when first wanted; the desktop asks the person.
class DesktopKeyMonitor::Portal final : private BusService {
 public:
  explicit Portal(DesktopKeyMonitor& monitor)
      : BusService(monitor.parts_.sessionBus, "org.freedesktop.portal.Desktop"), monitor_(monitor) {}

  /// Binds the shortcut, unless it is bound or the person declined.
  void bind() {
    if (isPresent()) appeared();
  }

 private:
  enum class Stage { idle, binding, bound, declined };
  using Answer = std::function<void(const QVariantMap& results)>;

  void appeared() override {
    if (stage_ == Stage::idle) createSession();
  }
  void gone() override;
  void absent() override { start(); }
  void createSession();
  void sessionCreated(const QVariantMap& results);
  void bindShortcut();
  [[nodiscard]] std::string expectAnswer(Answer answer);
  [[nodiscard]] BusReply requested();
  void failed();

  DesktopKeyMonitor& monitor_;
  Stage stage_ = Stage::idle;
  int requests_ = 0;
  std::string session_;
  Registration response_;  // to the request under way
  std::vector<Registration> listening_;
};

void DesktopKeyMonitor::Portal::gone() {
  listening_.clear();
  response_.reset();
  session_.clear();
  if (stage_ == Stage::declined) return;
  if (std::exchange(stage_, Stage::idle) == Stage::bound) monitor_.setPossible(false);
}

void DesktopKeyMonitor::Portal::createSession() {
  stage_ = Stage::binding;
  const auto registered = [this](const BusMessage&) {
    const std::string token = expectAnswer([this](const QVariantMap& results) { sessionCreated(results); });
    call(ofShortcuts("CreateSession"), requested(), "a{sv}", 2, "session_handle_token", "s", "sentrel",
         "handle_token", "s", token.c_str());
  };
  // Portals since 2025 want to know who speaks; older ones do not know the question.
  constexpr int noOptions = 0;
  call({portalPath, "org.freedesktop.host.portal.Registry", "Register"}, {registered}, "sa{sv}",
       "expert.mardeck.sentrel", noOptions);
}

void DesktopKeyMonitor::Portal::sessionCreated(const QVariantMap& results) {
  // Documented as an object path, sent as a text.
  session_ = valueOf<QString>(results, "session_handle").value_or(QString()).toStdString();
  if (!session_.starts_with('/')) {
    failed();
    return;
  }
  listening_.push_back(listen(ofShortcuts("Activated"), [this](const BusMessage& signal) {
    const bool ours = valueOf<QString>(signal.arguments.value(0)) == QString::fromStdString(session_);
    if (ours && valueOf<QString>(signal.arguments.value(1)) == QLatin1String(shortcutId)) monitor_.pressed();
  }));
  listening_.push_back(
      listen({session_, "org.freedesktop.portal.Session", "Closed"}, [this](const BusMessage&) { gone(); }));
  bindShortcut();
}

void DesktopKeyMonitor::Portal::bindShortcut() {
  const std::string token = expectAnswer([this](const QVariantMap&) {
    stage_ = Stage::bound;
    monitor_.setPossible(true);
  });
  constexpr auto noParentWindow = "";
  call(ofShortcuts("BindShortcuts"), requested(), "oa(sa{sv})sa{sv}", session_.c_str(), 1, shortcutId, 2,
       "description", "s", monitor_.parts_.description.c_str(), "preferred_trigger", "s", keys,
       noParentWindow, 1, "handle_token", "s", token.c_str());
}

/// The portal answers a request by a signal of an object whose path is known beforehand, so that it can be
/// listened to before the question is asked. Gives the token that the path is made of.
std::string DesktopKeyMonitor::Portal::expectAnswer(Answer answer) {
  std::string token = "sentrel" + std::to_string(++requests_);
  std::string sender = bus().ownName().erase(0, 1);
  std::ranges::replace(sender, '.', '_');
  std::string path = portalPath;
  path.append("/request/").append(sender).append("/").append(token);
  const auto answered = [this, answer = std::move(answer)](const BusMessage& signal) {
    if (signal.signature != "ua{sv}") return;
    response_.reset();
    if (signal.arguments.at(0).toUInt() == 0) {
      answer(signal.arguments.at(1).toMap());
    } else {
      failed();
    }
  };
  response_ = listen({path, "org.freedesktop.portal.Request", "Response"}, answered);
  return token;
}

/// The call itself is answered with where the answer will come.
BusReply DesktopKeyMonitor::Portal::requested() {
  return {[this](const BusMessage& reply) {
            if (reply.objectPath().empty()) failed();
          },
          BusReply::noTimeout};  // a dialog may be open as long as the person likes
}

/// The person declined, or this portal has no shortcuts: nobody is asked again in this process.
void DesktopKeyMonitor::Portal::failed() {
  stage_ = Stage::declined;
  response_.reset();
  listening_.clear();
}

DesktopKeyMonitor::DesktopKeyMonitor(Parts parts) : parts_(std::move(parts)), onX11_(isX11Session()) {
  if (!onX11_) return;
  parts_.displays->post([loop = parts_.mainLoop, weak = std::weak_ptr(self_)] {
    loop->post([weak, possible = X11KeyMonitor::isPossible()] {
      if (const auto self = weak.lock()) (*self)->setPossible(possible);
    });
  });
}

DesktopKeyMonitor::~DesktopKeyMonitor() = default;

Registration DesktopKeyMonitor::observe(std::function<void()> pressed) {
  const bool running = observer_ != nullptr;
  observer_ = std::make_shared<const std::function<void()>>(std::move(pressed));
  if (!running) begin();
  return Registration([this, weak = std::weak_ptr(observer_)] {
    if (weak.expired()) return;
    observer_ = nullptr;
    x11_ = {};
  });
}

void DesktopKeyMonitor::begin() {
  if (onX11_) {
    const auto tellPress = [loop = parts_.mainLoop, weak = std::weak_ptr(self_)] {
      loop->post([weak] {
        if (const auto self = weak.lock()) (*self)->pressed();
      });
    };
    x11_ = {parts_.displays, [tellPress] { return std::make_unique<X11KeyMonitor>(tellPress); }};
    return;
  }
  if (!portal_) portal_ = std::make_unique<Portal>(*this);
  portal_->bind();
}

void DesktopKeyMonitor::setPossible(bool possible) {
  if (std::exchange(possible_, possible) != possible) canObserveChanged.emit();
}

void DesktopKeyMonitor::pressed() const {
  const bool ourWindow = QGuiApplication::focusWindow() != nullptr;
  const bool locked = parts_.sessionEvents && parts_.sessionEvents->isLocked();
  if (ourWindow || locked || !observer_) return;
  const auto told = *observer_;  // copied, because it may end its own registration
  told();
}

}  // namespace sentrel
