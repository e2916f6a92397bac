// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "platform/overlay_surface.h"
#include "support/main_loop.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

class OverlayContentView;

/// Owns the click-through windows that cover the screens, one a screen, in step with the screens that come
/// and go, and the values that they draw. It decides nothing: the service shows, hides and assigns. Main
/// thread.
class OverlayWindowManager {
 public:
  OverlayWindowManager(std::shared_ptr<OverlayBackend> backend, std::shared_ptr<MainLoop> mainLoop,
                       std::shared_ptr<Clock> clock);
  OverlayWindowManager(const OverlayWindowManager&) = delete;
  OverlayWindowManager& operator=(const OverlayWindowManager&) = delete;
  ~OverlayWindowManager();

  /// The process's manager, over the installed platform.
  static const std::shared_ptr<OverlayWindowManager>& shared();

  // What the windows draw. Kept while hidden; an assignment reaches every window within the next two turns.
  Published<bool> isAlertMode{false};
  Published<float> currentAlpha{0.0F};                   ///< 0..1, of the whole overlay
  Published<std::int64_t> lastDistanceCm{80};            ///< for observers; not drawn
  Published<bool> matrixEnabled{true};                   ///< stripes are drawn
  Published<std::int64_t> matrixDistanceCm{80};          ///< distance that the stripes are made for
  Published<std::uint64_t> matrixColorArgb{0xFF000000};  ///< low 32 bits 0xAARRGGBB
  Published<float> matrixStripeAlpha{0.42F};             ///< 0..1, of a stripe's colour
  Published<bool> reducedMotion{false};                  ///< nothing flashes or blinks
  Published<std::string> shortcutKeys;                   ///< that the hint names beside its eye, if any
  Published<bool> coverAllScreens{true};                 ///< not only the main one
  Published<std::optional<RetroPicture>> picture;        ///< the onlooker's, shown on the main screen
  Published<Cover> coverLook;                            ///< of the cover

  /// Between `show` and the next `hide`.
  [[nodiscard]] const Published<bool>& isShowing() const { return isShowing_; }

  /// Covers the screens and follows their coming and going; nothing when already showing.
  void show();
  /// Uncovers every screen. The values above stay.
  void hide();

  /// Between `hideScreens` and the next `revealScreens`.
  [[nodiscard]] const Published<bool>& isCovered() const { return isCovered_; }
  /// Makes every screen opaque, also those that come later, whether showing or not; what is to be shown waits
  /// below it.
  void hideScreens();
  void revealScreens();
  /// Whether there is a screen that can be covered.
  [[nodiscard]] bool hasScreens() const { return !backend_->screens().empty(); }
  /// A click on the button of a cover, in a turn of its own.
  Signal<> revealAsked;

  /// As that of OverlayBackend.
  void setHeld(bool held) { backend_->setHeld(held); }

 private:
  [[nodiscard]] std::vector<Screen> wantedScreens() const;
  void updateWindows();

  const std::shared_ptr<OverlayBackend> backend_;
  const std::shared_ptr<MainLoop> mainLoop_;
  const std::shared_ptr<Clock> clock_;
  Published<bool> isShowing_{false};
  Published<bool> isCovered_{false};
  std::map<std::uint64_t, std::shared_ptr<OverlayContentView>> overlayWindows;  // by the screen's id
  Registration screensRegistration_;
  Registration coverRegistration_;
};

}  // namespace sentrel
