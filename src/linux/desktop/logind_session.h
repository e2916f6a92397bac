// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDBusUnixFileDescriptor>
#include <QString>
#include <vector>

#include "linux/desktop/bus_peer.h"
#include "linux/desktop/witness_reports.h"

namespace sentrel {

/// The login manager about the session of this process: locked, active, asked to lock; and about the sleep of
/// the machine, which it delays until told to go on. Lives on the bus thread.
class LogindSession {
 public:
  LogindSession(BusConnection& systemBus, WitnessReports reports);

  /// Lets the sleep that is being prepared go on.
  void allowSleep();

 private:
  void appeared();
  void gone();
  void askByEnvironment();
  void askByUser();
  void sessionFound(const QString& path);
  void readSession();
  void sleepIsPrepared(bool begins);
  void delaySleep();

  WitnessReports reports_;
  QString session_;
  QDBusUnixFileDescriptor sleepDelay_;  // sleep waits while this is open
  bool preparing_ = false;
  std::vector<Registration> listening_;
  BusPeer manager_;  // last: its handlers use the others
};

}  // namespace sentrel
