// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/login_item.h"

namespace sentrel::test {

/// A login item that remembers what it was asked and fails on demand.
class FakeLoginItem final : public LoginItem {
 public:
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

}  // namespace sentrel::test
