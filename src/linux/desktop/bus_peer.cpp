// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/bus_peer.h"

#include <QDBusPendingCallWatcher>
#include <QPointer>
#include <utility>

#include "linux/desktop/bus_listener.h"
#include "linux/desktop/bus_values.h"

namespace sentrel {

namespace {

const auto busService = QStringLiteral("org.freedesktop.DBus");
const auto busPath = QStringLiteral("/org/freedesktop/DBus");
const auto propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

const auto ownerListener = QStringLiteral("owner");

/// The bus starts services within 25 s; it answers sooner when it cannot.
constexpr int startPatienceMs = 30'000;

}  // namespace

BusPeer::BusPeer(BusConnection& bus, QString name, Followers followers)
    : bus_(bus), name_(std::move(name)), followers_(std::move(followers)) {
  connection_ = bus_.follow([this](bool connected) { connectionChanged(connected); });
}

BusPeer::~BusPeer() = default;

void BusPeer::connectionChanged(bool connected) {
  setOwner(QString());
  presence_ = Presence::unknown;
  ownerChanges_.reset();
  if (!connected) return;
  ownerTold_ = false;
  ownerChanges_ = subscribe(busService, {busPath, busService, QStringLiteral("NameOwnerChanged")}, {name_},
                            [this](const QDBusMessage& message) {
                              if (message.signature() != QLatin1String("sss")) return;
                              ownerTold_ = true;
                              setOwner(message.arguments().at(2).toString());
                            });
  QDBusMessage question =
      QDBusMessage::createMethodCall(busService, busPath, busService, QStringLiteral("GetNameOwner"));
  question << name_;
  send(
      question,
      [this](const QDBusMessage& reply) {
        if (ownerTold_) return;
        setOwner(onlyArgument<QString>(reply).value_or(QString()));
        if (!isPresent()) followers_.absent();
      },
      endlessMs);
}

void BusPeer::setOwner(const QString& owner) {
  if (isPresent() && owner != owner_) {
    owner_.clear();
    presence_ = Presence::absent;
    ++ownerCount_;
    for (BusListener* listener : findChildren<BusListener*>(ownerListener)) listener->end();
    followers_.gone();
  }
  if (!owner.isEmpty() && !isPresent()) {
    owner_ = owner;
    presence_ = Presence::present;
    followers_.appeared();
  } else if (owner.isEmpty()) {
    presence_ = Presence::absent;
  }
}

Registration BusPeer::listen(const Place& place, Handler handler) {
  return subscribe(owner_, place, {}, std::move(handler));
}

Registration BusPeer::listenToProperties(const QString& path, const QString& interface, Handler handler) {
  return subscribe(owner_, {path, propertiesInterface, QStringLiteral("PropertiesChanged")}, {interface},
                   std::move(handler));
}

Registration BusPeer::subscribe(const QString& sender, const Place& place, const QStringList& match,
                                Handler handler) {
  if (sender.isEmpty()) return {};
  // The bus library must not be told the sender: it would ask the bus who owns that name and let everything
  // of every bus wait for the answer, and end the process where the bus breaks meanwhile.
  auto* listener = new BusListener(
      [sender, handler = std::move(handler)](const QDBusMessage& message) {
        if (message.service() == sender) handler(message);
      },
      this);
  if (sender == owner_) listener->setObjectName(ownerListener);
  bus_.handle().connect(QString(), place.path, place.interface, place.member, match, QString(), listener,
                        SLOT(received(QDBusMessage)));
  return Registration([listener = QPointer(listener)] {
    if (listener) listener->end();
  });
}

void BusPeer::call(const Place& place, const QVariantList& arguments, Handler answer, int timeoutMs) {
  if (!isPresent()) return;
  QDBusMessage message = QDBusMessage::createMethodCall(owner_, place.path, place.interface, place.member);
  message.setArguments(arguments);
  message.setAutoStartService(false);
  send(
      message,
      [this, owners = ownerCount_, answer = std::move(answer)](const QDBusMessage& reply) {
        if (answer && owners == ownerCount_) answer(reply);
      },
      timeoutMs);
}

void BusPeer::readProperties(const QString& path, const QString& interface, Handler answer) {
  call({path, propertiesInterface, QStringLiteral("GetAll")}, {interface}, std::move(answer));
}

void BusPeer::start(Handler answer) {
  if (presence_ == Presence::unknown) return;
  QDBusMessage message =
      QDBusMessage::createMethodCall(busService, busPath, busService, QStringLiteral("StartServiceByName"));
  message << name_ << 0U;
  send(message, std::move(answer), startPatienceMs);
}

void BusPeer::send(const QDBusMessage& message, Handler answer, int timeoutMs) {
  auto* watcher = new QDBusPendingCallWatcher(bus_.handle().asyncCall(message, timeoutMs), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this,
          [answer = std::move(answer)](QDBusPendingCallWatcher* finished) {
            finished->deleteLater();
            if (answer) answer(finished->reply());
          });
}

}  // namespace sentrel
