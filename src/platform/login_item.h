// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

namespace sentrel {

/// Whether the program starts when the person logs in. Main thread.
class LoginItem {
 public:
  virtual ~LoginItem() = default;
  [[nodiscard]] virtual bool isEnabled() const = 0;
  /// Gives the failure's description, or none.
  [[nodiscard]] virtual std::optional<std::string> setEnabled(bool enabled) = 0;
};

}  // namespace sentrel
