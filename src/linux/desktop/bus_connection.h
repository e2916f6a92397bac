// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <cstdint>
#include <functional>
#include <optional>

#include "linux/desktop/bus_probe.h"
#include "support/main_loop.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// Our own connection to a bus, made when somebody first wants it and again after the bus was lost. Lives on
/// an event thread, because connecting waits for the bus, though only for one that was seen to answer.
class BusConnection final : public QObject {
  Q_OBJECT

 public:
  explicit BusConnection(BusKind kind);
  ~BusConnection() override;

  /// Tells each connection and each loss; an existing connection at once.
  [[nodiscard]] Registration follow(const std::function<void(bool connected)>& follower);

  /// Valid while connected.
  [[nodiscard]] QDBusConnection& handle() { return handle_; }

 private Q_SLOTS:
  void disconnected();

 private:
  void attempt();
  void probed(bool answers);
  void attemptLater();

  const BusKind kind_;
  const QString name_;  // of the connection, within this process
  MainLoop& loop_;
  QDBusConnection handle_;
  bool connected_ = false;
  std::int64_t retryMs_;
  Registration retry_;
  std::optional<BusProbe> probe_;
  Signal<bool> changed_;
};

}  // namespace sentrel
