// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "linux/desktop/bus_peer.h"
#include "linux/desktop/witness_reports.h"

namespace sentrel {

/// GNOME's compositor about the power of its displays. Lives on the bus thread.
class MutterDisplays {
 public:
  MutterDisplays(BusConnection& sessionBus, WitnessReports reports);

 private:
  void appeared();
  void read();

  WitnessReports reports_;
  Registration listening_;
  BusPeer compositor_;
};

}  // namespace sentrel
