// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/portal_shortcuts.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "linux/desktop/shortcut_keys.h"

namespace sentrel {

namespace {

constexpr auto interface = "org.freedesktop.portal.GlobalShortcuts";

constexpr std::array bothShortcuts{Shortcut::toggle, Shortcut::cover};

/// How the portal knows a shortcut.
struct PortalShortcut {
  const char* id;
  const char* keys;    ///< modifiers in capitals, then the name of the key
  const char* stored;  ///< where it is remembered: whether the desktop granted it when it was asked
};
// In the order of the shortcuts.
constexpr std::array<PortalShortcut, 2> portalShortcuts{
    {{"toggle", "LOGO+SHIFT+c", "portal_granted_toggle"}, {"cover", "LOGO+SHIFT+v", "portal_granted_cover"}}};

const PortalShortcut& namesOf(Shortcut shortcut) {
  return portalShortcuts[static_cast<std::size_t>(shortcut)];
}

BusMember method(const char* name) {
  return {DesktopPortal::path, interface, name};
}

}  // namespace

PortalShortcuts::PortalShortcuts(Parts parts)
    : parts_(std::move(parts)), following_(parts_.portal->follow([this](bool ready) {
        close();
        if (ready && !wanted_.empty()) open();
      })) {}

void PortalShortcuts::want(Shortcut shortcut) {
  wanted_.insert(shortcut);
  parts_.portal->want();
  const bool isDone = bound_.contains(shortcut) && isAsked(shortcut);
  if (isDone || !parts_.portal->isReady()) return;
  close();
  open();
}

void PortalShortcuts::forget(UserDefaults& userDefaults, Shortcut shortcut) {
  if (userDefaults.value(namesOf(shortcut).stored)) userDefaults.remove(namesOf(shortcut).stored);
}

bool PortalShortcuts::isAsked(Shortcut shortcut) const {
  return parts_.userDefaults->value(namesOf(shortcut).stored).has_value();
}

bool PortalShortcuts::wasGranted(Shortcut shortcut) const {
  return parts_.userDefaults->value(namesOf(shortcut).stored) == DefaultsValue(true);
}

/// What is heard of the session ends with it.
void PortalShortcuts::close() {
  request_.reset();
  listening_ = {};
  if (!session_.empty()) parts_.portal->call({session_, "org.freedesktop.portal.Session", "Close"}, {}, "");
  session_.clear();
  for (const Shortcut shortcut : std::exchange(bound_, {})) parts_.granted(shortcut, {});
}

void PortalShortcuts::open() {
  bound_ = wanted_;
  for (const Shortcut shortcut : bothShortcuts) {
    if (wasGranted(shortcut)) bound_.insert(shortcut);
  }
  const std::string token = parts_.portal->newToken();
  request_ = parts_.portal->request(
      token, [this](const auto& results) { sessionCreated(results); }, method("CreateSession"), "a{sv}", 2,
      "session_handle_token", "s", token.c_str(), "handle_token", "s", token.c_str());
}

void PortalShortcuts::sessionCreated(const std::optional<QVariantMap>& results) {
  // Documented as an object path, sent as a text.
  if (results) session_ = valueOf<QString>(*results, "session_handle").value_or(QString()).toStdString();
  if (!session_.starts_with('/')) {
    session_.clear();
    return settle({});
  }
  const auto isOurs = [this](const BusMessage& signal) {
    return valueOf<QString>(signal.arguments.value(0)) == QString::fromStdString(session_);
  };
  listening_[0] = parts_.portal->listen(method("Activated"), [this, isOurs](const BusMessage& signal) {
    if (!isOurs(signal)) return;
    for (const Shortcut shortcut : bothShortcuts) {
      if (valueOf<QString>(signal.arguments.value(1)) == QLatin1String(namesOf(shortcut).id))
        return parts_.pressed(shortcut);
    }
  });
  listening_[1] = parts_.portal->listen(method("ShortcutsChanged"), [this, isOurs](const BusMessage& signal) {
    if (isOurs(signal) && !request_) settle(keysIn(signal.arguments.value(1)));
  });
  listening_[2] = parts_.portal->listen({session_, "org.freedesktop.portal.Session", "Closed"},
                                        [this](const BusMessage&) {
                                          session_.clear();
                                          close();
                                        });
  askVersion();
}

void PortalShortcuts::askVersion() {
  const auto answered = [this](const BusMessage& reply) {
    version_ = reply.only<uint>().value_or(1);
    list(&PortalShortcuts::decide);
  };
  request_ = parts_.portal->ask({DesktopPortal::path, "org.freedesktop.DBus.Properties", "Get"}, answered,
                                "ss", interface, "version");
}

void PortalShortcuts::list(void (PortalShortcuts::*then)(const Keys& listed)) {
  const std::string token = parts_.portal->newToken();
  request_ = parts_.portal->request(
      token,
      [this, then](const std::optional<QVariantMap>& results) {
        (this->*then)(keysIn(results.value_or(QVariantMap()).value(QStringLiteral("shortcuts"))));
      },
      method("ListShortcuts"), "oa{sv}", session_.c_str(), 1, "handle_token", "s", token.c_str());
}

/// From version 2 on, what was listed before it was bound is not heard of until it is bound.
void PortalShortcuts::decide(const Keys& listed) {
  const bool binds = std::ranges::any_of(bound_, [&](Shortcut shortcut) {
    const bool isLost = wasGranted(shortcut) && (version_ >= 2 || !listed.contains(shortcut));
    return isLost || (wanted_.contains(shortcut) && !isAsked(shortcut) && !listed.contains(shortcut));
  });
  binds ? bind(listed) : settle(listed);
}

void PortalShortcuts::bind(const Keys& listed) {
  // Whatever happens next: it was asked.
  for (const Shortcut shortcut : bound_) {
    if (!isAsked(shortcut)) parts_.userDefaults->set(namesOf(shortcut).stored, false);
  }
  const auto answered = [this, listed](const std::optional<QVariantMap>& results) {
    if (!results) return settle(listed);
    const Keys bound = keysIn(results->value(QStringLiteral("shortcuts")));
    bound.empty() ? list(&PortalShortcuts::settle) : settle(bound);
  };
  const std::string token = parts_.portal->newToken();
  constexpr auto noParentWindow = "";
  const auto ask = [&](auto... shortcuts) {
    request_ =
        parts_.portal->request(token, answered, method("BindShortcuts"), "oa(sa{sv})sa{sv}", session_.c_str(),
                               shortcuts..., noParentWindow, 1, "handle_token", "s", token.c_str());
  };
  const auto valuesOf = [this](Shortcut shortcut) {
    return std::tuple(namesOf(shortcut).id, 2, "description", "s",
                      parts_.descriptions[static_cast<std::size_t>(shortcut)].c_str(), "preferred_trigger",
                      "s", namesOf(shortcut).keys);
  };
  const auto first = valuesOf(*bound_.begin());
  if (bound_.size() == 1) {
    std::apply(ask, std::tuple_cat(std::tuple(1), first));
  } else {
    std::apply(ask, std::tuple_cat(std::tuple(2), first, valuesOf(*bound_.rbegin())));
  }
}

/// One that is bound to no key is as good as refused, until the desktop says otherwise.
void PortalShortcuts::settle(const Keys& bound) {
  request_.reset();
  for (const Shortcut shortcut : std::set(bound_)) {
    const auto found = bound.find(shortcut);
    const bool isGranted = found != bound.end() && !found->second.empty();
    if (isGranted && !wasGranted(shortcut)) parts_.userDefaults->set(namesOf(shortcut).stored, true);
    parts_.granted(shortcut, isGranted ? ShortcutGrant{ShortcutGrant::Kind::granted, found->second}
                                       : ShortcutGrant{ShortcutGrant::Kind::refused});
  }
}

PortalShortcuts::Keys PortalShortcuts::keysIn(const QVariant& shortcuts) const {
  Keys found;
  for (const QVariant& entry : shortcuts.toList()) {
    const QVariantList parts = entry.toList();
    for (const Shortcut shortcut : bothShortcuts) {
      if (valueOf<QString>(parts.value(0)) != QLatin1String(namesOf(shortcut).id)) continue;
      const auto words = valueOf<QString>(parts.value(1).toMap(), "trigger_description");
      found[shortcut] = words ? shownKeys(*words, shortcut) : std::string();
    }
  }
  return found;
}

}  // namespace sentrel
