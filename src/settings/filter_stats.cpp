// SPDX-License-Identifier: Apache-2.0
#include "settings/filter_stats.h"

#include <array>
#include <string>
#include <string_view>
#include <utility>

namespace sentrel {

namespace {

constexpr std::array<std::pair<std::string_view, std::int64_t FilterStats::*>, 3> fields{{
    {"alertCount", &FilterStats::alertCount},
    {"sessionCount", &FilterStats::sessionCount},
    {"totalActiveSeconds", &FilterStats::totalActiveSeconds},
}};

}  // namespace

KeyedDocument encode(const FilterStats& stats) {
  KeyedDocument document;
  for (const auto& [key, field] : fields) document.set(key, stats.*field);
  return document;
}

std::variant<FilterStats, DecodingError> decodeFilterStats(const KeyedDocument& document) {
  FilterStats stats;
  for (const auto& [key, field] : fields) {
    const KeyedDocument::Value* value = document.find(key);
    if (value == nullptr) return DecodingError{DecodingError::Kind::missing, std::string(key)};
    const auto* count = std::get_if<std::int64_t>(value);
    if (count == nullptr) return DecodingError{DecodingError::Kind::mistyped, std::string(key)};
    stats.*field = *count;
  }
  return stats;
}

}  // namespace sentrel
