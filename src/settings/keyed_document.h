// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace sentrel {

/// Values under text keys, in the order in which they were written: what a record looks like to any format
/// that may carry it.
class KeyedDocument {
 public:
  using Value = std::variant<bool, std::int64_t, std::uint64_t, float, std::string>;
  using Entry = std::pair<std::string, Value>;

  /// Appends an entry, or replaces the value of a key that is present.
  void set(std::string_view key, Value value);
  void remove(std::string_view key);
  [[nodiscard]] const Value* find(std::string_view key) const;
  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }

  bool operator==(const KeyedDocument&) const = default;

 private:
  std::vector<Entry> entries_;
};

/// Why a document is not the record asked for: the first key, in field order, that is missing or of another
/// kind.
struct DecodingError {
  enum class Kind { missing, mistyped };
  Kind kind = Kind::missing;
  std::string key;
  bool operator==(const DecodingError&) const = default;
};

}  // namespace sentrel
