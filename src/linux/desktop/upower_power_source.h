// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/desktop/bus.h"
#include "platform/desktop_services.h"

namespace sentrel {

/// The battery as UPower tells it. UPower is started if it can be, and listened to only while somebody
/// observes. Main thread.
class UPowerPowerSource final : public PowerSource {
 public:
  explicit UPowerPowerSource(std::shared_ptr<Bus> systemBus);

  [[nodiscard]] Registration observe() override;
  [[nodiscard]] std::optional<PowerSourceDescription> first() const override;

 private:
  class Devices;

  const std::shared_ptr<Bus> bus_;
  std::weak_ptr<Devices> devices_;  // owned by the registrations
};

}  // namespace sentrel
