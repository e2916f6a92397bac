// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusMessage>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <optional>

namespace sentrel {

// What a message of another program holds, if it is what it should be. Nothing here trusts the sender.

/// A value of exactly this type.
template <class T>
[[nodiscard]] std::optional<T> valueOf(const QVariant& value) {
  if (value.metaType() != QMetaType::fromType<T>()) return std::nullopt;
  return value.value<T>();
}

/// The only argument of a reply or signal, of exactly this type.
template <class T>
[[nodiscard]] std::optional<T> onlyArgument(const QDBusMessage& message) {
  if (message.type() == QDBusMessage::ErrorMessage || message.arguments().size() != 1) return std::nullopt;
  return valueOf<T>(message.arguments().constFirst());
}

/// The object path in the only argument of a reply.
[[nodiscard]] std::optional<QString> objectPath(const QDBusMessage& reply);

/// The answer to a question for all properties.
[[nodiscard]] std::optional<QVariantMap> allProperties(const QDBusMessage& reply);

/// What a signal of changed properties says.
struct PropertyChange {
  QVariantMap changed;
  QStringList invalidated;
};
[[nodiscard]] std::optional<PropertyChange> propertyChange(const QDBusMessage& signal);

}  // namespace sentrel
