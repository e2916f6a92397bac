// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/portal_shortcut.h"

#include <algorithm>
#include <utility>

namespace sentrel {

namespace {

constexpr auto portalPath = "/org/freedesktop/portal/desktop";
constexpr auto shortcutId = "toggle";

/// As the portal writes shortcuts: modifiers in capitals, then the name of the key.
constexpr auto keys = "LOGO+SHIFT+c";

BusMember ofShortcuts(const char* member) {
  return {portalPath, "org.freedesktop.portal.GlobalShortcuts", member};
}

}  // namespace

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

}  // namespace sentrel
