// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/portal_shortcut.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <utility>

#include "linux/desktop/bus_values.h"

namespace sentrel {

/// A shortcut as the portal takes it: (sa{sv}).
struct ShortcutOffer {
  QString id;
  QVariantMap properties;
};

QDBusArgument& operator<<(QDBusArgument& argument, const ShortcutOffer& offer) {
  argument.beginStructure();
  argument << offer.id << offer.properties;
  argument.endStructure();
  return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, ShortcutOffer& offer) {
  argument.beginStructure();
  argument >> offer.id >> offer.properties;
  argument.endStructure();
  return argument;
}

namespace {

const auto portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const auto shortcutId = QStringLiteral("toggle");

/// As the portal writes shortcuts: modifiers in capitals, then the name of the key.
const auto keys = QStringLiteral("LOGO+SHIFT+c");

BusPeer::Place ofShortcuts(const char* member) {
  return {portalPath, QStringLiteral("org.freedesktop.portal.GlobalShortcuts"), QString::fromLatin1(member)};
}

}  // namespace

PortalShortcut::PortalShortcut(BusConnection& sessionBus, QString description, Tell tell)
    : description_(std::move(description)),
      tell_(std::move(tell)),
      portal_(sessionBus, QStringLiteral("org.freedesktop.portal.Desktop"),
              {.appeared = [this] { appeared(); },
               .gone = [this] { gone(); },
               .absent =
                   [this] {
                     if (wanted_) portal_.start();
                   }}) {
  qDBusRegisterMetaType<ShortcutOffer>();
  qDBusRegisterMetaType<QList<ShortcutOffer>>();
}

void PortalShortcut::bind() {
  if (std::exchange(wanted_, true)) {
    if (stage_ == Stage::idle && portal_.isPresent()) createSession();
  } else if (portal_.isPresent()) {
    createSession();
  } else {
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
  if (std::exchange(stage_, Stage::idle) == Stage::bound) tell_.bound(false);
}

void PortalShortcut::createSession() {
  stage_ = Stage::binding;
  // Portals since 2025 want to know who speaks; older ones do not know the question.
  portal_.call(
      {portalPath, QStringLiteral("org.freedesktop.host.portal.Registry"), QStringLiteral("Register")},
      {QStringLiteral("expert.mardeck.sentrel"), QVariantMap()}, [this](const QDBusMessage&) {
        request(ofShortcuts("CreateSession"), {},
                {{QStringLiteral("session_handle_token"), QStringLiteral("sentrel")}},
                [this](uint response, const QVariantMap& results) {
                  if (response == 0) {
                    sessionCreated(results);
                  } else {
                    failed();
                  }
                });
      });
}

void PortalShortcut::sessionCreated(const QVariantMap& results) {
  // Documented as an object path, sent as a text.
  const QVariant handle = results.value(QStringLiteral("session_handle"));
  const auto path = valueOf<QDBusObjectPath>(handle);
  session_ = path ? path->path() : valueOf<QString>(handle).value_or(QString());
  if (!session_.startsWith(QLatin1Char('/'))) {
    failed();
    return;
  }
  listening_.push_back(portal_.listen(ofShortcuts("Activated"), [this](const QDBusMessage& signal) {
    const QVariantList arguments = signal.arguments();
    const auto session = valueOf<QDBusObjectPath>(arguments.value(0));
    const bool ours = session && session->path() == session_;
    if (ours && valueOf<QString>(arguments.value(1)) == shortcutId) tell_.pressed();
  }));
  listening_.push_back(
      portal_.listen({session_, QStringLiteral("org.freedesktop.portal.Session"), QStringLiteral("Closed")},
                     [this](const QDBusMessage&) { gone(); }));
  bindShortcut();
}

void PortalShortcut::bindShortcut() {
  const QList<ShortcutOffer> offers{
      {shortcutId,
       {{QStringLiteral("description"), description_}, {QStringLiteral("preferred_trigger"), keys}}}};
  const auto noParentWindow = QString();
  request(ofShortcuts("BindShortcuts"),
          {QVariant::fromValue(QDBusObjectPath(session_)), QVariant::fromValue(offers), noParentWindow}, {},
          [this](uint response, const QVariantMap&) {
            if (response == 0) {
              stage_ = Stage::bound;
              tell_.bound(true);
            } else {
              failed();
            }
          });
}

/// The portal answers a request by a signal of an object whose path is known beforehand, so that it can be
/// listened to before the question is asked.
void PortalShortcut::request(const BusPeer::Place& place, QVariantList arguments, QVariantMap options,
                             std::function<void(uint response, const QVariantMap& results)> answer) {
  const QString token = QStringLiteral("sentrel%1").arg(++requests_);
  options.insert(QStringLiteral("handle_token"), token);
  arguments.push_back(options);
  answer_ = std::move(answer);
  const QString sender = portal_.ownName().mid(1).replace(QLatin1Char('.'), QLatin1Char('_'));
  const QString expected = QStringLiteral("%1/request/%2/%3").arg(portalPath, sender, token);
  listenForResponse(expected);
  portal_.call(
      place, arguments,
      [this, expected](const QDBusMessage& reply) {
        const auto path = objectPath(reply);
        if (!path) {
          failed();
        } else if (*path != expected) {
          listenForResponse(*path);
        }
      },
      BusPeer::endlessMs);  // a dialog may be open as long as the person likes
}

void PortalShortcut::listenForResponse(const QString& path) {
  response_ = portal_.listen(
      {path, QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response")},
      [this](const QDBusMessage& signal) {
        if (signal.signature() != QLatin1String("ua{sv}")) return;
        const auto answer = std::exchange(answer_, nullptr);
        response_.reset();
        if (answer) {
          answer(signal.arguments().at(0).toUInt(), qdbus_cast<QVariantMap>(signal.arguments().at(1)));
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
