// SPDX-License-Identifier: Apache-2.0
#include "app/activation_token.h"

#include <QtGlobal>

namespace sentrel {

namespace {
// Qt takes the token from here as it activates a window on Wayland, and removes it.
constexpr const char* variable = "XDG_ACTIVATION_TOKEN";
const auto entry = QStringLiteral("activation-token");
}  // namespace

QVariantMap ownActivationToken() {
  const QString token = qEnvironmentVariable(variable);
  return token.isEmpty() ? QVariantMap() : QVariantMap{{entry, token}};
}

void adoptActivationToken(const QVariantMap& platformData) {
  const QString token = platformData.value(entry).toString();
  if (!token.isEmpty()) qputenv(variable, token.toUtf8());
}

}  // namespace sentrel
