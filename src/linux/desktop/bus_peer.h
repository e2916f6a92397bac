// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QVariantList>
#include <cstdint>
#include <functional>

#include "linux/desktop/bus_connection.h"
#include "support/registration.h"

namespace sentrel {

/// A service that others provide on a bus, under a well-known name. Follows whoever owns the name: calls and
/// signals go to and come from this owner alone, so that nobody else can speak for it, and no call ever
/// starts it. Lives on the event thread of its connection.
class BusPeer final : public QObject {
  Q_OBJECT

 public:
  using Handler = std::function<void(const QDBusMessage&)>;
  struct Place {
    QString path;  ///< of a signal, empty for every path
    QString interface;
    QString member;
  };
  static constexpr int patienceMs = 5'000;
  static constexpr int endlessMs = 0x7fffffff;

  enum class Presence { unknown, absent, present };

  /// What happens to the service. `gone` is told when an owner has left and before the next one appears; what
  /// was listened to and asked of an owner ends with it, silently. `absent` is told when the bus says, after
  /// we connected, that nobody provides the service.
  struct Followers {
    std::function<void()> appeared = [] {};
    std::function<void()> gone = [] {};
    std::function<void()> absent = [] {};
  };
  BusPeer(BusConnection& bus, QString name, Followers followers);
  ~BusPeer() override;

  [[nodiscard]] Presence presence() const { return presence_; }
  [[nodiscard]] bool isPresent() const { return presence_ == Presence::present; }
  /// Our own unique name; empty without a bus.
  [[nodiscard]] QString ownName() { return bus_.handle().baseService(); }

  /// Asks for one signal of the present owner until the registration ends or the owner goes. A message may
  /// hold anything: handlers check what they use.
  [[nodiscard]] Registration listen(const Place& place, Handler handler);
  /// As `listen` to the property changes of one interface, at every path when `path` is empty.
  [[nodiscard]] Registration listenToProperties(const QString& path, const QString& interface,
                                                Handler handler);

  /// Calls the present owner. `answer` gets the reply or an error message.
  void call(const Place& place, const QVariantList& arguments, Handler answer = {},
            int timeoutMs = patienceMs);
  /// Reads all properties of one interface.
  void readProperties(const QString& path, const QString& interface, Handler answer);

  /// Asks the bus to start the service, unless nobody knows yet whether it runs. `answer` gets the bus's
  /// reply.
  void start(Handler answer = {});

 private:
  void connectionChanged(bool connected);
  void setOwner(const QString& owner);
  void send(const QDBusMessage& message, Handler answer, int timeoutMs);
  Registration subscribe(const QString& sender, const Place& place, const QStringList& match,
                         Handler handler);

  BusConnection& bus_;
  const QString name_;
  const Followers followers_;
  Presence presence_ = Presence::unknown;
  QString owner_;                 // unique name
  std::uint64_t ownerCount_ = 0;  // an answer of an earlier owner is nobody's
  bool ownerTold_ = false;        // since the question who owns the name
  Registration ownerChanges_;
  Registration connection_;
};

}  // namespace sentrel
