// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/frame.h"
#include "support/geometry.h"
#include "support/published.h"

namespace sentrel {

/// One monitor. `id` stays the same as long as the monitor stays, whatever its mode; `frame` is in logical
/// pixels.
struct Screen {
  std::uint64_t id = 0;
  std::string name;
  Rect frame;
  bool isMain = false;
  double scale = 1;  ///< device pixels to a logical one
  bool operator==(const Screen&) const = default;
};

/// Diagonal stripes at 45 degrees, centred on the screen, as wide as the gaps between them.
struct StripePattern {
  double period = 8;       ///< logical pixels, measured across the stripes
  std::uint32_t rgb = 0;   ///< 0x00RRGGBB
  double stripeAlpha = 0;  ///< 0..1
  double layerAlpha = 0;   ///< 0..1, opacity of the whole layer
  bool operator==(const StripePattern&) const = default;
};

/// What hides a screen because the person asked for it: opaque, with a button that takes clicks.
struct Cover {
  bool shortcut = false;      ///< it says that the shortcut takes it off
  bool highContrast = false;  ///< as the person wants the colours
  double textScale = 1;       ///< size of text, 1 is the usual one
  bool operator==(const Cover&) const = default;
};

/// What one screen's overlay shows besides its tint, bottom to top.
struct OverlayScene {
  std::optional<StripePattern> stripes;
  double veilAlpha = 0;          ///< black over everything, 0..1
  bool banner = false;           ///< the alert banner
  std::string shortcutInHint{};  ///< keys that the permanent hint shows beside its eye; none where empty
  /// Hides the screen and everything else of the scene; tint and picture must be off.
  std::optional<Cover> cover{};
  bool operator==(const OverlayScene&) const = default;
};

/// The red tint's opacity in steps of 1/255. Steps, because the flash must repaint nothing when a step
/// repeats.
using TintLevel = int;
inline constexpr TintLevel strongestTint = 26;  // of the alert: 0.105 of full opacity

/// A picture of brightness: rows from top to bottom without gaps, 0 black to 255 white.
struct GreyPicture {
  int width = 0;
  int height = 0;
  FrameMemory<std::uint8_t> levels;
};

/// How bright the blinking dot of the onlooker's picture is, in steps.
using BlinkLevel = int;
inline constexpr BlinkLevel brightestBlink = 16;

/// The onlooker's picture as an old green monitor shows it: 256 x 192 logical pixels, opaque, 20 from the
/// right and 80 from the lower edge of the screen.
struct RetroPicture {
  /// Fitted in, its proportions kept; null shows black. It must not change while it is shown.
  std::shared_ptr<const GreyPicture> picture;
  BlinkLevel blink = 0;  ///< 0 (nothing) to `brightestBlink`
};

/// A surface above everything on one screen, with layers, bottom to top: stripes and veil, tint, hint,
/// banner, picture, cover. Clicks go through all of it but the cover's button. It fills its screen by itself,
/// whatever happens to the screen's scale, rotation or size. Destroying it takes it off the screen. Main
/// thread.
class OverlaySurface {
 public:
  virtual ~OverlaySurface() = default;
  /// Stripes, veil, hint and banner; with the first scene the surface begins to be shown.
  virtual void present(const OverlayScene& scene) = 0;
  /// 0 shows nothing. Costs a fraction of a `present`.
  virtual void setTint(TintLevel level) = 0;
  /// None takes it off. Where only the blinking has changed, this costs a fraction of a new picture.
  virtual void setPicture(const std::optional<RetroPicture>& picture) = 0;

  /// The cover's button was clicked. Observers must not destroy the surface.
  Signal<> clicked;
};

/// The screens of one windowing system and the surfaces above them. Main thread.
class OverlayBackend {
 public:
  virtual ~OverlayBackend() = default;

  /// The name of the windowing system, as people know it; empty where nothing can be covered.
  [[nodiscard]] virtual std::string system() const = 0;
  /// In the system's order, the main screen marked.
  [[nodiscard]] virtual std::vector<Screen> screens() const = 0;
  /// Never null; for a screen that has just gone the surface shows nothing.
  [[nodiscard]] virtual std::unique_ptr<OverlaySurface> createSurface(const Screen& screen) = 0;
  /// What this desktop cannot do, as a text key for the person, or empty. Changes are announced by
  /// `limitationChanged`.
  [[nodiscard]] virtual std::string limitation() const = 0;
  /// While held, what is shown stays as it is, and nothing is shown anew or raised: that would lie above a
  /// screen locker. What surfaces are given meanwhile is shown afterwards.
  virtual void setHeld(bool held) = 0;

  Signal<> screensChanged;
  Signal<> limitationChanged;
};

}  // namespace sentrel
