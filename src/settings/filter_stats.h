// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <variant>

#include "settings/keyed_document.h"

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

/// The record that `document` describes; every key is required.
std::variant<FilterStats, DecodingError> decodeFilterStats(const KeyedDocument& document);

}  // namespace sentrel
