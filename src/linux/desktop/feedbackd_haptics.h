// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/desktop/bus.h"
#include "platform/desktop_services.h"

namespace sentrel {

/// Haptics through the feedback service that phones and tablets run; it is never started for us. Main thread.
class FeedbackdHaptics final : public Haptics {
 public:
  explicit FeedbackdHaptics(std::shared_ptr<Bus> sessionBus);
  void perform() override;

 private:
  BusService service_;
};

}  // namespace sentrel
