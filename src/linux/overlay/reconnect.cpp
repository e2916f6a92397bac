// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/reconnect.h"

#include <algorithm>
#include <utility>

namespace sentrel {

namespace {
constexpr std::int64_t firstDelayMs = 500;
constexpr std::int64_t longestDelayMs = 30'000;
}  // namespace

Reconnect::Reconnect(MainLoop& loop, std::function<bool()> attempt)
    : loop_(loop), attempt_(std::move(attempt)), delayMs_(firstDelayMs) {}

void Reconnect::begin() {
  delayMs_ = firstDelayMs;
  goOn();
}

void Reconnect::goOn() {
  retry_ = loop_.after(delayMs_, [this] {
    if (!attempt_()) goOn();
  });
  delayMs_ = std::min(delayMs_ * 2, longestDelayMs);
}

}  // namespace sentrel
