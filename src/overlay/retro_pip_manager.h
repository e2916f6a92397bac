// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <memory>
#include <optional>

#include "overlay/retro_pip_state.h"
#include "overlay/retro_pip_view.h"
#include "platform/overlay_surface.h"
#include "support/frame.h"
#include "support/geometry.h"
#include "support/main_loop.h"
#include "support/published.h"

namespace sentrel {

/// Owns the picture-in-picture of the onlooker and turns camera frames into what it shows. The service opens
/// it with the first frame of an alert and hides it at the alert's end. Main thread.
class RetroPiPManager {
 public:
  RetroPiPManager(std::shared_ptr<OverlayBackend> backend, std::shared_ptr<MainLoop> mainLoop,
                  std::shared_ptr<Clock> clock);
  RetroPiPManager(const RetroPiPManager&) = delete;
  RetroPiPManager& operator=(const RetroPiPManager&) = delete;
  ~RetroPiPManager();

  /// The process's manager, over the installed platform.
  static const std::shared_ptr<RetroPiPManager>& shared();

  /// The person asked the desktop for less movement: the dot does not blink.
  Published<bool> reducedMotion{false};

  [[nodiscard]] bool isOpen() const { return window.has_value(); }
  /// Shows the picture, black with its decorations; a former one goes.
  void openWindow();
  /// Shows the part of the frame around the face, normalised, or all of it. A frame without pixels changes
  /// nothing. The frame itself is not kept.
  void renderFrame(const FrameRef& pixelBuffer, const std::optional<NormalizedRect>& faceRect);
  /// Takes the picture off the screen and overwrites what is left of it here; harmless when there is none.
  void hide();

 private:
  [[nodiscard]] std::shared_ptr<GreyPicture> freePicture();

  const std::shared_ptr<OverlayBackend> backend_;
  const std::shared_ptr<MainLoop> mainLoop_;
  const std::shared_ptr<Clock> clock_;
  RetroPiPState state;
  /// The one shown, the one that is being made, and one that a surface may still hold.
  std::array<std::shared_ptr<GreyPicture>, 3> pictures_;
  std::optional<RetroPiPView> window;
};

}  // namespace sentrel
