// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace sentrel {

/// One stored value; its kind is kept.
using DefaultsValue = std::variant<bool, std::int64_t, float, std::string>;

/// The person's key-value store. Reads and writes memory at once; what lies behind it is written elsewhere.
/// Main thread.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  [[nodiscard]] virtual std::optional<DefaultsValue> value(std::string_view key) const = 0;
  virtual void set(std::string_view key, DefaultsValue value) = 0;
  virtual void remove(std::string_view key) = 0;
};

}  // namespace sentrel
