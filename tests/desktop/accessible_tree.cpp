// SPDX-License-Identifier: Apache-2.0
#include "desktop/accessible_tree.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusVariant>

namespace sentrel::test {

namespace {

const auto connectionName = QStringLiteral("accessible");
const auto accessible = QStringLiteral("org.a11y.atspi.Accessible");
const auto busName = QStringLiteral("org.a11y.Bus");
const auto busPath = QStringLiteral("/org/a11y/bus");
// Of the states' numbers.
constexpr unsigned focusable = 11;
constexpr unsigned showing = 25;

}  // namespace

AccessibleTree::AccessibleTree(HeadlessDesktop& desktop, const BusClient& sessionBus)
    // What it is told stays in memory; a private desktop has nothing that would write it down.
    : launcher_(desktop.spawn(
          "env", {"GSETTINGS_BACKEND=memory", "/usr/libexec/at-spi-bus-launcher", "--launch-immediately"})),
      bus_(QString()) {
  sessionBus.waitForName(busName);
  sessionBus.call(busName, busPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Set"),
                  {QStringLiteral("org.a11y.Status"), QStringLiteral("IsEnabled"),
                   QVariant::fromValue(QDBusVariant(true))});
  const QDBusMessage address = sessionBus.call(busName, busPath, busName, QStringLiteral("GetAddress"));
  bus_ = QDBusConnection::connectToBus(address.arguments().constFirst().toString(), connectionName);
}

AccessibleTree::~AccessibleTree() {
  QDBusConnection::disconnectFromBus(connectionName);
}

QDBusMessage AccessibleTree::ask(const Place& place, const QString& member) const {
  return bus_.call(QDBusMessage::createMethodCall(place.service, place.path, accessible, member));
}

QString AccessibleTree::property(const Place& place, const QString& name) const {
  QDBusMessage get = QDBusMessage::createMethodCall(
      place.service, place.path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
  const QDBusMessage reply = bus_.call(get << accessible << name);
  return reply.arguments().value(0).value<QDBusVariant>().variant().toString();
}

/// What goes while it is asked answers with errors, and is left out.
void AccessibleTree::visit(const Place& place, std::vector<Node>& nodes) const {
  const auto states =
      qdbus_cast<QList<unsigned>>(ask(place, QStringLiteral("GetState")).arguments().value(0));
  const auto has = [&](unsigned state) { return !states.isEmpty() && (states[0] >> state & 1U) != 0; };
  const QString role = ask(place, QStringLiteral("GetRoleName")).arguments().value(0).toString();
  const bool container = role == QLatin1String("application") || role == QLatin1String("desktop frame");
  if (!container && !has(showing)) return;
  nodes.push_back({property(place, QStringLiteral("Name")).toStdString(), role.toStdString(),
                   property(place, QStringLiteral("Description")).toStdString(), has(focusable)});
  const QVariant children = ask(place, QStringLiteral("GetChildren")).arguments().value(0);
  if (!children.canConvert<QDBusArgument>()) return;
  const auto list = children.value<QDBusArgument>();
  std::vector<Place> places;
  list.beginArray();
  while (!list.atEnd()) {
    Place child;
    QDBusObjectPath path;
    list.beginStructure();
    list >> child.service >> path;
    list.endStructure();
    child.path = path.path();
    places.push_back(child);
  }
  list.endArray();
  for (const Place& child : places) visit(child, nodes);
}

std::vector<AccessibleTree::Node> AccessibleTree::nodes() const {
  std::vector<Node> nodes;
  visit({QStringLiteral("org.a11y.atspi.Registry"), QStringLiteral("/org/a11y/atspi/accessible/root")},
        nodes);
  return nodes;
}

}  // namespace sentrel::test
