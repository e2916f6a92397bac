// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusVariant>

#include "linux/desktop/bus.h"
#include "linux/desktop/event_thread.h"
#include "linux/desktop/qt_main_loop.h"
#include "stage/bus_doubles.h"

namespace sentrel::test {

/// A private desktop with both buses for one test process, and this process on it. There is one for all
/// tests, because the bus library reads the addresses of the buses once.
inline HeadlessDesktop& sharedDesktop() {
  static HeadlessDesktop desktop({.systemBus = true,
                                  .x11 = true,
                                  .windowManager = false,
                                  .compositor = false,
                                  .width = 640,
                                  .height = 480});
  return desktop;
}

/// As `sharedDesktop`, without a display server.
inline HeadlessDesktop& desktopWithoutDisplay() {
  static HeadlessDesktop desktop({.systemBus = true, .width = 640, .height = 480});
  return desktop;
}

/// The person's answer to what a portal asks: a signal of an object that each request has. Gives the reply.
inline QVariantList portalAnswer(BusDouble& portal, const QDBusMessage& call, bool granted,
                                 const QVariantMap& results = {}) {
  const auto options = qdbus_cast<QVariantMap>(call.arguments().constLast());
  const QString request = QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2")
                              .arg(call.service().mid(1).replace(u'.', u'_'),
                                   options.value(QStringLiteral("handle_token")).toString());
  portal.emitSignal(request, QStringLiteral("org.freedesktop.portal.Request"), QStringLiteral("Response"),
                    {granted ? 0U : 1U, results});
  return {QVariant::fromValue(QDBusObjectPath(request))};
}

/// As the bus carries a value of any type.
inline QVariant boxed(const QVariant& value) {
  return QVariant::fromValue(QDBusVariant(value));
}

/// A service's answer that is the same to each call.
inline BusDouble::Answer always(const QVariantList& values) {
  return [values](const QDBusMessage&) { return values; };
}

/// What every test of the desktop's events needs: the application, its loop and its buses, and the test's own
/// connections to those.
struct EventDesk : testing::Test {
  explicit EventDesk(HeadlessDesktop& on = sharedDesktop()) : desktop(on) { desktop.exportToProcess(); }

  /// Runs the main loop until the condition holds.
  template <class Condition>
  [[nodiscard]] bool runUntil(Condition condition) {
    return waitUntil(
        [&] {
          QCoreApplication::processEvents();
          return condition();
        },
        std::chrono::seconds(20), std::chrono::milliseconds(2));
  }

  [[nodiscard]] bool runUntilCalls(const BusDouble& service, const char* member, std::size_t count) {
    return runUntil([&] { return service.calls(QString::fromLatin1(member)).size() >= count; });
  }

  HeadlessDesktop& desktop;
  int argumentCount = 1;
  QCoreApplication application{argumentCount, &program_invocation_name};
  std::shared_ptr<QtMainLoop> loop = std::make_shared<QtMainLoop>();
  std::shared_ptr<SystemClock> clock = std::make_shared<SystemClock>();
  std::shared_ptr<Bus> ownSessionBus = std::make_shared<Bus>(loop, BusKind::session);
  std::shared_ptr<Bus> ownSystemBus = std::make_shared<Bus>(loop, BusKind::system);
  std::shared_ptr<EventThread> displays = std::make_shared<EventThread>(QStringLiteral("displays"));
  BusClient sessionBus{desktop, TestBus::session};
  BusClient systemBus{desktop, TestBus::system};
};

}  // namespace sentrel::test
