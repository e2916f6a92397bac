// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
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

/// A store that lasts as long as the process.
class MemoryUserDefaults final : public UserDefaults {
 public:
  [[nodiscard]] std::optional<DefaultsValue> value(std::string_view key) const override {
    const auto found = values_.find(key);
    return found == values_.end() ? std::nullopt : std::optional(found->second);
  }
  void set(std::string_view key, DefaultsValue value) override {
    values_.insert_or_assign(std::string(key), std::move(value));
  }
  void remove(std::string_view key) override {
    const auto found = values_.find(key);
    if (found != values_.end()) values_.erase(found);
  }

 private:
  std::map<std::string, DefaultsValue, std::less<>> values_;
};

}  // namespace sentrel
