// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/system_clock.h"

#include <ctime>
#include <utility>

#include "support/fatal.h"

namespace sentrel {

namespace {

template <clockid_t id>
std::int64_t readMs() {
  timespec time{};
  if (clock_gettime(id, &time) != 0) fatal("the system clock cannot be read");
  return checkedAdd(checkedMultiply(time.tv_sec, 1000), time.tv_nsec / 1'000'000);
}

}  // namespace

SystemClock::SystemClock() : SystemClock(readMs<CLOCK_REALTIME>, readMs<CLOCK_BOOTTIME>) {}

SystemClock::SystemClock(const Reader& wallMs, Reader bootMs)
    : bootMs_(std::move(bootMs)), offsetMs_(checkedSubtract(wallMs(), bootMs_())) {}

std::int64_t SystemClock::nowMs() const {
  return checkedAdd(bootMs_(), offsetMs_);
}

}  // namespace sentrel
