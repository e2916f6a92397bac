// SPDX-License-Identifier: Apache-2.0
#include "app/orderly_exit.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace sentrel {

namespace {
std::function<void()>& duty() {
  // Never destroyed, because it is used at the very end.
  static auto* const kept = new std::function<void()>;
  return *kept;
}

void leave() {
  if (!duty()) return;
  std::fputs("sentrel: the display was lost\n", stderr);
  std::exchange(duty(), nullptr)();
  std::fflush(nullptr);
  _exit(EXIT_FAILURE);
}
}  // namespace

OrderlyExit::OrderlyExit(std::function<void()> lastDuty) {
  duty() = std::move(lastDuty);
  std::atexit(leave);  // last registered, first called
}

OrderlyExit::~OrderlyExit() {
  duty() = nullptr;
}

}  // namespace sentrel
