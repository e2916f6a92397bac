// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "support/registration.h"

namespace sentrel {

/// The first power source of the machine; what it does not tell, or tells as nonsense, is absent.
struct PowerSourceDescription {
  std::optional<int> currentCapacity;  ///< percent, 0..100, rounded down
  std::optional<bool> isCharging;      ///< true also when it is full or waits for its charge on the mains
  bool operator==(const PowerSourceDescription&) const = default;
};

/// The battery. Main thread; nothing here waits for anybody.
class PowerSource {
 public:
  virtual ~PowerSource() = default;

  /// Keeps `first()` up to date until the registration ends; it begins with nothing known. Several may be
  /// held.
  [[nodiscard]] virtual Registration observe() = 0;

  /// The newest that is known, or none: no battery, nobody who tells, or no observer.
  [[nodiscard]] virtual std::optional<PowerSourceDescription> first() const = 0;
};

}  // namespace sentrel
