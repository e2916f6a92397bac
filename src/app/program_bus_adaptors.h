// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusMessage>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include "app/program_bus.h"

namespace sentrel {

/// `org.freedesktop.Application`, as the desktop entry standard describes it.
class ApplicationAdaptor final : public QDBusAbstractAdaptor {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

 public:
  explicit ApplicationAdaptor(ProgramBus* bus) : QDBusAbstractAdaptor(bus), bus_(*bus) {}

 public Q_SLOTS:
  void Activate(const QVariantMap& platformData, const QDBusMessage& call);
  void Open(const QStringList& uris, const QVariantMap& platformData, const QDBusMessage& call);
  void ActivateAction(const QString& name, const QVariantList& parameter, const QVariantMap& platformData,
                      const QDBusMessage& call);

 private:
  ProgramBus& bus_;
};

/// The state of protection, for scripts and status bars.
class StateAdaptor final : public QDBusAbstractAdaptor {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "expert.mardeck.sentrel1")
  Q_PROPERTY(QString State READ state)
  Q_PROPERTY(bool IsActive READ isActive)
  Q_PROPERTY(qlonglong AlertCount READ alertCount)

 public:
  explicit StateAdaptor(ProgramBus* bus) : QDBusAbstractAdaptor(bus), bus_(*bus) {}
  [[nodiscard]] QString state() const { return bus_.state(); }
  [[nodiscard]] bool isActive() const { return bus_.isActive(); }
  /// Onlookers since the counters were last set to zero.
  [[nodiscard]] qlonglong alertCount() const { return bus_.alertCount(); }

 private:
  ProgramBus& bus_;
};

}  // namespace sentrel
