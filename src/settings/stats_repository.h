// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "platform/user_defaults.h"
#include "settings/filter_stats.h"
#include "support/published.h"

namespace sentrel {

/// The one owner of the lifetime counters: loads them from the person's store when it is created and stores
/// every change at once. A sum beyond 64 bits is fatal. Main thread.
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
  void add(std::int64_t FilterStats::*counter, std::int64_t amount, std::string_view key);

  std::shared_ptr<UserDefaults> defaults;
};

}  // namespace sentrel
