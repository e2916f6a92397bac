// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/desktop_services.h"
#include "settings/filter_settings.h"
#include "support/published.h"

namespace sentrel {

/// What protection has done since the program was first used: a plain value.
struct FilterStats {
  std::int64_t alertCount = 0;          ///< onlooker alerts that began
  std::int64_t sessionCount = 0;        ///< times that protection was started
  std::int64_t totalActiveSeconds = 0;  ///< seconds of protection

  bool operator==(const FilterStats&) const = default;
};

/// One entry per field, named after it and in field order.
KeyedDocument encode(const FilterStats& stats);

/// The record that `document` describes, or none where a key is missing or of another kind.
std::optional<FilterStats> decodeFilterStats(const KeyedDocument& document);

/// The one owner of the lifetime counters: loads them from the person's store when it is created and stores
/// every change at once. A counter that is full stays so. Main thread.
class StatsRepository {
 public:
  /// Loads at once.
  explicit StatsRepository(std::shared_ptr<UserDefaults> userDefaults);

  /// The process's repository, over the installed platform.
  static const std::shared_ptr<StatsRepository>& shared();

  Published<FilterStats> stats;

  /// Reads the stored counters again and publishes them once; one that is missing or no integer is 0.
  void load();

  /// An alert began.
  void incrementAlerts();
  /// Protection was started.
  void incrementSessions();
  /// Protection ended after `seconds`; any amount is added as it is.
  void addActiveSeconds(std::int64_t seconds);
  /// Publishes and stores zeros.
  void reset();

 private:
  void add(std::int64_t FilterStats::*counter, std::int64_t amount);

  std::shared_ptr<UserDefaults> defaults;
};

}  // namespace sentrel
