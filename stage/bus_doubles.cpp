// SPDX-License-Identifier: Apache-2.0
#include "stage/bus_doubles.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusVariant>
#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace sentrel::test {

namespace {

const auto mockInterface = QStringLiteral("org.freedesktop.DBus.Mock");

QString address(const HeadlessDesktop& desktop, TestBus bus) {
  const char* variable = bus == TestBus::session ? "DBUS_SESSION_BUS_ADDRESS" : "DBUS_SYSTEM_BUS_ADDRESS";
  return QString::fromStdString(desktop.environment().at(variable));
}

const auto managerPath = QStringLiteral("/org/freedesktop/login1");
const auto manager = QStringLiteral("org.freedesktop.login1.Manager");
const auto sessionPath = QStringLiteral("/org/freedesktop/login1/session/c2");
const auto session = QStringLiteral("org.freedesktop.login1.Session");
const auto locker = QStringLiteral("org.gnome.ScreenSaver");
const auto batteryPath = QStringLiteral("/org/freedesktop/UPower/devices/BAT0");
const auto device = QStringLiteral("org.freedesktop.UPower.Device");

/// The template of a login manager that knows the session before it can be asked, as the real one does.
QString loginManager(const HeadlessDesktop& desktop) {
  const auto path = desktop.home() / "login_manager.py";
  std::ofstream(path) << R"(import dbus
from dbusmock.templates import logind
from dbusmock.templates.logind import *

def load(mock, parameters):
    logind.load(mock, parameters)
    session = mock.AddSession('c2', 'seat0', dbus.UInt32(1000), 'user', True)
    for method, types in [('GetSessionByPID', 'u'), ('GetSession', 's')]:  # also by the name "auto"
        mock.AddMethod(MAIN_IFACE, method, types, 'o', 'ret = "%s"' % session)
)";
  return QString::fromStdString(path.string());
}

}  // namespace

BusClient::BusClient(const HeadlessDesktop& desktop, TestBus bus)
    : desktop_(desktop),
      bus_(bus),
      name_(QStringLiteral("test-%1").arg(reinterpret_cast<quintptr>(this))),
      connection_(QDBusConnection::connectToBus(address(desktop, bus), name_)) {
  if (!connection_.isConnected()) throw std::runtime_error("the test's bus is not there");
}

QDBusMessage BusClient::call(const QString& service, const QString& path, const QString& interface,
                             const QString& member, const QVariantList& arguments,
                             std::chrono::milliseconds limit) const {
  QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, member);
  message.setArguments(arguments);
  QDBusMessage reply = connection_.call(message, QDBus::Block, static_cast<int>(limit.count()));
  if (reply.type() != QDBusMessage::ReplyMessage) {
    throw std::runtime_error((member + QStringLiteral(": ") + reply.errorMessage()).toStdString());
  }
  return reply;
}

bool BusClient::hasName(const QString& name) const {
  return connection_.interface()->isServiceRegistered(name);
}

void BusClient::waitForName(const QString& name) const {
  if (!waitUntil([&] { return hasName(name); }))
    throw std::runtime_error(name.toStdString() + " did not appear");
}

BusMock::BusMock(HeadlessDesktop& desktop, const BusClient& client, const QString& name,
                 const std::vector<std::string>& content)
    : client_(client), name_(name) {
  std::vector<std::string> arguments{"-m", "dbusmock",
                                     client.bus() == TestBus::session ? "--session" : "--system"};
  arguments.insert(arguments.end(), content.begin(), content.end());
  process_ = desktop.spawn("/usr/bin/python3", arguments);
  client_.waitForName(name_);
}

BusMock BusMock::empty(HeadlessDesktop& desktop, const BusClient& client, const QString& name,
                       const QString& path) {
  return {desktop, client, name,
          std::vector<std::string>{name.toStdString(), path.toStdString(), name.toStdString()}};
}

QDBusMessage BusMock::control(const QString& path, const QString& member,
                              const QVariantList& arguments) const {
  return call(path, mockInterface, member, arguments);
}

void BusMock::emitSignal(const QString& path, const QString& interface, const QString& member,
                         const QString& signature, const QVariantList& arguments) const {
  control(path, QStringLiteral("EmitSignal"), {interface, member, signature, arguments});
}

void BusMock::setProperty(const QString& path, const QString& interface, const QString& property,
                          const QVariant& value) const {
  control(path, QStringLiteral("UpdateProperties"), {interface, QVariantMap{{property, value}}});
}

BusDouble::BusDouble(const HeadlessDesktop& desktop, TestBus bus, QString name)
    : client_(desktop, bus), service_(std::move(name)) {
  client_.handle().registerVirtualObject(QStringLiteral("/"), this, QDBusConnection::SubPath);
  if (!client_.handle().registerService(service_)) throw std::runtime_error("the name is taken");
}

void BusDouble::emitSignal(const QString& path, const QString& interface, const QString& member,
                           const QVariantList& arguments) {
  QDBusMessage signal = QDBusMessage::createSignal(path, interface, member);
  signal.setArguments(arguments);
  client_.handle().send(signal);
}

std::vector<QDBusMessage> BusDouble::calls(const QString& member) const {
  std::vector<QDBusMessage> found;
  std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(found),
               [&](const QDBusMessage& message) { return message.member() == member; });
  return found;
}

bool BusDouble::handleMessage(const QDBusMessage& message, const QDBusConnection& connection) {
  calls_.push_back(message);
  const auto found = answers_.find(message.member());
  if (found == answers_.end()) return false;
  if (!found->second) {
    message.setDelayedReply(true);
    return true;
  }
  return connection.send(message.createReply(found->second(message)));
}

BusMock mockLoginManager(HeadlessDesktop& desktop, const BusClient& systemBus) {
  return {desktop, systemBus, QStringLiteral("org.freedesktop.login1"), loginManager(desktop)};
}

MockSession::MockSession(HeadlessDesktop& desktop)
    : sessionBus_(desktop, TestBus::session),
      systemBus_(desktop, TestBus::system),
      logind_(mockLoginManager(desktop, systemBus_)),
      locker_(desktop, sessionBus_, locker, QStringLiteral("gnome_screensaver")),
      upower_(desktop, systemBus_, QStringLiteral("org.freedesktop.UPower"), QStringLiteral("upower")) {
  constexpr qlonglong secondsLeft = 7200;
  upower_.control(QStringLiteral("/org/freedesktop/UPower"), QStringLiteral("AddDischargingBattery"),
                  {QStringLiteral("BAT0"), QStringLiteral("Battery"), 80.0, secondsLeft});
}

void MockSession::setLockedHint(bool locked) const {
  logind_.call(sessionPath, session, QStringLiteral("SetLockedHint"), {locked});
}

void MockSession::requestLock(bool lock) const {
  logind_.call(sessionPath, session, lock ? QStringLiteral("Lock") : QStringLiteral("Unlock"));
}

void MockSession::setActive(bool active) const {
  logind_.setProperty(sessionPath, session, QStringLiteral("Active"), active);
}

void MockSession::prepareForSleep(bool begins) const {
  logind_.setProperty(managerPath, manager, QStringLiteral("PreparingForSleep"), begins);
  logind_.emitSignal(managerPath, manager, QStringLiteral("PrepareForSleep"), QStringLiteral("b"), {begins});
}

void MockSession::setLockerActive(bool covers) const {
  locker_.call(QStringLiteral("/org/gnome/ScreenSaver"), locker, QStringLiteral("SetActive"), {covers});
}

void MockSession::setBattery(double percent, bool charging) const {
  upower_.setProperty(batteryPath, device, QStringLiteral("State"), QVariant::fromValue(charging ? 1U : 2U));
  upower_.setProperty(batteryPath, device, QStringLiteral("Percentage"), percent);
}

std::size_t MockSession::sleepDelays() const {
  const QDBusMessage reply = logind_.call(managerPath, manager, QStringLiteral("ListInhibitors"));
  const auto list = reply.arguments().constFirst().value<QDBusArgument>();
  std::size_t count = 0;
  for (list.beginArray(); !list.atEnd(); ++count) (void)list.asVariant();
  list.endArray();
  return count;
}

}  // namespace sentrel::test
