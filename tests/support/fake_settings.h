// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>

#include "platform/desktop_services.h"

namespace sentrel::test {

/// A login item that remembers what it was asked and fails on demand.
struct FakeLoginItem final : LoginItem {
  [[nodiscard]] bool isEnabled() const override { return enabled; }
  [[nodiscard]] std::optional<std::string> setEnabled(bool wanted) override {
    requests.push_back(wanted);
    if (!failure) enabled = wanted;
    return failure;
  }

  bool enabled = false;
  std::optional<std::string> failure;
  std::vector<bool> requests;
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

}  // namespace sentrel::test
