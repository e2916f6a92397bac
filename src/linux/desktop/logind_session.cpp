// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/logind_session.h"

#include <unistd.h>

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <utility>

#include "linux/desktop/bus_values.h"

namespace sentrel {

namespace {

const auto managerPath = QStringLiteral("/org/freedesktop/login1");
const auto managerInterface = QStringLiteral("org.freedesktop.login1.Manager");
const auto sessionInterface = QStringLiteral("org.freedesktop.login1.Session");

using Witness = WitnessReports::Witness;

BusPeer::Place ofManager(const char* member) {
  return {managerPath, managerInterface, QString::fromLatin1(member)};
}

/// The (session id, object path) of a property reply.
std::optional<QString> sessionOfUser(const QDBusMessage& reply) {
  const auto property = onlyArgument<QDBusVariant>(reply);
  if (!property) return std::nullopt;
  const auto argument = valueOf<QDBusArgument>(property->variant());
  if (!argument || argument->currentSignature() != QLatin1String("(so)")) return std::nullopt;
  QString id;
  QDBusObjectPath path;
  argument->beginStructure();
  *argument >> id >> path;
  argument->endStructure();
  if (id.isEmpty()) return std::nullopt;
  return path.path();
}

}  // namespace

LogindSession::LogindSession(BusConnection& systemBus, WitnessReports reports)
    : reports_(std::move(reports)),
      manager_(systemBus, QStringLiteral("org.freedesktop.login1"),
               {.appeared = [this] { appeared(); },
                .gone = [this] { gone(); },
                .absent = [this] { reports_.silent(Witness::lockedHint); }}) {}

void LogindSession::appeared() {
  listening_.push_back(manager_.listen(ofManager("PrepareForSleep"), [this](const QDBusMessage& signal) {
    if (const auto begins = onlyArgument<bool>(signal)) sleepIsPrepared(*begins);
  }));
  manager_.readProperties(managerPath, managerInterface, [this](const QDBusMessage& reply) {
    const auto properties = allProperties(reply);
    if (!properties) return;
    preparing_ = valueOf<bool>(properties->value(QStringLiteral("PreparingForSleep"))).value_or(false);
    reports_.found(Witness::systemSleep, preparing_);
  });
  delaySleep();
  manager_.call(ofManager("GetSessionByPID"), {static_cast<uint>(getpid())},
                [this](const QDBusMessage& reply) {
                  if (const auto path = objectPath(reply)) {
                    sessionFound(*path);
                  } else {
                    askByEnvironment();
                  }
                });
}

void LogindSession::gone() {
  listening_.clear();
  session_.clear();
  sleepDelay_ = {};
  preparing_ = false;
  for (const Witness witness : {Witness::lockedHint, Witness::sessionInactive, Witness::systemSleep}) {
    reports_.lost(witness);
  }
}

void LogindSession::askByEnvironment() {
  const QString id = qEnvironmentVariable("XDG_SESSION_ID");
  if (id.isEmpty()) {
    askByUser();
    return;
  }
  manager_.call(ofManager("GetSession"), {id}, [this](const QDBusMessage& reply) {
    if (const auto path = objectPath(reply)) {
      sessionFound(*path);
    } else {
      askByUser();
    }
  });
}

/// A program that the user's service manager started belongs to no session; the person's graphical one is
/// meant.
void LogindSession::askByUser() {
  manager_.call(ofManager("GetUser"), {static_cast<uint>(getuid())}, [this](const QDBusMessage& reply) {
    const auto user = objectPath(reply);
    if (!user) {
      reports_.silent(Witness::lockedHint);
      return;
    }
    manager_.call({*user, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get")},
                  {QStringLiteral("org.freedesktop.login1.User"), QStringLiteral("Display")},
                  [this](const QDBusMessage& answer) {
                    if (const auto path = sessionOfUser(answer)) {
                      sessionFound(*path);
                    } else {
                      reports_.silent(Witness::lockedHint);
                    }
                  });
  });
}

void LogindSession::sessionFound(const QString& path) {
  session_ = path;
  listening_.push_back(manager_.listen({session_, sessionInterface, QStringLiteral("Lock")},
                                       [this](const QDBusMessage&) { reports_.lockRequested(); }));
  listening_.push_back(manager_.listen({session_, sessionInterface, QStringLiteral("Unlock")},
                                       [this](const QDBusMessage&) { reports_.unlockRequested(); }));
  listening_.push_back(
      manager_.listenToProperties(session_, sessionInterface, [this](const QDBusMessage& signal) {
        const auto change = propertyChange(signal);
        if (!change) return;
        if (const auto locked = valueOf<bool>(change->changed.value(QStringLiteral("LockedHint")))) {
          reports_.changed(Witness::lockedHint, *locked);
        }
        if (const auto active = valueOf<bool>(change->changed.value(QStringLiteral("Active")))) {
          reports_.changed(Witness::sessionInactive, !*active);
        }
        if (!change->invalidated.isEmpty()) readSession();
      }));
  readSession();
}

void LogindSession::readSession() {
  manager_.readProperties(session_, sessionInterface, [this](const QDBusMessage& reply) {
    const auto properties = allProperties(reply).value_or(QVariantMap());
    if (const auto locked = valueOf<bool>(properties.value(QStringLiteral("LockedHint")))) {
      reports_.found(Witness::lockedHint, *locked);
    }
    if (const auto active = valueOf<bool>(properties.value(QStringLiteral("Active")))) {
      reports_.found(Witness::sessionInactive, !*active);
    }
    reports_.silent(Witness::lockedHint);  // that was all
  });
}

void LogindSession::sleepIsPrepared(bool begins) {
  preparing_ = begins;
  reports_.changed(Witness::systemSleep, begins);
  if (!begins) delaySleep();
}

void LogindSession::delaySleep() {
  if (sleepDelay_.isValid()) return;
  manager_.call(ofManager("Inhibit"),
                {QStringLiteral("sleep"), QStringLiteral("Sentrel"),
                 QStringLiteral("The camera is being closed"), QStringLiteral("delay")},
                [this](const QDBusMessage& reply) {
                  if (const auto descriptor = onlyArgument<QDBusUnixFileDescriptor>(reply))
                    sleepDelay_ = *descriptor;
                });
}

void LogindSession::allowSleep() {
  if (preparing_) sleepDelay_ = {};
}

}  // namespace sentrel
