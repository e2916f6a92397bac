// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

namespace sentrel {

/// Qt ends the process from within when the display that shows its windows is lost. While this lives, such an
/// end runs `lastDuty` and then leaves at once: threads still work with what the runtime would tear down, and
/// the covers go with their connections. Main thread; at most one.
class OrderlyExit {
 public:
  explicit OrderlyExit(std::function<void()> lastDuty);
  ~OrderlyExit();
  OrderlyExit(const OrderlyExit&) = delete;
  OrderlyExit& operator=(const OrderlyExit&) = delete;
};

}  // namespace sentrel
