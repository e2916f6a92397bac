// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/interruption_watch.h"

#include <utility>

namespace sentrel {

void InterruptionWatch::open(Time now) {
  open_ = true;
  interrupted_ = false;
  since_ = now;
}

void InterruptionWatch::close() {
  open_ = false;
  interrupted_ = false;
}

void InterruptionWatch::restart(Time now) {
  if (open_ && !interrupted_) since_ = now;
}

bool InterruptionWatch::goodFrame(Time now) {
  if (!open_) return false;
  since_ = now;
  return std::exchange(interrupted_, false);
}

bool InterruptionWatch::lost(Time now) {
  if (!open_ || interrupted_) return false;
  interrupted_ = true;
  since_ = now;
  return true;
}

bool InterruptionWatch::tick(Time now) {
  if (!open_ || now - since_ < patience) return false;
  interrupted_ = true;
  since_ = now;
  return true;
}

std::optional<InterruptionWatch::Time> InterruptionWatch::nextTick() const {
  return open_ ? std::optional(since_ + patience) : std::nullopt;
}

}  // namespace sentrel
