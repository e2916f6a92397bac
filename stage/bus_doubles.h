// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QString>
#include <QVariantList>
#include <chrono>
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
  ~BusClient();
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

/// A service played by python3-dbusmock in a process of its own.
class BusMock {
 public:
  /// One of its templates, owning `name`.
  BusMock(HeadlessDesktop& desktop, const BusClient& client, const QString& name,
          const QString& templateName);
  /// An empty object of the interface `name` at `path`.
  static BusMock empty(HeadlessDesktop& desktop, const BusClient& client, const QString& name,
                       const QString& path);

  /// Controls the mock object at `path`: AddMethod, EmitSignal, UpdateProperties, GetCalls and so on.
  QDBusMessage control(const QString& path, const QString& member, const QVariantList& arguments = {}) const;
  /// Calls the played service itself.
  QDBusMessage call(const QString& path, const QString& interface, const QString& member,
                    const QVariantList& arguments = {}) const;
  void emitSignal(const QString& path, const QString& interface, const QString& member,
                  const QString& signature, const QVariantList& arguments) const;
  void setProperty(const QString& path, const QString& interface, const QString& property,
                   const QVariant& value) const;
  void kill() { process_.kill(); }

 private:
  BusMock(HeadlessDesktop& desktop, const BusClient& client, const QString& name,
          const std::vector<std::string>& arguments);

  const BusClient& client_;
  QString name_;
  ChildProcess process_;
};

/// A service played by the test, on a connection of its own: answers as scripted, or not at all, and
/// remembers what it was asked. Lives on the test's event loop.
class BusDouble final : public QDBusVirtualObject {
 public:
  using Answer = std::function<QVariantList(const QDBusMessage&)>;

  BusDouble(const HeadlessDesktop& desktop, TestBus bus, QString name);
  ~BusDouble() override;

  /// Calls of this member are answered so; unscripted ones get an error, and "Introspect" too.
  void answer(const QString& member, Answer answer) { answers_[member] = std::move(answer); }
  /// Calls of this member are kept and answered later, or never.
  void keep(const QString& member) { kept_.push_back(member); }
  void reply(const QDBusMessage& call, const QVariantList& arguments);
  void emitSignal(const QString& path, const QString& interface, const QString& member,
                  const QVariantList& arguments);
  [[nodiscard]] std::vector<QDBusMessage> calls(const QString& member) const;

  QString introspect(const QString& path) const override;
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

 private:
  BusClient client_;
  QString service_;
  std::map<QString, Answer> answers_;
  std::vector<QString> kept_;
  std::vector<QDBusMessage> calls_;
};

}  // namespace sentrel::test
