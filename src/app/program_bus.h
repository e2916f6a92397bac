// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "linux/desktop/bus_probe.h"
#include "support/main_loop.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// How the attempt to become the one running instance ended.
enum class InstanceRole {
  first,       ///< the bus name is ours
  later,       ///< another instance has it; that one was activated, had a person started this one
  unreachable  ///< there is no session bus: nobody can tell
};

/// Who started the program.
enum class Launch {
  person,  ///< somebody, or the login
  bus      ///< the session bus, for a message to it
};

/// What other programs see of us on the session bus: the name expert.mardeck.sentrel,
/// `org.freedesktop.Application`, and the read-only properties of `expert.mardeck.sentrel1` with their change
/// signals. Main thread; no call here waits for the bus.
class ProgramBus final : public QObject {
  Q_OBJECT

 public:
  ProgramBus(std::shared_ptr<MainLoop> mainLoop, Launch launch);
  ~ProgramBus() override;

  /// Connects, asks for the name, and tells the outcome once on the main thread. A bus that does not answer
  /// within 2 s counts as unreachable; from then on a bus that comes late, or back, is joined, and the name
  /// asked for again. An instance that is about to end does not count as one: its name is waited for.
  /// Activations that arrive before the outcome are told right after it.
  void claimName(std::function<void(InstanceRole)> outcome);

  /// From now on activations are left unanswered: the end is near, and whoever sent them takes our place.
  void leave() { leaving_ = true; }

  /// Leaves the bus, and the name to others.
  void close();

  /// The session bus, while it is reached. Whoever asks the bus library for one of its own may wait for it.
  [[nodiscard]] std::optional<QDBusConnection> connection() const {
    return connection_.isConnected() ? std::optional(connection_) : std::nullopt;
  }

  /// `state` is the name of the machine's state.
  void setState(const QString& state);
  void setActive(bool active);
  void setAlertCount(qlonglong count);

  [[nodiscard]] const QString& state() const { return state_; }
  [[nodiscard]] bool isActive() const { return active_; }
  [[nodiscard]] qlonglong alertCount() const { return alertCount_; }

  /// What others ask for by `call`; an empty action is the activation itself.
  void take(const QString& action, const QVariantMap& platformData, const QDBusMessage& call);

  /// `connection` gives something else from now on.
  Signal<> connectionChanged;
  Signal<> activated;
  /// One of `actions`.
  Signal<QString> actionActivated;

  static const QStringList& actions();

 private Q_SLOTS:
  void lost();

 private:
  void attempt();
  void probed(bool answers);
  void attemptLater();
  void connected(const QDBusConnection& connection);
  void requestName();
  void nameAnswered(bool reached, unsigned answer);
  void activateOther();
  void finish(InstanceRole role);
  void deliver(const QString& action);
  void announce(const QString& property, const QVariant& value);

  std::shared_ptr<MainLoop> mainLoop_;
  const Launch launch_;
  std::function<void(InstanceRole)> outcome_;
  std::vector<QString> early_;  // actions that arrived before the outcome
  int attempts_ = 0;            // to activate the other instance
  bool leaving_ = false;
  Registration deadline_;
  Registration retry_;
  std::optional<BusProbe> probe_;
  std::int64_t retryMs_;
  QDBusConnection connection_;
  QString state_ = QStringLiteral("inactive");
  bool active_ = false;
  qlonglong alertCount_ = 0;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace sentrel
