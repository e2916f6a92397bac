// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QRect>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "linux/overlay/desktop_overlay_backend.h"
#include "linux/overlay/painter/retro_painter.h"
#include "linux/overlay/painter/scene_painter.h"
#include "linux/overlay/wayland/wayland_buffers.h"
#include "linux/overlay/wayland/wayland_desktop.h"
#include "platform/overlay_surface.h"

namespace sentrel {

/// A surface without input: every click reaches what lies beneath. What it shows is stretched to the size
/// that is asked for, so that the buffer's resolution and the surface's size are independent. Changes are
/// seen after a commit. Main thread.
class WaylandSurface {
 public:
  explicit WaylandSurface(const WaylandGlobals& globals);
  /// A subsurface, above the others that the parent has; shows its changes without waiting for the parent.
  WaylandSurface(const WaylandGlobals& globals, wl_surface* parent);
  WaylandSurface(const WaylandSurface&) = delete;
  WaylandSurface& operator=(const WaylandSurface&) = delete;

  [[nodiscard]] wl_surface* get() const { return surface_.get(); }

  /// Of a subsurface: where it lies on its parent, in logical pixels; takes effect with the parent's commit.
  void place(int x, int y);
  /// Shows a buffer that stays with the caller, on `width` by `height` logical pixels.
  void show(wl_buffer* buffer, int width, int height);
  void hide();
  void commit() { wl_surface_commit(surface_.get()); }

 private:
  WaylandObject<wl_surface> surface_;
  WaylandObject<wl_subsurface> place_;
  WaylandObject<wp_viewport> viewport_;
};

/// The onlooker's picture on the surface that covers an output: subsurfaces of that one, because a second
/// surface in the overlay layer may come to lie below it. The dot is a subsurface of its own, so that its
/// blinking repaints nothing; not one of the picture, because not every compositor sees changes of
/// subsurfaces of subsurfaces. Must not outlive the parent. Main thread.
class WaylandRetroLayer {
 public:
  WaylandRetroLayer(WaylandDesktop& desktop, wl_surface* parent);

  /// `output` is the parent's size in logical pixels, with its origin at 0. The place comes with the parent's
  /// next commit. To be called before anything is shown.
  void place(const Rect& output, double scale);
  void show(const GreyPicture* picture);
  void setBlink(BlinkLevel level);

 private:
  void prepare(double scale);
  [[nodiscard]] bool paintDots();

  WaylandDesktop& desktop_;
  WaylandSurface picture_;
  WaylandSurface dot_;
  WaylandBuffers buffers_{0};
  std::optional<RetroPainter> painter_;
  std::array<WaylandObject<wl_buffer>, brightestBlink + 1> dots_;
  Rect dotPlace_;  // logical pixels, on the picture
};

/// All layers on one output: a surface in the overlay layer for stripes and veil, and as its subsurfaces,
/// bottom to top, the tint, the hint, the banner and the onlooker's picture. Nothing is shown before the
/// compositor has told the size. Must not outlive its desktop. Main thread.
class WaylandLayers {
 public:
  /// Shows `content`, which is the caller's, as it is when one of the calls below comes. `onClosed` is called
  /// when the compositor will not show them any more; it may destroy them.
  WaylandLayers(WaylandDesktop& desktop, std::shared_ptr<const WaylandOutput> output,
                const SurfaceContent& content, std::function<void()> onClosed);
  WaylandLayers(const WaylandLayers&) = delete;
  WaylandLayers& operator=(const WaylandLayers&) = delete;

  void tintChanged();
  void pictureChanged(const std::optional<RetroPicture>& former);
  /// Paints what has changed; also to be called after a change of the output.
  void paint();
  [[nodiscard]] bool isShown() const { return width_ > 0 && content_.scene; }
  [[nodiscard]] const WaylandOutput& output() const { return *output_; }

 private:
  /// A finished notice, its memory with the compositor.
  struct NoticeBuffer {
    WaylandObject<wl_buffer> buffer;
    int width = 0;  // logical pixels
    int height = 0;
  };
  /// All that the painted scene depends on.
  struct Painted {
    OverlayScene scene;
    int width = 0;
    int height = 0;
    double scale = 0;
    bool operator==(const Painted&) const = default;
  };

  void listen();
  void configured(std::uint32_t serial, std::uint32_t width, std::uint32_t height);
  void placePicture();
  [[nodiscard]] bool paintScene(const Painted& target);
  void paintNotices(const Painted& target, bool moved);
  void applyTint();
  [[nodiscard]] bool allocate(WaylandSurface& subsurface, NoticeBuffer& buffer, const Notice& notice,
                              double scale);
  [[nodiscard]] double scale() const;

  WaylandDesktop& desktop_;
  const std::shared_ptr<const WaylandOutput> output_;
  const SurfaceContent& content_;
  std::function<void()> onClosed_;
  WaylandSurface base_;
  WaylandBuffers sceneBuffers_;
  WaylandObject<zwlr_layer_surface_v1> layer_;
  WaylandObject<wp_fractional_scale_v1> fractionalScale_;
  WaylandSurface tint_;
  WaylandSurface hint_;
  WaylandSurface banner_;
  NoticeBuffer hintBuffer_;
  NoticeBuffer bannerBuffer_;
  std::unique_ptr<WaylandRetroLayer> retro_;

  bool tintShown_ = false;
  int width_ = 0;  // logical pixels, 0 before they are told
  int height_ = 0;
  double preferredScale_ = 0;  // 0 when not told
  Painted painted_;
  bool bannerShown_ = false;
  Registration memoryRetry_;
};

/// What one output of a Wayland compositor shows, brought to the output of the moment: it follows the output
/// and the compositor as they change, go and come back. Main thread.
class WaylandOverlaySurface final : public DesktopSurface<WaylandDesktop> {
 public:
  using DesktopSurface::DesktopSurface;

  void refresh() override;
  void release() override;

  /// Whether the compositor has what is to be seen.
  [[nodiscard]] bool isShown() const { return layers_ && layers_->isShown(); }

 private:
  // A compositor that closes a surface while its output stays may be asked again, but never in a circle.
  static constexpr std::int64_t firstRetryMs = 250;
  static constexpr std::int64_t longestRetryMs = 8'000;

  void tintChanged() override;
  void pictureChanged(const std::optional<RetroPicture>& former) override;
  void closed();

  std::unique_ptr<WaylandLayers> layers_;
  std::int64_t retryMs_ = firstRetryMs;
  Registration retry_;
};

/// The overlay on a Wayland compositor with a layer shell; its display as in WAYLAND_DISPLAY.
using WaylandOverlayBackend = DesktopOverlayBackend<WaylandDesktop, WaylandOverlaySurface>;

}  // namespace sentrel
