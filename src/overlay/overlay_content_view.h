// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "platform/overlay_surface.h"
#include "support/main_loop.h"
#include "support/registration.h"

namespace sentrel {

class OverlayWindowManager;

/// The timing curve of the interface's animations: the progress (0..1) reached after the share `t` of the
/// duration; `t` outside 0..1 counts as its nearer end. A cubic Bezier curve from (0,0) to (1,1) with the
/// usual control points (0.42,0) and (0.58,1).
[[nodiscard]] double easeInOut(double t);

/// The level of the alert's flash over time. Each movement begins where the one before left off.
class FlashAnimation {
 public:
  static constexpr double peakAlpha = 0.3;
  enum class Mode {
    stopped,   ///< out to 0 within 0.3 s
    flashing,  ///< up to 0.3 in 0.4 s and back to 0 in 0.4 s, with no end
    raised     ///< up once in 0.4 s, half as high, and stays: where the person wants little movement
  };

  void change(Mode mode, std::int64_t nowMs);
  [[nodiscard]] bool isStopped() const { return mode_ == Mode::stopped; }
  /// Whether the level will not change any more by itself.
  [[nodiscard]] bool isSettledAt(std::int64_t nowMs) const;
  /// 0..0.3.
  [[nodiscard]] double alphaAt(std::int64_t nowMs) const;

 private:
  Mode mode_ = Mode::stopped;
  double fromAlpha_ = 0;
  std::int64_t sinceMs_ = 0;
};

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
  /// `manager`, `mainLoop` and `clock` must outlive the view.
  OverlayContentView(const OverlayWindowManager& manager, std::unique_ptr<OverlaySurface> surface,
                     MainLoop& mainLoop, const Clock& clock);

  /// Presents the scene, where it has changed, two turns from now.
  void schedulePresent();
  /// The main screen's window shows the onlooker's picture.
  void setOnMainScreen(bool onMain);
  /// The flash's level now, 0..0.3.
  [[nodiscard]] double flashAlpha() const { return flash_.alphaAt(clock_.nowMs()); }

 private:
  void alertModeChanged(bool alertMode);
  void changeFlash();
  void present();
  void updateTint();
  void updatePicture();
  [[nodiscard]] OverlayScene scene() const;

  const OverlayWindowManager& manager;
  const std::unique_ptr<OverlaySurface> surface_;
  MainLoop& mainLoop_;
  const Clock& clock_;

  FlashAnimation flash_;
  bool alertMode_;
  bool onMainScreen_ = false;
  bool presentScheduled_ = false;
  std::optional<OverlayScene> presented_;
  TintLevel tint_ = 0;

  Registration flashTask;
  std::array<Registration, 12> observations_;
  Registration clicked_;
};

}  // namespace sentrel
