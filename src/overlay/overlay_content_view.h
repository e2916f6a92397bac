// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <memory>
#include <optional>

#include "overlay/flash_animation.h"
#include "platform/overlay_surface.h"
#include "support/main_loop.h"
#include "support/registration.h"

namespace sentrel {

class OverlayWindowManager;

/// The content of one overlay window: turns the manager's values into the scene on its surface, and animates
/// the flash of the alert, which is this window's own. Main thread.
class OverlayContentView : public std::enable_shared_from_this<OverlayContentView> {
 public:
  /// The manager must outlive the view. The first scene is presented within the next two
  /// turns.
  static std::shared_ptr<OverlayContentView> create(const OverlayWindowManager& manager,
                                                    std::unique_ptr<OverlaySurface> surface,
                                                    std::shared_ptr<MainLoop> mainLoop,
                                                    std::shared_ptr<Clock> clock);

  /// The flash's level now, 0..0.3.
  [[nodiscard]] double flashAlpha() const { return flash_.alphaAt(clock_->nowMs()); }

 private:
  OverlayContentView(const OverlayWindowManager& manager, std::unique_ptr<OverlaySurface> surface,
                     std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<Clock> clock);

  void observeManager();
  void alertModeChanged(bool alertMode);
  void startFlash();
  void stopFlash();
  void schedulePresent();
  void present();
  void updateTint();
  [[nodiscard]] OverlayScene scene() const;

  const OverlayWindowManager& manager;
  const std::unique_ptr<OverlaySurface> surface_;
  const std::shared_ptr<MainLoop> mainLoop_;
  const std::shared_ptr<Clock> clock_;

  FlashAnimation flash_;
  bool alertMode_;
  bool presentScheduled_ = false;
  std::optional<OverlayScene> presented_;
  TintLevel tint_ = 0;

  Registration flashTask;
  std::array<Registration, 9> observations_;
};

}  // namespace sentrel
