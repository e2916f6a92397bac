// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "linux/overlay/painter/notice_painter.h"
#include "linux/overlay/wayland/wayland_desktop.h"
#include "linux/overlay/wayland/wayland_memory.h"
#include "linux/overlay/wayland/wayland_pictures.h"
#include "linux/overlay/wayland/wayland_retro_part.h"
#include "linux/overlay/wayland/wayland_surface.h"
#include "platform/overlay_surface.h"

namespace sentrel {

/// Everything that covers one output: a surface in the overlay layer for stripes and veil, and as parts of
/// it, bottom to top, the tint, the hint and the banner. Nothing is shown before the compositor has told the
/// size. Must not outlive its desktop. Main thread.
class WaylandLayerWindows {
 public:
  /// `onClosed` is called when the compositor will not show them any more; it may destroy them.
  WaylandLayerWindows(WaylandDesktop& desktop, std::shared_ptr<const WaylandOutput> output,
                      std::function<void()> onClosed);
  ~WaylandLayerWindows();
  WaylandLayerWindows(const WaylandLayerWindows&) = delete;
  WaylandLayerWindows& operator=(const WaylandLayerWindows&) = delete;

  /// Shows this, now and on the output as it will be.
  void show(const OverlayScene& scene, TintLevel tint);
  void setTint(TintLevel level);
  /// Paints anew what a change of the output calls for.
  void refresh();
  [[nodiscard]] bool isShown() const { return width_ > 0 && scene_; }

  /// Shows the picture-in-picture, too, or no longer (null). The content must outlive that.
  void bearPicture(const WaylandRetroContent* content);

 private:
  /// A finished picture, its memory with the compositor.
  struct NoticeBuffer {
    WaylandObject<wl_buffer> buffer;
    int width = 0;  // logical pixels
    int height = 0;
  };
  /// All that the picture of the scene depends on.
  struct Content {
    OverlayScene scene;
    int width = 0;
    int height = 0;
    double scale = 0;
    bool operator==(const Content&) const = default;
  };

  void listen();
  void configured(std::uint32_t serial, std::uint32_t width, std::uint32_t height);
  void paint();
  void paintRetro();
  [[nodiscard]] bool paintScene(const Content& content);
  void paintNotices(const Content& content);
  void applyTint();
  [[nodiscard]] bool allocate(WaylandSurface& part, NoticeBuffer& notice, const Notice& picture,
                              double scale);
  [[nodiscard]] double scale() const;

  WaylandDesktop& desktop_;
  const std::shared_ptr<const WaylandOutput> output_;
  std::function<void()> onClosed_;
  WaylandSurface base_;
  WaylandPictures scenePictures_;
  WaylandObject<zwlr_layer_surface_v1> layer_;
  WaylandObject<wp_fractional_scale_v1> fractionalScale_;
  WaylandSurface tint_;
  WaylandSurface hint_;
  WaylandSurface banner_;
  NoticeBuffer hintPicture_;
  NoticeBuffer bannerPicture_;
  const WaylandRetroContent* retroContent_ = nullptr;
  std::unique_ptr<WaylandRetroPart> retro_;

  std::optional<OverlayScene> scene_;
  TintLevel tintLevel_ = 0;
  bool tintShown_ = false;
  int width_ = 0;  // logical pixels, 0 before they are told
  int height_ = 0;
  double preferredScale_ = 0;  // 0 when not told
  Content painted_;
  bool bannerShown_ = false;
  Registration memoryRetry_;
};

}  // namespace sentrel
