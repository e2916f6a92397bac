// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>

#include "support/main_loop.h"

namespace sentrel {

/// The time base of the program: the wall clock read once, advanced by the kernel's boot-time clock, which
/// runs on through sleep and follows no correction. A wall clock that is set afterwards changes nothing.
class SystemClock final : public Clock {
 public:
  /// Milliseconds since 1970, and milliseconds since the machine started.
  using Reader = std::function<std::int64_t()>;

  SystemClock();
  SystemClock(const Reader& wallMs, Reader bootMs);

  [[nodiscard]] std::int64_t nowMs() const override;

 private:
  Reader bootMs_;
  std::int64_t offsetMs_;
};

}  // namespace sentrel
