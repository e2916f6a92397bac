// SPDX-License-Identifier: Apache-2.0
#include "settings/stats_repository.h"

#include <utility>
#include <variant>

#include "platform/platform.h"
#include "support/checked.h"

namespace sentrel {

namespace {

constexpr std::string_view alertCountKey = "stats_alert_count";
constexpr std::string_view sessionCountKey = "stats_session_count";
constexpr std::string_view totalActiveSecondsKey = "stats_total_active_seconds";

}  // namespace

StatsRepository::StatsRepository(std::shared_ptr<UserDefaults> userDefaults)
    : defaults(std::move(userDefaults)) {
  load();
}

const std::shared_ptr<StatsRepository>& StatsRepository::shared() {
  static const auto instance = std::make_shared<StatsRepository>(Platform::current().userDefaults);
  return instance;
}

void StatsRepository::load() {
  const auto stored = [this](std::string_view key) {
    const auto value = defaults->value(key);
    const auto* count = value ? std::get_if<std::int64_t>(&*value) : nullptr;
    return count == nullptr ? 0 : *count;
  };
  stats = FilterStats{.alertCount = stored(alertCountKey),
                      .sessionCount = stored(sessionCountKey),
                      .totalActiveSeconds = stored(totalActiveSecondsKey)};
}

void StatsRepository::incrementAlerts() {
  add(&FilterStats::alertCount, 1, alertCountKey);
}

void StatsRepository::incrementSessions() {
  add(&FilterStats::sessionCount, 1, sessionCountKey);
}

void StatsRepository::addActiveSeconds(std::int64_t seconds) {
  add(&FilterStats::totalActiveSeconds, seconds, totalActiveSecondsKey);
}

void StatsRepository::add(std::int64_t FilterStats::*counter, std::int64_t amount, std::string_view key) {
  FilterStats next = stats.get();
  next.*counter = saturatingAdd(next.*counter, amount);
  stats = next;
  // Read back: an observer may have published something newer.
  defaults->set(key, stats.get().*counter);
}

void StatsRepository::reset() {
  stats = FilterStats{};
  for (const auto key : {alertCountKey, sessionCountKey, totalActiveSecondsKey}) {
    defaults->set(key, std::int64_t{0});
  }
}

}  // namespace sentrel
