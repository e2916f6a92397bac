// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>

#include "support/main_loop.h"
#include "support/registration.h"

namespace sentrel {

/// Tries to reach a display server again and again, ever more rarely, until it is there. A server that
/// restarts is back within seconds; one that does not is looked for twice a minute. Main thread.
class Reconnect {
 public:
  /// `attempt` tells whether it succeeded. `loop` must outlive this.
  Reconnect(MainLoop& loop, std::function<bool()> attempt);

  /// The first attempt comes half a second from now.
  void begin();
  /// As after another attempt that has failed.
  void goOn();

 private:
  MainLoop& loop_;
  std::function<bool()> attempt_;
  std::int64_t delayMs_;
  Registration retry_;
};

}  // namespace sentrel
