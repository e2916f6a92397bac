// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/upower_power_source.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

namespace sentrel {

namespace {

constexpr auto managerPath = "/org/freedesktop/UPower";
constexpr auto managerInterface = "org.freedesktop.UPower";
constexpr auto deviceInterface = "org.freedesktop.UPower.Device";

/// More devices than any machine has; the rest of a longer list is not believed.
constexpr std::size_t mostDevices = 64;

bool isBattery(const QVariantMap& device) {
  constexpr uint batteryKind = 2;
  return valueOf<uint>(device, "Type") == batteryKind && valueOf<bool>(device, "IsPresent") == true;
}

PowerSourceDescription describe(const QVariantMap& device) {
  PowerSourceDescription description;
  const auto percentage = valueOf<double>(device, "Percentage");
  if (percentage && *percentage >= 0 && *percentage <= 100) {
    description.currentCapacity = static_cast<int>(std::floor(*percentage));
  }
  if (const auto state = valueOf<uint>(device, "State")) {
    constexpr uint discharging = 2;
    constexpr uint empty = 3;
    constexpr uint pendingDischarge = 6;
    description.isCharging = *state != discharging && *state != empty && *state != pendingDischarge;
  }
  return description;
}

}  // namespace

/// The devices that UPower knows.
class UPowerPowerSource::Devices final : private BusService {
 public:
  explicit Devices(const std::shared_ptr<Bus>& bus) : BusService(bus, managerInterface) {}

  [[nodiscard]] std::optional<PowerSourceDescription> first() const {
    const auto found = std::ranges::find_if(devices_, [](const Device& device) {
      return isBattery(device.properties) &&
             (device.isCombined || valueOf<bool>(device.properties, "PowerSupply") == true);
    });
    return found != devices_.end() ? std::optional(describe(found->properties)) : std::nullopt;
  }

 private:
  struct Device {
    std::string path;
    bool isCombined;  // stands for all batteries
    QVariantMap properties;
    Registration following;
  };

  void absent() override { start(); }
  void gone() override {
    listening_.clear();
    devices_.clear();
  }
  void appeared() override {
    const auto follow = [this](const char* signal, BusHandler handler) {
      listening_.push_back(listen({managerPath, managerInterface, signal}, std::move(handler)));
    };
    follow("DeviceAdded", [this](const BusMessage& signal) { add(signal.objectPath(), false); });
    follow("DeviceRemoved", [this](const BusMessage& signal) {
      std::erase_if(devices_, [&](const Device& device) {
        return !device.isCombined && device.path == signal.objectPath();
      });
    });
    const auto ask = [this](const char* method, BusHandler handler) {
      call({managerPath, managerInterface, method}, {std::move(handler)}, "");
    };
    ask("GetDisplayDevice", [this](const BusMessage& reply) { add(reply.objectPath(), true); });
    ask("EnumerateDevices", [this](const BusMessage& reply) {
      if (reply.isError || reply.signature != "ao") return;
      for (const QString& path : reply.arguments.constFirst().toStringList()) add(path.toStdString(), false);
    });
  }

  /// The first one counts: the combined device goes before the others, which stay in UPower's order.
  void add(const std::string& path, bool isCombined) {
    const auto known = std::ranges::find(devices_, path, &Device::path);
    if (path.empty() || known != devices_.end() || devices_.size() > mostDevices) return;
    const auto told = [this, path](const QVariantMap& properties, bool changed) {
      const auto device = std::ranges::find(devices_, path, &Device::path);
      if (device == devices_.end()) return;
      if (!changed) device->properties.clear();
      device->properties.insert(properties);
    };
    devices_.insert(isCombined ? devices_.begin() : devices_.end(),
                    Device{path, isCombined, {}, followProperties(path, deviceInterface, told)});
  }

  std::vector<Device> devices_;
  std::vector<Registration> listening_;
};

UPowerPowerSource::UPowerPowerSource(std::shared_ptr<Bus> systemBus) : bus_(std::move(systemBus)) {}

Registration UPowerPowerSource::observe() {
  auto devices = devices_.lock();
  if (!devices) {
    devices = std::make_shared<Devices>(bus_);
    devices_ = devices;
  }
  return Registration([devices]() mutable { devices.reset(); });
}

std::optional<PowerSourceDescription> UPowerPowerSource::first() const {
  const auto devices = devices_.lock();
  return devices ? devices->first() : std::nullopt;
}

}  // namespace sentrel
