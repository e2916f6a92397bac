// SPDX-License-Identifier: Apache-2.0
#include "app/program_bus.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <algorithm>
#include <thread>
#include <utility>

#include "app/activation_token.h"
#include "app/program_bus_adaptors.h"

namespace sentrel {

namespace {

const auto connectionName = QStringLiteral("sentrel");
const auto noConnection = QStringLiteral("none");
const auto busName = QStringLiteral("expert.mardeck.sentrel");
const auto objectPath = QStringLiteral("/expert/mardeck/sentrel");
const auto stateInterface = QStringLiteral("expert.mardeck.sentrel1");
const auto applicationInterface = QStringLiteral("org.freedesktop.Application");
constexpr std::int64_t answerDeadlineMs = 2000;
constexpr std::int64_t firstRetryMs = 1000;
constexpr std::int64_t longestRetryMs = 64'000;
constexpr int activationTimeoutMs = 3000;
constexpr int mostAttempts = 3;

}  // namespace

ProgramBus::ProgramBus(std::shared_ptr<MainLoop> mainLoop, Launch launch)
    : mainLoop_(std::move(mainLoop)), launch_(launch), retryMs_(firstRetryMs), connection_(noConnection) {
  // Adaptors belong to the object that they describe.
  new ApplicationAdaptor(this);
  new StateAdaptor(this);
}

ProgramBus::~ProgramBus() {
  close();
}

void ProgramBus::close() {
  retry_.reset();
  probe_.reset();
  if (connection_.name() == noConnection) return;
  if (connection_.isConnected()) connection_.unregisterObject(objectPath);
  connection_ = QDBusConnection(noConnection);
  QDBusConnection::disconnectFromBus(connectionName);
}

void ProgramBus::claimName(std::function<void(InstanceRole)> outcome) {
  outcome_ = std::move(outcome);
  deadline_ = mainLoop_->after(answerDeadlineMs, [this] { finish(InstanceRole::unreachable); });
  attempt();
}

void ProgramBus::attempt() {
  probe_.emplace(BusKind::session, *mainLoop_, [this](bool answers) { probed(answers); });
}

void ProgramBus::probed(bool answers) {
  probe_.reset();
  if (!answers) {
    finish(InstanceRole::unreachable);
    attemptLater();
    return;
  }
  // Connecting waits for the bus to say hello: on a thread of its own, should it break off just now.
  std::thread([this, alive = std::weak_ptr(alive_), loop = mainLoop_] {
    const QDBusConnection connection =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName);
    loop->post([this, alive, connection] {
      if (alive.lock()) connected(connection);
    });
  }).detach();
}

void ProgramBus::attemptLater() {
  retry_ = mainLoop_->after(retryMs_, [this] { attempt(); });
  retryMs_ = std::min(retryMs_ * 2, longestRetryMs);
}

void ProgramBus::lost() {
  close();
  connectionChanged.emit();
  attemptLater();
}

void ProgramBus::connected(const QDBusConnection& connection) {
  if (!connection.isConnected()) {
    QDBusConnection::disconnectFromBus(connectionName);
    finish(InstanceRole::unreachable);
    attemptLater();
    return;
  }
  connection_ = connection;
  retryMs_ = firstRetryMs;
  connection_.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                      QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                      SLOT(lost()));
  // The object stands before the name does: whoever sees the name can call it.
  connection_.registerObject(objectPath, this, QDBusConnection::ExportAdaptors);
  requestName();
  connectionChanged.emit();
}

void ProgramBus::requestName() {
  QDBusMessage request = QDBusMessage::createMethodCall(
      QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
      QStringLiteral("org.freedesktop.DBus"), QStringLiteral("RequestName"));
  // Who protects already waits for the name, should another instance have been quicker on a bus that is new.
  constexpr unsigned queue = 0;
  constexpr unsigned doNotQueue = 4;
  request << busName << (outcome_ ? doNotQueue : queue);
  auto* watcher = new QDBusPendingCallWatcher(connection_.asyncCall(request), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
    const QDBusPendingReply<unsigned> reply = *finished;
    nameAnswered(!reply.isError(), reply.isError() ? 0 : reply.value());
    finished->deleteLater();
  });
}

void ProgramBus::nameAnswered(bool reached, unsigned answer) {
  if (!outcome_) return;
  constexpr unsigned primaryOwner = 1;
  constexpr unsigned alreadyOwner = 4;
  if (!reached) {
    finish(InstanceRole::unreachable);
  } else if (answer == primaryOwner || answer == alreadyOwner) {
    finish(InstanceRole::first);
  } else if (launch_ == Launch::bus) {
    finish(InstanceRole::later);  // the message that we were started for goes to the other one
  } else {
    activateOther();
  }
}

/// The other one may be ending: then it does not answer, and its name comes free.
void ProgramBus::activateOther() {
  deadline_.reset();  // the bus has answered
  QDBusMessage activate =
      QDBusMessage::createMethodCall(busName, objectPath, applicationInterface, QStringLiteral("Activate"));
  activate << ownActivationToken();
  activate.setAutoStartService(false);
  auto* watcher = new QDBusPendingCallWatcher(connection_.asyncCall(activate, activationTimeoutMs), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
    if (finished->isError() && ++attempts_ < mostAttempts) {
      requestName();
    } else {
      finish(InstanceRole::later);
    }
    finished->deleteLater();
  });
}

void ProgramBus::finish(InstanceRole role) {
  deadline_.reset();
  if (auto outcome = std::exchange(outcome_, nullptr)) outcome(role);
  const auto early = std::exchange(early_, {});
  if (role != InstanceRole::first) return;
  for (const QString& action : early) deliver(action);
}

void ProgramBus::take(const QString& action, const QVariantMap& platformData, const QDBusMessage& call) {
  if (leaving_) {
    call.setDelayedReply(true);
    return;
  }
  if (!action.isEmpty() && !actions().contains(action)) {
    call.setDelayedReply(true);
    connection_.send(
        call.createErrorReply(QDBusError::InvalidArgs, QStringLiteral("There is no such action.")));
    return;
  }
  adoptActivationToken(platformData);
  if (outcome_) {
    early_.push_back(action);
  } else {
    deliver(action);
  }
}

void ProgramBus::deliver(const QString& action) {
  if (action.isEmpty()) {
    activated.emit();
  } else {
    actionActivated.emit(action);
  }
}

void ProgramBus::setState(const QString& state) {
  if (state == state_) return;
  state_ = state;
  announce(QStringLiteral("State"), state);
}

void ProgramBus::setActive(bool active) {
  if (active == active_) return;
  active_ = active;
  announce(QStringLiteral("IsActive"), active);
}

void ProgramBus::setAlertCount(qlonglong count) {
  if (count == alertCount_) return;
  alertCount_ = count;
  announce(QStringLiteral("AlertCount"), count);
}

const QStringList& ProgramBus::actions() {
  static const QStringList names{QStringLiteral("toggle"), QStringLiteral("preferences"),
                                 QStringLiteral("statistics"), QStringLiteral("about"),
                                 QStringLiteral("quit")};
  return names;
}

void ProgramBus::announce(const QString& property, const QVariant& value) {
  if (!connection_.isConnected()) return;
  QDBusMessage changed = QDBusMessage::createSignal(
      objectPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("PropertiesChanged"));
  changed << stateInterface << QVariantMap{{property, value}} << QStringList();
  connection_.send(changed);
}

}  // namespace sentrel
