// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

#include "overlay/retro_pip_state.h"
#include "platform/retro_surface.h"
#include "support/main_loop.h"
#include "support/registration.h"

namespace sentrel {

/// Shows the state's picture on a surface and lets its dot fade in and out, 1.1 s a round, as long as it
/// lives. Main thread.
class RetroPiPView {
 public:
  /// `state`, `mainLoop` and `clock` must outlive it.
  RetroPiPView(const RetroPiPState& state, const Published<bool>& reducedMotion,
               std::unique_ptr<RetroSurface> surface, MainLoop& mainLoop, const Clock& clock);
  RetroPiPView(const RetroPiPView&) = delete;
  RetroPiPView& operator=(const RetroPiPView&) = delete;

 private:
  void startBlinking(bool reducedMotion);
  void updateDot();

  const std::unique_ptr<RetroSurface> surface_;
  MainLoop& mainLoop_;
  const Clock& clock_;
  std::int64_t shownSinceMs_;
  BlinkLevel blink = 0;
  Registration frame_;
  Registration motion_;
  Registration blinkTask_;
};

}  // namespace sentrel
