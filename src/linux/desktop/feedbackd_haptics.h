// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/desktop/bus_peer.h"
#include "linux/desktop/bus_thread.h"
#include "platform/desktop_services.h"

namespace sentrel {

/// Haptics through the feedback service that phones and tablets run; it is never started for us.
class FeedbackdHaptics final : public Haptics {
 public:
  explicit FeedbackdHaptics(std::shared_ptr<BusThread> buses);
  void perform() override;

 private:
  std::shared_ptr<BusThread> buses_;
  Resident<BusPeer> service_;
};

}  // namespace sentrel
