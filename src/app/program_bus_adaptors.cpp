// SPDX-License-Identifier: Apache-2.0
#include "app/program_bus_adaptors.h"

#include "app/activation_token.h"

namespace sentrel {

void ApplicationAdaptor::Activate(const QVariantMap& platformData) {
  adoptActivationToken(platformData);
  bus_.activated.emit();
}

void ApplicationAdaptor::Open(const QStringList& /*uris*/, const QVariantMap& platformData) {
  Activate(platformData);  // there are no documents to open
}

void ApplicationAdaptor::ActivateAction(const QString& name, const QVariantList& /*parameter*/,
                                        const QVariantMap& platformData, const QDBusMessage& call) {
  if (ProgramBus::actions().contains(name)) {
    adoptActivationToken(platformData);
    bus_.actionActivated.emit(name);
  } else {
    bus_.refuse(call);
  }
}

}  // namespace sentrel
