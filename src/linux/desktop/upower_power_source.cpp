// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/upower_power_source.h"

#include <utility>

#include "linux/desktop/upower_devices.h"

namespace sentrel {

struct UPowerPowerSource::Observation {
  std::shared_ptr<BusThread> buses;
  std::optional<PowerSourceDescription> first;
  Resident<UPowerDevices> devices;
};

UPowerPowerSource::UPowerPowerSource(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<BusThread> buses)
    : mainLoop_(std::move(mainLoop)), buses_(std::move(buses)) {}

UPowerPowerSource::~UPowerPowerSource() = default;

Registration UPowerPowerSource::observe() {
  auto observation = observation_.lock();
  if (!observation) {
    observation = std::make_shared<Observation>();
    observation->buses = buses_;
    observation_ = observation;
    const auto tell = [loop = mainLoop_, weak = observation_](std::optional<PowerSourceDescription> first) {
      loop->post([weak, first] {
        if (const auto live = weak.lock()) live->first = first;
      });
    };
    observation->devices = buses_->reside<UPowerDevices>(
        [tell](Buses& both) { return std::make_unique<UPowerDevices>(both.system, tell); });
  }
  return Registration([observation]() mutable { observation.reset(); });
}

std::optional<PowerSourceDescription> UPowerPowerSource::first() const {
  const auto observation = observation_.lock();
  return observation ? observation->first : std::nullopt;
}

}  // namespace sentrel
