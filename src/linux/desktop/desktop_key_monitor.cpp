// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_key_monitor.h"

#include <QGuiApplication>
#include <QVariantMap>
#include <algorithm>
#include <array>
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

/// How the portal knows a shortcut.
struct PortalShortcut {
  const char* id;
  const char* session;  ///< the last part of its session's path
  const char* keys;     ///< modifiers in capitals, then the name of the key
};
// In the order of the shortcuts.
constexpr std::array<PortalShortcut, 2> portalShortcuts{
    {{"toggle", "sentrel", "LOGO+SHIFT+c"}, {"cover", "sentrel_cover", "LOGO+SHIFT+v"}}};

BusMember ofShortcuts(const char* member) {
  return {portalPath, "org.freedesktop.portal.GlobalShortcuts", member};
}

/// The keys of the one shortcut that was bound, where the portal tells them.
std::string keysIn(const QVariantMap& results) {
  const QVariantList bound = results.value(QStringLiteral("shortcuts")).toList().value(0).toList();
  const QVariantMap properties = bound.value(1).toMap();
  return valueOf<QString>(properties, "trigger_description").value_or(QString()).toStdString();
}

}  // namespace

/// A shortcut through the desktop portal's GlobalShortcuts (version 1): one portal session a process and
/// shortcut, because a session is bound once, when the shortcut is first wanted; the desktop asks the person.
class DesktopKeyMonitor::Portal final : private BusService {
 public:
  Portal(DesktopKeyMonitor& monitor, Shortcut shortcut)
      : BusService(monitor.parts_.sessionBus, "org.freedesktop.portal.Desktop"),
        monitor_(monitor),
        shortcut_(shortcut) {}

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

  [[nodiscard]] const PortalShortcut& names() const {
    return portalShortcuts[static_cast<std::size_t>(shortcut_)];
  }

  DesktopKeyMonitor& monitor_;
  const Shortcut shortcut_;
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
  if (std::exchange(stage_, Stage::idle) == Stage::bound) monitor_.setGrant(shortcut_, {});
}

void DesktopKeyMonitor::Portal::createSession() {
  stage_ = Stage::binding;
  const auto registered = [this](const BusMessage&) {
    const std::string token = expectAnswer([this](const QVariantMap& results) { sessionCreated(results); });
    call(ofShortcuts("CreateSession"), requested(), "a{sv}", 2, "session_handle_token", "s", names().session,
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
    if (ours && valueOf<QString>(signal.arguments.value(1)) == QLatin1String(names().id))
      monitor_.pressed(shortcut_);
  }));
  listening_.push_back(
      listen({session_, "org.freedesktop.portal.Session", "Closed"}, [this](const BusMessage&) { gone(); }));
  bindShortcut();
}

void DesktopKeyMonitor::Portal::bindShortcut() {
  const std::string token = expectAnswer([this](const QVariantMap& results) {
    stage_ = Stage::bound;
    monitor_.setGrant(shortcut_, {ShortcutGrant::Kind::granted, keysIn(results)});
  });
  constexpr auto noParentWindow = "";
  call(ofShortcuts("BindShortcuts"), requested(), "oa(sa{sv})sa{sv}", session_.c_str(), 1, names().id, 2,
       "description", "s", monitor_.parts_.descriptions[static_cast<std::size_t>(shortcut_)].c_str(),
       "preferred_trigger", "s", names().keys, noParentWindow, 1, "handle_token", "s", token.c_str());
}

/// The portal answers a request by a signal of an object whose path is known beforehand, so that it can be
/// listened to before the question is asked. Gives the token that the path is made of.
std::string DesktopKeyMonitor::Portal::expectAnswer(Answer answer) {
  std::string token = names().session + std::to_string(++requests_);
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
  monitor_.setGrant(shortcut_, {ShortcutGrant::Kind::refused});
}

DesktopKeyMonitor::DesktopKeyMonitor(Parts parts) : parts_(std::move(parts)), onX11_(isX11Session()) {
  if (!onX11_) return;
  parts_.displays->post([loop = parts_.mainLoop, weak = std::weak_ptr(self_)] {
    loop->post([weak, possible = X11KeyMonitor::isPossible()] {
      const auto self = weak.lock();
      if (!self) return;
      for (const Shortcut shortcut : {Shortcut::toggle, Shortcut::cover})
        (*self)->setGrant(shortcut,
                          {possible ? ShortcutGrant::Kind::observed : ShortcutGrant::Kind::refused});
    });
  });
}

DesktopKeyMonitor::~DesktopKeyMonitor() = default;

Registration DesktopKeyMonitor::observe(Shortcut shortcut, std::function<void()> pressed) {
  auto& observer = of(shortcut).observer;
  const bool running = observer != nullptr;
  observer = std::make_shared<const std::function<void()>>(std::move(pressed));
  if (!running) begin(shortcut);
  return Registration([this, shortcut, weak = std::weak_ptr(observer)] {
    if (weak.expired()) return;
    of(shortcut).observer = nullptr;
    of(shortcut).x11 = {};
  });
}

void DesktopKeyMonitor::begin(Shortcut shortcut) {
  if (!onX11_) {
    auto& portal = of(shortcut).portal;
    if (!portal) portal = std::make_unique<Portal>(*this, shortcut);
    portal->bind();
    return;
  }
  const auto tellPress = [loop = parts_.mainLoop, weak = std::weak_ptr(self_), shortcut] {
    loop->post([weak, shortcut] {
      if (const auto self = weak.lock()) (*self)->pressed(shortcut);
    });
  };
  const auto letter = shortcut == Shortcut::cover ? X11KeyMonitor::Letter::v : X11KeyMonitor::Letter::c;
  of(shortcut).x11 = {parts_.displays,
                      [letter, tellPress] { return std::make_unique<X11KeyMonitor>(letter, tellPress); }};
}

void DesktopKeyMonitor::setGrant(Shortcut shortcut, ShortcutGrant grant) {
  if (of(shortcut).grant == grant) return;
  of(shortcut).grant = std::move(grant);
  grantChanged.emit();
}

void DesktopKeyMonitor::pressed(Shortcut shortcut) const {
  const bool ourWindow = shortcut == Shortcut::toggle && QGuiApplication::focusWindow() != nullptr;
  const bool locked = parts_.sessionEvents && parts_.sessionEvents->isLocked();
  const auto& observer = of(shortcut).observer;
  if (ourWindow || locked || !observer) return;
  const auto told = *observer;  // copied, because it may end its own registration
  told();
}

}  // namespace sentrel
