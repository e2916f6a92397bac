// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QStringList>

#include "linux/desktop/bus_peer.h"
#include "linux/desktop/witness_reports.h"

namespace sentrel {

/// One of the screen lockers that tell when they cover the screen. Lives on the bus thread.
class ScreenSaverWatch {
 public:
  /// `name` is that of the service and of its interface; `paths` are where its object may stand, likeliest
  /// first.
  ScreenSaverWatch(BusConnection& sessionBus, QString name, QStringList paths,
                   WitnessReports::Witness witness, WitnessReports reports);

 private:
  void appeared();
  void ask(qsizetype path);

  const QString name_;
  const QStringList paths_;
  const WitnessReports::Witness witness_;
  WitnessReports reports_;
  Registration listening_;
  BusPeer locker_;
};

}  // namespace sentrel
