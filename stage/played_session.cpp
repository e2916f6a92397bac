// SPDX-License-Identifier: Apache-2.0
#include "stage/played_session.h"

#include <QDBusArgument>
#include <QDBusVariant>
#include <fstream>

namespace sentrel::test {

namespace {

const auto managerPath = QStringLiteral("/org/freedesktop/login1");
const auto manager = QStringLiteral("org.freedesktop.login1.Manager");
const auto sessionPath = QStringLiteral("/org/freedesktop/login1/session/c2");
const auto session = QStringLiteral("org.freedesktop.login1.Session");
const auto lockerPath = QStringLiteral("/org/gnome/ScreenSaver");
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
    mock.AddMethod(MAIN_IFACE, 'GetSessionByPID', 'u', 'o', 'ret = "%s"' % session)
)";
  return QString::fromStdString(path.string());
}

}  // namespace

PlayedSession::PlayedSession(HeadlessDesktop& desktop)
    : sessionBus_(desktop, TestBus::session),
      systemBus_(desktop, TestBus::system),
      logind_(desktop, systemBus_, QStringLiteral("org.freedesktop.login1"), loginManager(desktop)),
      locker_(desktop, sessionBus_, locker, QStringLiteral("gnome_screensaver")),
      upower_(desktop, systemBus_, QStringLiteral("org.freedesktop.UPower"), QStringLiteral("upower")) {
  constexpr qlonglong secondsLeft = 7200;
  upower_.control(QStringLiteral("/org/freedesktop/UPower"), QStringLiteral("AddDischargingBattery"),
                  {QStringLiteral("BAT0"), QStringLiteral("Battery"), 80.0, secondsLeft});
}

void PlayedSession::setLockedHint(bool locked) const {
  logind_.call(sessionPath, session, QStringLiteral("SetLockedHint"), {locked});
}

void PlayedSession::requestLock(bool lock) const {
  logind_.call(sessionPath, session, lock ? QStringLiteral("Lock") : QStringLiteral("Unlock"));
}

void PlayedSession::setActive(bool active) const {
  logind_.setProperty(sessionPath, session, QStringLiteral("Active"), active);
}

void PlayedSession::prepareForSleep(bool begins) const {
  logind_.setProperty(managerPath, manager, QStringLiteral("PreparingForSleep"), begins);
  logind_.emitSignal(managerPath, manager, QStringLiteral("PrepareForSleep"), QStringLiteral("b"), {begins});
}

void PlayedSession::setLockerActive(bool covers) const {
  locker_.call(lockerPath, locker, QStringLiteral("SetActive"), {covers});
}

void PlayedSession::setBattery(double percent, bool charging) const {
  upower_.setProperty(batteryPath, device, QStringLiteral("State"), QVariant::fromValue(charging ? 1U : 2U));
  upower_.setProperty(batteryPath, device, QStringLiteral("Percentage"), percent);
}

std::size_t PlayedSession::sleepDelays() const {
  const QDBusMessage reply = logind_.call(managerPath, manager, QStringLiteral("ListInhibitors"));
  const auto list = reply.arguments().constFirst().value<QDBusArgument>();
  std::size_t count = 0;
  for (list.beginArray(); !list.atEnd(); ++count) (void)list.asVariant();
  list.endArray();
  return count;
}

}  // namespace sentrel::test
