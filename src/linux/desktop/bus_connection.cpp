// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/bus_connection.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "linux/desktop/event_thread.h"

namespace sentrel {

namespace {

constexpr std::int64_t firstRetryMs = 1'000;
constexpr std::int64_t longestRetryMs = 64'000;

QString uniqueName() {
  static std::atomic<int> count{0};
  return QStringLiteral("sentrel-desktop-%1").arg(count++);
}

}  // namespace

BusConnection::BusConnection(BusKind kind)
    : kind_(kind), name_(uniqueName()), loop_(currentEventLoop()), handle_(name_), retryMs_(firstRetryMs) {}

BusConnection::~BusConnection() {
  if (connected_) QDBusConnection::disconnectFromBus(name_);
}

Registration BusConnection::follow(const std::function<void(bool connected)>& follower) {
  Registration registration = changed_.connect(follower);
  if (connected_) {
    follower(true);
  } else if (!retry_ && !probe_) {
    retry_ = loop_.after(0, [this] { attempt(); });
  }
  return registration;
}

void BusConnection::attempt() {
  retry_.reset();
  if (connected_ || changed_.observerCount() == 0) return;
  probe_.emplace(kind_, loop_, [this](bool answers) { probed(answers); });
}

void BusConnection::probed(bool answers) {
  probe_.reset();
  if (answers) {
    const auto type = kind_ == BusKind::session ? QDBusConnection::SessionBus : QDBusConnection::SystemBus;
    handle_ = QDBusConnection::connectToBus(type, name_);
    connected_ = handle_.isConnected();
    if (!connected_) QDBusConnection::disconnectFromBus(name_);
  }
  if (!connected_) {
    attemptLater();
    return;
  }
  handle_.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                  QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                  SLOT(disconnected()));
  retryMs_ = firstRetryMs;
  changed_.emit(true);
}

void BusConnection::attemptLater() {
  retry_ = loop_.after(retryMs_, [this] { attempt(); });
  retryMs_ = std::min(retryMs_ * 2, longestRetryMs);
}

void BusConnection::disconnected() {
  if (!connected_) return;
  connected_ = false;
  changed_.emit(false);
  handle_ = QDBusConnection(name_);
  QDBusConnection::disconnectFromBus(name_);
  attemptLater();
}

}  // namespace sentrel
