// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "overlay/overlay_window_manager.h"
#include "platform/overlay_surface.h"
#include "support/frame.h"
#include "support/geometry.h"
#include "support/main_loop.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// What is shown of a frame, in its pixels: the face's box grown by 0.65 of its size on every side, cut off
/// at the frame's edges; the whole frame without a box and where nothing of it would be left.
[[nodiscard]] Rect retroCrop(int frameWidth, int frameHeight, const std::optional<NormalizedRect>& face);

/// Takes the brightness of this rectangle of the frame, into memory for all of it: allocates only for larger
/// frames.
void copyGrey(const Frame& frame, const Rect& crop, GreyPicture& picture);

/// The onlooker's picture of the moment; null before the first one and after the last. Main thread.
struct RetroPiPState {
  Published<std::shared_ptr<const GreyPicture>> frame;
};

/// Shows the state's picture on the overlay as long as it lives, and lets its dot fade in and out, 1.1 s a
/// round; where motion is reduced the dot is simply there. Main thread.
class RetroPiPView {
 public:
  /// `state`, `overlay`, `mainLoop` and `clock` must outlive it.
  RetroPiPView(const RetroPiPState& state, OverlayWindowManager& overlay, MainLoop& mainLoop,
               const Clock& clock);
  ~RetroPiPView();
  RetroPiPView(const RetroPiPView&) = delete;
  RetroPiPView& operator=(const RetroPiPView&) = delete;

 private:
  void startBlinking(bool reducedMotion);
  void updateDot();
  void setBlink(BlinkLevel level);

  const RetroPiPState& state;
  OverlayWindowManager& overlay_;
  MainLoop& mainLoop_;
  const Clock& clock_;
  std::int64_t shownSinceMs_;
  BlinkLevel blink = 0;
  Registration frame_;
  Registration motion_;
  Registration blinkTask_;
};

/// Owns the picture-in-picture of the onlooker and turns camera frames into what it shows, on the main
/// screen's overlay window. The service opens it with the first frame of an alert and hides it at the alert's
/// end. Main thread.
class RetroPiPManager {
 public:
  RetroPiPManager(std::shared_ptr<OverlayWindowManager> overlay, std::shared_ptr<MainLoop> mainLoop,
                  std::shared_ptr<Clock> clock);
  RetroPiPManager(const RetroPiPManager&) = delete;
  RetroPiPManager& operator=(const RetroPiPManager&) = delete;

  /// The process's manager, over the installed platform.
  static const std::shared_ptr<RetroPiPManager>& shared();

  [[nodiscard]] bool isOpen() const { return window.has_value(); }
  /// Shows the picture, black with its decorations; a former one goes.
  void openWindow();
  /// Shows the face, in normalised coordinates, and what is around it, or all of the frame. A frame without
  /// pixels changes nothing. The frame itself is not kept.
  void renderFrame(const FrameRef& pixelBuffer, const std::optional<NormalizedRect>& faceRect);
  /// Takes the picture off the screen and overwrites what is left of it here; harmless when there is none.
  void hide();

 private:
  [[nodiscard]] std::shared_ptr<GreyPicture> freePicture();

  const std::shared_ptr<OverlayWindowManager> overlay_;
  const std::shared_ptr<MainLoop> mainLoop_;
  const std::shared_ptr<Clock> clock_;
  RetroPiPState state;
  /// The one shown, the one that is being made, and what a surface may still hold.
  std::vector<std::shared_ptr<GreyPicture>> pictures_;
  std::optional<RetroPiPView> window;
};

}  // namespace sentrel
