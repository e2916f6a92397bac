// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "overlay/flash_animation.h"
#include "platform/overlay_surface.h"
#include "support/main_loop.h"
#include "support/registration.h"

namespace sentrel {

class OverlayWindowManager;

/// The privacy matrix: diagonal stripes that disturb the view from the side, wider spaced the farther the
/// person sits from the screen.
struct MatrixStripeLayer {
  std::int64_t distanceCm = 0;  ///< viewing distance
  std::uint64_t colorArgb = 0;  ///< low 32 bits 0xAARRGGBB; the alpha byte is overridden by `stripeAlpha`
  float stripeAlpha = 0;        ///< opacity of a stripe's colour
  double overlayAlpha = 0;      ///< opacity of the whole layer

  /// What is to be painted, with a period of 8 logical pixels at 60 cm that grows with the square root of the
  /// distance, which counts as 30 cm at least. Opacities outside 0..1 count as the nearer end.
  [[nodiscard]] StripePattern pattern() const;
};

/// The content of one overlay window: turns the manager's values into the layers of its surface, and animates
/// the flash of the alert, which is this window's own. Main thread.
class OverlayContentView : public std::enable_shared_from_this<OverlayContentView> {
 public:
  /// The manager must outlive the view.
  OverlayContentView(const OverlayWindowManager& manager, std::unique_ptr<OverlaySurface> surface,
                     std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<Clock> clock);

  /// Presents the scene, where it has changed, two turns from now.
  void schedulePresent();
  /// The main screen's window shows the onlooker's picture.
  void setOnMainScreen(bool onMain);
  /// The flash's level now, 0..0.3.
  [[nodiscard]] double flashAlpha() const { return flash_.alphaAt(clock_->nowMs()); }

 private:
  void observeManager();
  void alertModeChanged(bool alertMode);
  void startFlash();
  void stopFlash();
  void present();
  void updateTint();
  [[nodiscard]] OverlayScene scene() const;

  const OverlayWindowManager& manager;
  const std::unique_ptr<OverlaySurface> surface_;
  const std::shared_ptr<MainLoop> mainLoop_;
  const std::shared_ptr<Clock> clock_;

  FlashAnimation flash_;
  bool alertMode_;
  bool onMainScreen_ = false;
  bool presentScheduled_ = false;
  std::optional<OverlayScene> presented_;
  TintLevel tint_ = 0;

  Registration flashTask;
  std::array<Registration, 10> observations_;
};

}  // namespace sentrel
