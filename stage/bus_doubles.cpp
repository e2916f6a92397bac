// SPDX-License-Identifier: Apache-2.0
#include "stage/bus_doubles.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>

#include "stage/wait_until.h"

namespace sentrel::test {

namespace {

const auto busService = QStringLiteral("org.freedesktop.DBus");
const auto mockInterface = QStringLiteral("org.freedesktop.DBus.Mock");

QString address(const HeadlessDesktop& desktop, TestBus bus) {
  const char* variable = bus == TestBus::session ? "DBUS_SESSION_BUS_ADDRESS" : "DBUS_SYSTEM_BUS_ADDRESS";
  return QString::fromStdString(desktop.environment().at(variable));
}

QString nextName() {
  static std::atomic<int> count = 0;
  return QStringLiteral("test-%1").arg(count++);
}

}  // namespace

BusClient::BusClient(const HeadlessDesktop& desktop, TestBus bus)
    : desktop_(desktop),
      bus_(bus),
      name_(nextName()),
      connection_(QDBusConnection::connectToBus(address(desktop, bus), name_)) {
  if (!connection_.isConnected()) throw std::runtime_error("the test's bus is not there");
}

BusClient::~BusClient() {
  QDBusConnection::disconnectFromBus(name_);
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
  return call(busService, QStringLiteral("/"), busService, QStringLiteral("NameHasOwner"), {name})
      .arguments()
      .constFirst()
      .toBool();
}

void BusClient::waitForName(const QString& name) const {
  if (!waitUntil([&] { return hasName(name); }))
    throw std::runtime_error(name.toStdString() + " did not appear");
}

BusMock::BusMock(HeadlessDesktop& desktop, const BusClient& client, const QString& name,
                 const std::vector<std::string>& arguments)
    : client_(client), name_(name) {
  std::vector<std::string> all{"-m", "dbusmock", client.bus() == TestBus::session ? "--session" : "--system"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  process_ = desktop.spawn("/usr/bin/python3", all);
  client_.waitForName(name_);
}

BusMock::BusMock(HeadlessDesktop& desktop, const BusClient& client, const QString& name,
                 const QString& templateName)
    : BusMock(desktop, client, name, std::vector<std::string>{"--template", templateName.toStdString()}) {}

BusMock BusMock::empty(HeadlessDesktop& desktop, const BusClient& client, const QString& name,
                       const QString& path) {
  return {desktop, client, name,
          std::vector<std::string>{name.toStdString(), path.toStdString(), name.toStdString()}};
}

QDBusMessage BusMock::call(const QString& path, const QString& interface, const QString& member,
                           const QVariantList& arguments) const {
  return client_.call(name_, path, interface, member, arguments);
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

BusDouble::~BusDouble() {
  client_.handle().unregisterService(service_);
}

void BusDouble::reply(const QDBusMessage& call, const QVariantList& arguments) {
  client_.handle().send(call.createReply(arguments));
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

QString BusDouble::introspect(const QString&) const {
  return {};
}

bool BusDouble::handleMessage(const QDBusMessage& message, const QDBusConnection& connection) {
  calls_.push_back(message);
  if (std::find(kept_.begin(), kept_.end(), message.member()) != kept_.end()) {
    message.setDelayedReply(true);
    return true;
  }
  const auto found = answers_.find(message.member());
  if (found == answers_.end()) return false;
  return connection.send(message.createReply(found->second(message)));
}

}  // namespace sentrel::test
