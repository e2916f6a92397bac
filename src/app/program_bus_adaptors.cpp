// SPDX-License-Identifier: Apache-2.0
#include "app/program_bus_adaptors.h"

namespace sentrel {

void ApplicationAdaptor::Activate(const QVariantMap& platformData, const QDBusMessage& call) {
  bus_.take({}, platformData, call);
}

void ApplicationAdaptor::Open(const QStringList& /*uris*/, const QVariantMap& platformData,
                              const QDBusMessage& call) {
  bus_.take({}, platformData, call);  // there are no documents to open
}

void ApplicationAdaptor::ActivateAction(const QString& name, const QVariantList& /*parameter*/,
                                        const QVariantMap& platformData, const QDBusMessage& call) {
  bus_.take(name, platformData, call);
}

}  // namespace sentrel
