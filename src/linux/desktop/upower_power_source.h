// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/desktop/bus_thread.h"
#include "platform/desktop_services.h"
#include "support/main_loop.h"

namespace sentrel {

/// The battery as UPower sees it.
class UPowerPowerSource final : public PowerSource {
 public:
  UPowerPowerSource(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<BusThread> buses);
  ~UPowerPowerSource() override;

  [[nodiscard]] Registration observe() override;
  [[nodiscard]] std::optional<PowerSourceDescription> first() const override;

 private:
  struct Observation;

  std::shared_ptr<MainLoop> mainLoop_;
  std::shared_ptr<BusThread> buses_;
  std::weak_ptr<Observation> observation_;  // owned by the registrations
};

}  // namespace sentrel
