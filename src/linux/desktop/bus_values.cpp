// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/bus_values.h"

#include <QDBusArgument>
#include <QDBusObjectPath>

namespace sentrel {

std::optional<QString> objectPath(const QDBusMessage& reply) {
  const auto path = onlyArgument<QDBusObjectPath>(reply);
  if (!path || path->path() == QLatin1String("/")) return std::nullopt;
  return path->path();
}

std::optional<QVariantMap> allProperties(const QDBusMessage& reply) {
  if (reply.type() != QDBusMessage::ReplyMessage || reply.signature() != QLatin1String("a{sv}")) return {};
  return qdbus_cast<QVariantMap>(reply.arguments().constFirst());
}

std::optional<PropertyChange> propertyChange(const QDBusMessage& signal) {
  if (signal.signature() != QLatin1String("sa{sv}as")) return std::nullopt;
  return PropertyChange{qdbus_cast<QVariantMap>(signal.arguments().at(1)),
                        signal.arguments().at(2).toStringList()};
}

}  // namespace sentrel
