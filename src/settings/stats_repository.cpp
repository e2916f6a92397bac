// SPDX-License-Identifier: Apache-2.0
#include "settings/stats_repository.h"

#include <array>
#include <limits>
#include <string_view>
#include <utility>

#include "platform/platform.h"

namespace sentrel {

namespace {

struct Counter {
  std::string_view name;      ///< in the keyed coding
  std::string_view storedAs;  ///< the key's text, on which stored counters depend
  std::int64_t FilterStats::*field;
};

constexpr std::array<Counter, 3> counters{{
    {"alertCount", "stats_alert_count", &FilterStats::alertCount},
    {"sessionCount", "stats_session_count", &FilterStats::sessionCount},
    {"totalActiveSeconds", "stats_total_active_seconds", &FilterStats::totalActiveSeconds},
}};

/// Counters are only shown: a sum out of range is the nearest number in it.
std::int64_t saturatingAdd(std::int64_t a, std::int64_t b) {
  std::int64_t result = 0;
  if (!__builtin_add_overflow(a, b, &result)) return result;
  using Limits = std::numeric_limits<std::int64_t>;
  return b > 0 ? Limits::max() : Limits::min();
}

}  // namespace

KeyedDocument encode(const FilterStats& stats) {
  KeyedDocument document;
  for (const Counter& counter : counters) document.emplace_back(counter.name, stats.*counter.field);
  return document;
}

std::optional<FilterStats> decodeFilterStats(const KeyedDocument& document) {
  FilterStats stats;
  for (const Counter& counter : counters) {
    if (!decodeValue(document, counter.name, stats.*counter.field)) return std::nullopt;
  }
  return stats;
}

StatsRepository::StatsRepository(std::shared_ptr<UserDefaults> userDefaults)
    : defaults(std::move(userDefaults)) {
  load();
}

const std::shared_ptr<StatsRepository>& StatsRepository::shared() {
  static const auto instance = std::make_shared<StatsRepository>(Platform::current().userDefaults);
  return instance;
}

void StatsRepository::load() {
  FilterStats loaded;
  for (const Counter& counter : counters) {
    const auto value = defaults->value(counter.storedAs);
    const auto* count = value ? std::get_if<std::int64_t>(&*value) : nullptr;
    if (count != nullptr) loaded.*counter.field = *count;
  }
  stats = loaded;
}

void StatsRepository::incrementAlerts() {
  add(&FilterStats::alertCount, 1);
}

void StatsRepository::incrementSessions() {
  add(&FilterStats::sessionCount, 1);
}

void StatsRepository::addActiveSeconds(std::int64_t seconds) {
  add(&FilterStats::totalActiveSeconds, seconds);
}

void StatsRepository::add(std::int64_t FilterStats::*field, std::int64_t amount) {
  FilterStats next = stats.get();
  next.*field = saturatingAdd(next.*field, amount);
  stats = next;
  for (const Counter& counter : counters) {
    // Read back: an observer may have published something newer.
    if (counter.field == field) defaults->set(counter.storedAs, stats.get().*field);
  }
}

void StatsRepository::reset() {
  stats = FilterStats{};
  for (const Counter& counter : counters) defaults->set(counter.storedAs, std::int64_t{0});
}

}  // namespace sentrel
