// SPDX-License-Identifier: Apache-2.0
#include "stage/state_watcher.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <stdexcept>
#include <utility>

namespace sentrel::test {

namespace {
const QString busName = QStringLiteral("expert.mardeck.sentrel");
const QString objectPath = QStringLiteral("/expert/mardeck/sentrel");
const QString stateInterface = QStringLiteral("expert.mardeck.sentrel1");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
}  // namespace

StateWatcher::StateWatcher(std::function<void(const Entry&)> onChange)
    : onChange_(std::move(onChange)),
      bus_(QDBusConnection::sessionBus()),
      owner_(busName, bus_, QDBusServiceWatcher::WatchForRegistration) {
  connect(&owner_, &QDBusServiceWatcher::serviceRegistered, this, &StateWatcher::askForState);
  if (!bus_.connect(busName, objectPath, propertiesInterface, QStringLiteral("PropertiesChanged"), this,
                    SLOT(propertiesChanged(QString, QVariantMap, QStringList))))
    throw std::runtime_error("cannot listen on the session bus");
}

void StateWatcher::activateAction(const QString& name) {
  QDBusMessage call = QDBusMessage::createMethodCall(
      busName, objectPath, QStringLiteral("org.freedesktop.Application"), QStringLiteral("ActivateAction"));
  call << name << QVariantList() << QVariantMap();
  bus_.asyncCall(call);
}

void StateWatcher::propertiesChanged(const QString& interface, const QVariantMap& changed,
                                     const QStringList& /*invalidated*/) {
  const auto state = changed.constFind(QStringLiteral("State"));
  if (interface == stateInterface && state != changed.constEnd()) note(state->toString());
}

void StateWatcher::askForState() {
  // It may have changed before it had its name; nobody heard of that.
  QDBusMessage call =
      QDBusMessage::createMethodCall(busName, objectPath, propertiesInterface, QStringLiteral("Get"));
  call << stateInterface << QStringLiteral("State");
  auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
    const QDBusPendingReply<QDBusVariant> reply = *finished;
    if (!reply.isError()) note(reply.value().variant().toString());
    finished->deleteLater();
  });
}

void StateWatcher::note(const QString& state) {
  const std::string name = state.toStdString();
  const bool first = entries_.empty();
  if (first ? name == "inactive" : name == entries_.back().state) return;
  entries_.push_back({std::chrono::steady_clock::now(), name});
  onChange_(entries_.back());
}

}  // namespace sentrel::test
