// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QString>
#include <QVariantList>
#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "stage/headless_desktop.h"

namespace sentrel::test {

enum class TestBus { session, system };

/// The test's own connection to a bus of a private desktop.
class BusClient {
 public:
  BusClient(const HeadlessDesktop& desktop, TestBus bus);
  ~BusClient() { QDBusConnection::disconnectFromBus(name_); }
  BusClient(const BusClient&) = delete;
  BusClient& operator=(const BusClient&) = delete;

  /// Calls and waits; throws std::runtime_error with the error's text.
  QDBusMessage call(const QString& service, const QString& path, const QString& interface,
                    const QString& member, const QVariantList& arguments = {},
                    std::chrono::milliseconds limit = std::chrono::seconds(25)) const;
  [[nodiscard]] bool hasName(const QString& name) const;
  void waitForName(const QString& name) const;
  [[nodiscard]] QDBusConnection& handle() { return connection_; }
  [[nodiscard]] const HeadlessDesktop& desktop() const { return desktop_; }
  [[nodiscard]] TestBus bus() const { return bus_; }

 private:
  const HeadlessDesktop& desktop_;
  TestBus bus_;
  QString name_;
  QDBusConnection connection_;
};

/// A service that python3-dbusmock offers in a process of its own.
class BusMock {
 public:
  /// One of its templates, owning `name`.
  BusMock(HeadlessDesktop& desktop, const BusClient& client, const QString& name, const QString& templateName)
      : BusMock(desktop, client, name, std::vector<std::string>{"--template", templateName.toStdString()}) {}
  /// An empty object of the interface `name` at `path`.
  static BusMock empty(HeadlessDesktop& desktop, const BusClient& client, const QString& name,
                       const QString& path);

  /// Controls the mock object at `path`: AddMethod, EmitSignal, UpdateProperties, GetCalls and so on.
  QDBusMessage control(const QString& path, const QString& member, const QVariantList& arguments = {}) const;
  /// Calls the service itself.
  QDBusMessage call(const QString& path, const QString& interface, const QString& member,
                    const QVariantList& arguments = {}) const {
    return client_.call(name_, path, interface, member, arguments);
  }
  void emitSignal(const QString& path, const QString& interface, const QString& member,
                  const QString& signature, const QVariantList& arguments) const;
  void setProperty(const QString& path, const QString& interface, const QString& property,
                   const QVariant& value) const;
  void kill() { process_.kill(); }

 private:
  BusMock(HeadlessDesktop& desktop, const BusClient& client, const QString& name,
          const std::vector<std::string>& content);

  const BusClient& client_;
  QString name_;
  ChildProcess process_;
};

/// A service that the test offers itself, on a connection of its own: answers as scripted, or not at all, and
/// remembers what it was asked. Lives on the test's event loop.
class BusDouble final : public QDBusVirtualObject {
 public:
  using Answer = std::function<QVariantList(const QDBusMessage&)>;

  BusDouble(const HeadlessDesktop& desktop, TestBus bus, QString name);
  ~BusDouble() override { client_.handle().unregisterService(service_); }

  /// Calls of this member are answered so; unscripted ones get an error, and "Introspect" too.
  void answer(const QString& member, Answer answer) { answers_[member] = std::move(answer); }
  /// Calls of this member are kept and answered later, or never.
  void keep(const QString& member) { answers_[member] = {}; }
  void reply(const QDBusMessage& call, const QVariantList& arguments) {
    client_.handle().send(call.createReply(arguments));
  }
  void emitSignal(const QString& path, const QString& interface, const QString& member,
                  const QVariantList& arguments);
  [[nodiscard]] std::vector<QDBusMessage> calls(const QString& member) const;

  QString introspect(const QString& /*path*/) const override { return {}; }
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

 private:
  BusClient client_;
  QString service_;
  std::map<QString, Answer> answers_;
  std::vector<QDBusMessage> calls_;
};

/// The login manager of a private desktop: whoever asks belongs to one session, which is active and unlocked.
/// `systemBus` must outlive it.
[[nodiscard]] BusMock mockLoginManager(HeadlessDesktop& desktop, const BusClient& systemBus);

/// A person's session on a private desktop: the login manager, GNOME's screen locker and the battery, as mock
/// services. Whoever asks belongs to this session.
class MockSession {
 public:
  /// Ready when it returns: active, unlocked, 80 % charged and discharging. Needs both buses.
  explicit MockSession(HeadlessDesktop& desktop);

  void setLockedHint(bool locked) const;
  /// The login manager asks the session to lock or unlock; nobody confirms it.
  void requestLock(bool lock) const;
  void setActive(bool active) const;
  void prepareForSleep(bool begins) const;
  void setLockerActive(bool covers) const;
  void setBattery(double percent, bool charging) const;
  /// How many programs delay the sleep of the machine.
  [[nodiscard]] std::size_t sleepDelays() const;

  [[nodiscard]] const BusClient& sessionBus() const { return sessionBus_; }

 private:
  BusClient sessionBus_;
  BusClient systemBus_;
  BusMock logind_;
  BusMock locker_;
  BusMock upower_;
};

}  // namespace sentrel::test
