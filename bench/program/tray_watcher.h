// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusConnection>
#include <QObject>
#include <chrono>
#include <optional>
#include <stdexcept>

namespace sentrel::bench {

/// A panel that takes the program's icon and notes when it came. On the session bus, on the main thread.
class TrayWatcher final : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
  Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hasHost)

 public:
  TrayWatcher() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerObject(QStringLiteral("/StatusNotifierWatcher"), this,
                            QDBusConnection::ExportAllContents) ||
        !bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher")))
      throw std::runtime_error("there is another panel");
  }

  [[nodiscard]] static bool hasHost() { return true; }
  [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> iconAt() const { return iconAt_; }
  void forget() { iconAt_.reset(); }

 public Q_SLOTS:
  // NOLINTNEXTLINE: the name is the interface's
  void RegisterStatusNotifierItem(const QString& /*service*/) { iconAt_ = std::chrono::steady_clock::now(); }

 private:
  std::optional<std::chrono::steady_clock::time_point> iconAt_;
};

}  // namespace sentrel::bench
