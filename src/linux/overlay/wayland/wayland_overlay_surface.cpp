// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/wayland/wayland_overlay_surface.h"

#include <QImage>
#include <QPainter>
#include <QRectF>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

#include "linux/overlay/painter/cover_painter.h"
#include "linux/overlay/painter/retro_painter.h"
#include "linux/overlay/painter/scene_painter.h"

namespace sentrel {

namespace {

constexpr std::uint32_t everyEdge = ZWLR_LAYER_SURFACE_V1_ANCHOR_TOP | ZWLR_LAYER_SURFACE_V1_ANCHOR_BOTTOM |
                                    ZWLR_LAYER_SURFACE_V1_ANCHOR_LEFT | ZWLR_LAYER_SURFACE_V1_ANCHOR_RIGHT;
constexpr std::uint32_t topRight = ZWLR_LAYER_SURFACE_V1_ANCHOR_TOP | ZWLR_LAYER_SURFACE_V1_ANCHOR_RIGHT;
constexpr std::int32_t belowAndAbovePanels = -1;
constexpr std::int32_t besidePanels = 0;
// As many pixels as five 4K screens have: what asks for more does not mean it.
constexpr double mostPixels = 42e6;
// From here on, above WQHD, making a picture anew takes longer than a frame of the screen; below, 8 MiB and
// more are not worth the time.
constexpr std::size_t leastKeptPixels = 4'000'000;
constexpr std::uint32_t greatestSide = 32767;
constexpr double fractionalScaleUnit = 120;
constexpr std::int64_t memoryRetryMs = 500;

int device(int logical, double scale) {
  return std::max(1, static_cast<int>(std::lround(logical * scale)));
}

std::size_t count(int columns, int rows) {
  return static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows);
}

/// A surface without input, but where it takes clicks: every other click reaches what lies beneath. What it
/// shows is stretched to the size that is asked for, so that the buffer's resolution and the surface's size
/// are independent.
class WaylandSurface {
 public:
  explicit WaylandSurface(const WaylandGlobals& globals)
      : surface_(wl_compositor_create_surface(globals.compositor.get())),
        viewport_(wp_viewporter_get_viewport(globals.viewporter.get(), get())) {
    takeInput(globals, {});
  }
  /// A subsurface, above the others that the parent has; shows its changes without waiting for the parent.
  WaylandSurface(const WaylandGlobals& globals, wl_surface* parent) : WaylandSurface(globals) {
    place_.reset(wl_subcompositor_get_subsurface(globals.subcompositor.get(), get(), parent));
    wl_subsurface_set_desync(place_.get());
  }

  [[nodiscard]] wl_surface* get() const { return surface_.get(); }

  /// Takes the pointer here, in logical pixels of the surface, and nowhere else; with the next content.
  void takeInput(const WaylandGlobals& globals, const Rect& area) {
    const WaylandObject<wl_region> region(wl_compositor_create_region(globals.compositor.get()));
    wl_region_add(region.get(), area.x, area.y, area.width, area.height);
    wl_surface_set_input_region(get(), region.get());
  }
  /// Of a subsurface: where it lies on its parent, in logical pixels; takes effect with the parent's commit.
  void place(int x, int y) { wl_subsurface_set_position(place_.get(), x, y); }
  /// Shows a buffer that stays with the caller, on `width` by `height` logical pixels.
  void show(wl_buffer* buffer, int width, int height) {
    wl_surface_attach(get(), buffer, 0, 0);
    // In logical pixels and no more than there are: what is stretched a thousandfold overflows elsewhere.
    wl_surface_damage(get(), 0, 0, width, height);
    wp_viewport_set_destination(viewport_.get(), width, height);
    commit();
  }
  void hide() {
    wl_surface_attach(get(), nullptr, 0, 0);
    commit();
  }
  void commit() { wl_surface_commit(get()); }

 private:
  WaylandObject<wl_surface> surface_;
  WaylandObject<wl_subsurface> place_;
  WaylandObject<wp_viewport> viewport_;
};

/// Puts the surface into the overlay layer, at these edges, and asks for its size, which is as large as can
/// be where `side` is 0. Its subsurfaces may be made only after that request: sway does not see changes of
/// those that are older.
zwlr_layer_surface_v1* enterLayer(const WaylandGlobals& globals, const WaylandOutput& output,
                                  WaylandSurface& surface, std::uint32_t edges, std::int32_t zone,
                                  std::uint32_t side) {
  auto* layer = zwlr_layer_shell_v1_get_layer_surface(globals.layerShell.get(), surface.get(), output.get(),
                                                      ZWLR_LAYER_SHELL_V1_LAYER_OVERLAY, "sentrel");
  zwlr_layer_surface_v1_set_size(layer, side, side);
  zwlr_layer_surface_v1_set_anchor(layer, edges);
  zwlr_layer_surface_v1_set_exclusive_zone(layer, zone);
  zwlr_layer_surface_v1_set_keyboard_interactivity(layer, 0);
  surface.commit();
  return layer;
}

/// The hint: a surface of its own in the overlay layer, because the compositor alone knows the corner that
/// panels leave free.
class WaylandHintLayer {
 public:
  WaylandHintLayer(const WaylandGlobals& globals, const WaylandOutput& output)
      : surface_(globals), layer_(enterLayer(globals, output, surface_, topRight, besidePanels, 1)) {
    static constexpr zwlr_layer_surface_v1_listener listener{
        .configure =
            [](void* self, zwlr_layer_surface_v1* layer, std::uint32_t serial, std::uint32_t, std::uint32_t) {
              zwlr_layer_surface_v1_ack_configure(layer, serial);
              auto& hint = *static_cast<WaylandHintLayer*>(self);
              if (!std::exchange(hint.isConfigured_, true)) hint.update();
            },
        .closed = [](void*, zwlr_layer_surface_v1*) {},  // as is the one for stripes and veil, which is heard
    };
    zwlr_layer_surface_v1_add_listener(layer_.get(), &listener, this);
  }
  WaylandHintLayer(const WaylandHintLayer&) = delete;
  WaylandHintLayer& operator=(const WaylandHintLayer&) = delete;
  ~WaylandHintLayer() = default;

  /// Shows a buffer that stays with the caller, on `width` by `height` logical pixels.
  void show(wl_buffer* buffer, int width, int height) {
    buffer_ = buffer;
    width_ = width;
    height_ = height;
    if (isConfigured_) update();
  }

 private:
  void update() {
    if (buffer_ == nullptr) return;
    zwlr_layer_surface_v1_set_size(layer_.get(), static_cast<std::uint32_t>(width_),
                                   static_cast<std::uint32_t>(height_));
    surface_.show(buffer_, width_, height_);
  }

  WaylandSurface surface_;
  WaylandObject<zwlr_layer_surface_v1> layer_;
  wl_buffer* buffer_ = nullptr;
  int width_ = 0;  // logical pixels
  int height_ = 0;
  bool isConfigured_ = false;
};

/// The onlooker's picture on the surface that covers an output: subsurfaces of that one, because a second
/// surface in the overlay layer may come to lie below it. The dot is a subsurface of its own, so that its
/// blinking repaints nothing; not one of the picture, because not every compositor sees changes of
/// subsurfaces of subsurfaces. Must not outlive the parent.
class WaylandRetroLayer {
 public:
  WaylandRetroLayer(WaylandDesktop& desktop, wl_surface* parent)
      : desktop_(desktop), picture_(desktop.globals(), parent), dot_(desktop.globals(), parent) {}

  /// `output` is the parent's size in logical pixels, with its origin at 0. The place comes with the parent's
  /// next commit. To be called before anything is shown.
  void place(const Rect& output, double scale) {
    if (!painter_ || painter_->scale() != scale) prepare(scale);
    const Rect place = placeRetro(output, 1);
    picture_.place(place.x, place.y);
    dot_.place(place.x + dotPlace_.x, place.y + dotPlace_.y);
  }

  void show(const GreyPicture* picture) {
    const int width = painter_->width();
    const int height = painter_->height();
    WaylandBuffer* next = buffers_.idle(width, height);
    if (next == nullptr) {
      auto memory = WaylandMemory::allocate(desktop_.globals().sharedMemory.get(), count(width, height));
      if (!memory) return;  // the former picture stays
      next = &buffers_.add(std::move(memory), width, height);
    }
    painter_->paint(picture, next->memory->pixels());
    const Rect size = placeRetro({}, 1);
    picture_.show(next->buffer.get(), size.width, size.height);
    next->shown = true;
  }

  void setBlink(BlinkLevel level) {
    const auto& dot = dots_[static_cast<std::size_t>(std::clamp(level, 0, brightestBlink))];
    if (!dot) return;
    dot_.show(dot.get(), dotPlace_.width, dotPlace_.height);
  }

 private:
  void prepare(double scale) {
    painter_.emplace(scale);
    const QRect& dot = painter_->dotPlace();
    // The whole logical pixels around it.
    const auto floor = [scale](int device) { return static_cast<int>(std::floor(device / scale)); };
    const auto ceil = [scale](int device) { return static_cast<int>(std::ceil(device / scale)); };
    dotPlace_ = {floor(dot.left()), floor(dot.top()), ceil(dot.right() + 1) - floor(dot.left()),
                 ceil(dot.bottom() + 1) - floor(dot.top())};
    if (!paintDots()) dots_ = {};
  }

  /// All levels at once: from then on a change is three requests. False when there is no memory.
  [[nodiscard]] bool paintDots() {
    const double scale = painter_->scale();
    const QRect& dot = painter_->dotPlace();
    const int width = std::max(dot.width(), static_cast<int>(std::lround(dotPlace_.width * scale)));
    const int height = std::max(dot.height(), static_cast<int>(std::lround(dotPlace_.height * scale)));
    const QPoint offset(dot.x() - static_cast<int>(std::lround(dotPlace_.x * scale)),
                        dot.y() - static_cast<int>(std::lround(dotPlace_.y * scale)));
    const std::size_t pixels = count(width, height);
    const auto memory = WaylandMemory::allocate(desktop_.globals().sharedMemory.get(), pixels * dots_.size());
    if (!memory) return false;
    for (std::size_t level = 0; level < dots_.size(); ++level) {
      auto* first = reinterpret_cast<uchar*>(memory->pixels().subspan(level * pixels).data());
      QImage image(first, width, height, QImage::Format_ARGB32_Premultiplied);
      QPainter(&image).drawImage(offset, painter_->dot(static_cast<BlinkLevel>(level)));
      dots_[level] = memory->makeBuffer(level * pixels, width, height);
    }
    return true;
  }

  WaylandDesktop& desktop_;
  WaylandSurface picture_;
  WaylandSurface dot_;
  WaylandBuffers buffers_{0};
  std::optional<RetroPainter> painter_;
  std::array<WaylandObject<wl_buffer>, brightestBlink + 1> dots_;
  Rect dotPlace_;  // logical pixels, on the picture
};

}  // namespace

/// All layers on one output: two surfaces in the overlay layer, one for stripes and veil and one above it for
/// the hint, and as subsurfaces of the first, bottom to top, the tint, the banner, the panel of the cover and
/// the onlooker's picture, of which the last two are never there together. Nothing is shown before the
/// compositor has told the size. Must not outlive its desktop. Main thread.
class WaylandOverlaySurface::Layers {
 public:
  /// Shows `content`, which is the caller's, as it is when one of the calls below comes. `onClosed` is called
  /// when the compositor will not show them any more; it may destroy them.
  /// `onClick` is called when the cover's button was clicked.
  Layers(WaylandDesktop& desktop, std::shared_ptr<const WaylandOutput> output, const SurfaceContent& content,
         std::function<void()> onClosed, std::function<void()> onClick)
      : desktop_(desktop),
        output_(std::move(output)),
        content_(content),
        onClosed_(std::move(onClosed)),
        base_(desktop.globals()),
        sceneBuffers_(leastKeptPixels),
        hint_(desktop.stacksNewestLowest() ? newHint() : nullptr),
        layer_(enterLayer(desktop.globals(), *output_, base_, everyEdge, belowAndAbovePanels, 0)),
        tint_(desktop.globals(), base_.get()),
        banner_(desktop.globals(), base_.get()),
        coverPanel_(desktop.globals(), base_.get()) {
    if (!hint_) hint_ = newHint();
    clicks_ = desktop.clicks().clicked.connect(
        [this, clicked = std::move(onClick)](wl_surface* surface, double x, double y) {
          if (surface == coverPanel_.get() && coverButton_.contains(QPointF(x, y))) clicked();
        });
    listen();
  }
  ~Layers() = default;
  Layers(const Layers&) = delete;
  Layers& operator=(const Layers&) = delete;

  /// During an alert it stays through the dark moments of the flash. Not every compositor repaints what a
  /// subsurface that goes has covered, so it goes only with a scene that paints everything anew.
  void showTint() {
    if (!isShown() || mustWait()) return;
    if (content_.tint == 0 && !content_.scene->banner) {
      if (!std::exchange(tintShown_, false)) return;
      tint_.hide();
    } else {
      tintShown_ = true;
      tint_.show(desktop_.palette().color(premultipliedTint(content_.tint)), width_, height_);
    }
  }

  void pictureChanged(const std::optional<RetroPicture>& former) {
    if (!isShown() || mustWait()) return;
    const auto& picture = content_.picture;
    if (!retro_ || !picture) {
      placePicture();
      base_.commit();
    } else {
      if (former->picture != picture->picture) retro_->show(picture->picture.get());
      if (former->blink != picture->blink) retro_->setBlink(picture->blink);
    }
  }

  /// Paints what has changed; also to be called after a change of the output.
  void paint() {
    if (!isShown() || desktop_.isHeld() || mustWait()) return;
    if (std::exchange(missed_, false)) painted_ = {};
    const Painted target{*content_.scene, width_, height_, scale()};
    if (target == painted_) return;
    const bool moved =
        target.width != painted_.width || target.height != painted_.height || target.scale != painted_.scale;
    if (moved) placePicture();
    paintNotices(target, moved);
    const bool panelShown = paintCoverPanel(target, moved);
    showTint();
    // Last, because the subsurfaces' places come with its commit.
    if (paintScene(target) && panelShown) {
      painted_ = target;
      memoryRetry_.reset();
    } else {
      base_.commit();
      memoryRetry_ = desktop_.loop().after(memoryRetryMs, [this] { paint(); });
    }
  }

  [[nodiscard]] bool isShown() const { return width_ > 0 && content_.scene; }
  [[nodiscard]] const WaylandOutput& output() const { return *output_; }

 private:
  /// What is shown while a compositor hangs must not pile up: the connection would break, and the screen be
  /// bare. It is painted anew when the compositor takes it.
  [[nodiscard]] bool mustWait() {
    missed_ = missed_ || desktop_.isFull();
    return desktop_.isFull();
  }

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

  [[nodiscard]] std::unique_ptr<WaylandHintLayer> newHint() const {
    return std::make_unique<WaylandHintLayer>(desktop_.globals(), *output_);
  }

  void listen() {
    static constexpr zwlr_layer_surface_v1_listener layerListener{
        .configure =
            [](void* self, zwlr_layer_surface_v1*, std::uint32_t serial, std::uint32_t width,
               std::uint32_t height) { static_cast<Layers*>(self)->configured(serial, width, height); },
        .closed =
            [](void* self, zwlr_layer_surface_v1*) {
              const auto closed = static_cast<Layers*>(self)->onClosed_;
              closed();
            },
    };
    zwlr_layer_surface_v1_add_listener(layer_.get(), &layerListener, this);
    if (!desktop_.globals().fractionalScales) return;
    static constexpr wp_fractional_scale_v1_listener scaleListener{
        .preferred_scale =
            [](void* self, wp_fractional_scale_v1*, std::uint32_t scale) {
              auto& layers = *static_cast<Layers*>(self);
              layers.preferredScale_ = scale / fractionalScaleUnit;
              layers.paint();
            },
    };
    fractionalScale_.reset(wp_fractional_scale_manager_v1_get_fractional_scale(
        desktop_.globals().fractionalScales.get(), base_.get()));
    wp_fractional_scale_v1_add_listener(fractionalScale_.get(), &scaleListener, this);
  }

  void configured(std::uint32_t serial, std::uint32_t width, std::uint32_t height) {
    zwlr_layer_surface_v1_ack_configure(layer_.get(), serial);
    // An output without a size shows nothing; the next configuration may be sane.
    if (width == 0 || height == 0) return;
    width_ = static_cast<int>(std::min(width, greatestSide));
    height_ = static_cast<int>(std::min(height, greatestSide));
    paint();
  }

  void placePicture() {
    if (!content_.picture) return retro_.reset();
    if (!retro_) retro_ = std::make_unique<WaylandRetroLayer>(desktop_, base_.get());
    retro_->place({0, 0, width_, height_}, scale());
    retro_->show(content_.picture->picture.get());
    retro_->setBlink(content_.picture->blink);
  }

  /// False when there was no memory for it: what was shown before stays.
  [[nodiscard]] bool paintScene(const Painted& target) {
    const auto& [scene, width, height, scale] = target;
    if (scene.cover) {
      base_.show(desktop_.palette().color(coverGround(*scene.cover).rgba()), width, height);
      return true;
    }
    if (!scene.stripes || !ScenePainter::covers(scene)) {
      std::uint32_t pixel = 0;
      ScenePainter(scene, 1, 1, scale).paint(1, 1, {&pixel, 1});
      base_.show(desktop_.palette().color(pixel), width, height);
      return true;
    }
    const int columns = device(width, scale);
    const int lines = device(height, scale);
    const ScenePainter painter(scene, columns, lines, scale);
    std::vector<iovec> rows;
    rows.reserve(static_cast<std::size_t>(lines));
    for (int y = 0; y < lines; ++y) {
      const auto row = painter.row(y, columns);
      rows.push_back({const_cast<std::uint32_t*>(row.data()), row.size_bytes()});  // it is older than const
    }
    WaylandBuffer* next = sceneBuffers_.idle(columns, lines);
    if (next != nullptr) {
      if (!next->memory->overwrite(rows)) return false;
    } else {
      auto memory = WaylandMemory::copyOf(desktop_.globals().sharedMemory.get(), rows);
      if (!memory) return false;
      next = &sceneBuffers_.add(std::move(memory), columns, lines);
    }
    base_.show(next->buffer.get(), width, height);
    next->shown = true;
    return true;
  }

  /// The banner ahead of its use: when an alert comes, it has only to be shown.
  void paintNotices(const Painted& target, bool moved) {
    const auto& [scene, width, height, scale] = target;
    const Rect screen{0, 0, device(width, scale), device(height, scale)};
    if (moved || !bannerBuffer_.buffer) {
      bannerShown_ = false;
      const Notice notice = paintBanner(screen, scale, BannerStyle::translucent);
      if (!allocate(bannerBuffer_, notice.image, scale)) bannerBuffer_.buffer.reset();
      place(banner_, notice, scale);
    }
    if (scene.cover) {
      // One that has been hidden would have to enter its layer anew.
      hint_->show(desktop_.palette().color(0), 1, 1);
      hintBuffer_ = {};
    } else if (moved || !hintBuffer_.buffer || scene.shortcutInHint != painted_.scene.shortcutInHint) {
      if (allocate(hintBuffer_, paintHint(screen, scale, scene.shortcutInHint).image, scale)) {
        hint_->show(hintBuffer_.buffer.get(), hintBuffer_.width, hintBuffer_.height);
      }
    }
    const bool wanted = scene.banner && bannerBuffer_.buffer;
    if (wanted == bannerShown_) return;
    bannerShown_ = wanted;
    if (wanted) {
      banner_.show(bannerBuffer_.buffer.get(), bannerBuffer_.width, bannerBuffer_.height);
    } else {
      banner_.hide();
    }
  }

  /// What stands on the ground of the cover. False when there is no memory: the ground alone hides the
  /// screen.
  [[nodiscard]] bool paintCoverPanel(const Painted& target, bool moved) {
    const auto& [scene, width, height, scale] = target;
    if (!scene.cover) {
      if (coverBuffer_.buffer) coverPanel_.hide();
      coverBuffer_ = {};
      return true;
    }
    if (!moved && coverBuffer_.buffer && scene.cover == painted_.scene.cover) return true;
    const auto [notice, button] =
        paintCover({0, 0, device(width, scale), device(height, scale)}, scale, *scene.cover);
    if (!allocate(coverBuffer_, notice.image, scale)) return false;
    place(coverPanel_, notice, scale);
    coverButton_ = QRectF(button.x / scale, button.y / scale, button.width / scale, button.height / scale);
    const QRect taken = coverButton_.toAlignedRect();
    coverPanel_.takeInput(desktop_.globals(), {taken.x(), taken.y(), taken.width(), taken.height()});
    coverPanel_.show(coverBuffer_.buffer.get(), coverBuffer_.width, coverBuffer_.height);
    return true;
  }

  /// Gives the picture of a notice to the compositor. False when there is no memory.
  [[nodiscard]] bool allocate(NoticeBuffer& buffer, const QImage& image, double scale) {
    // Whole logical pixels, so that one pixel of the picture is one of the screen.
    const int width = static_cast<int>(std::ceil(image.width() / scale));
    const int height = static_cast<int>(std::ceil(image.height() / scale));
    const int columns = std::max(device(width, scale), image.width());
    const int rows = std::max(device(height, scale), image.height());
    const auto memory = WaylandMemory::allocate(desktop_.globals().sharedMemory.get(), count(columns, rows));
    if (!memory) return false;
    QImage padded(reinterpret_cast<uchar*>(memory->pixels().data()), columns, rows,
                  QImage::Format_ARGB32_Premultiplied);
    QPainter(&padded).drawImage(0, 0, image);
    buffer = {memory->makeBuffer(0, columns, rows), width, height};
    return true;
  }

  static void place(WaylandSurface& subsurface, const Notice& notice, double scale) {
    subsurface.place(static_cast<int>(std::lround(notice.at.x() / scale)),
                     static_cast<int>(std::lround(notice.at.y() / scale)));
  }

  [[nodiscard]] double scale() const {
    const double wanted = preferredScale_ > 0 ? preferredScale_ : deviceScale(output_->state());
    const double pixels = static_cast<double>(width_) * height_ * wanted * wanted;
    return pixels > mostPixels ? wanted * std::sqrt(mostPixels / pixels) : wanted;
  }

  WaylandDesktop& desktop_;
  const std::shared_ptr<const WaylandOutput> output_;
  const SurfaceContent& content_;
  std::function<void()> onClosed_;
  WaylandSurface base_;
  WaylandBuffers sceneBuffers_;
  std::unique_ptr<WaylandHintLayer> hint_;
  WaylandObject<zwlr_layer_surface_v1> layer_;
  WaylandObject<wp_fractional_scale_v1> fractionalScale_;
  WaylandSurface tint_;
  WaylandSurface banner_;
  WaylandSurface coverPanel_;
  NoticeBuffer hintBuffer_;
  NoticeBuffer bannerBuffer_;
  NoticeBuffer coverBuffer_;
  QRectF coverButton_;  // on its panel, in logical pixels
  Registration clicks_;
  std::unique_ptr<WaylandRetroLayer> retro_;

  bool tintShown_ = false;
  bool missed_ = false;  // something was to be shown while the compositor took nothing
  int width_ = 0;        // logical pixels, 0 before they are told
  int height_ = 0;
  double preferredScale_ = 0;  // 0 when not told
  Painted painted_;
  bool bannerShown_ = false;
  Registration memoryRetry_;
};

WaylandOverlaySurface::WaylandOverlaySurface(std::shared_ptr<List> list, std::uint64_t screenId)
    : DesktopSurface(std::move(list), screenId) {}

WaylandOverlaySurface::~WaylandOverlaySurface() = default;

bool WaylandOverlaySurface::isShown() const {
  return layers_ && layers_->isShown();
}

void WaylandOverlaySurface::tintChanged() {
  if (layers_) layers_->showTint();
}

void WaylandOverlaySurface::pictureChanged(const std::optional<RetroPicture>& former) {
  if (layers_) layers_->pictureChanged(former);
}

void WaylandOverlaySurface::refresh() {
  const auto output = desktop() == nullptr ? nullptr : desktop()->output(screenId());
  if (output == nullptr || !content().scene) return release();
  // Another global of the same name is the same screen, plugged in anew.
  if (layers_ && layers_->output().globalName() != output->globalName()) release();
  if (layers_) return layers_->paint();
  if (retry_) return;
  layers_ = std::make_unique<Layers>(
      *desktop(), output, content(), [this] { closed(); }, [this] { clicked.emit(); });
}

void WaylandOverlaySurface::release() {
  retry_.reset();
  layers_.reset();
}

void WaylandOverlaySurface::closed() {
  if (layers_->isShown()) retryMs_ = firstRetryMs;
  layers_.reset();
  retry_ = desktop()->loop().after(retryMs_, [this] {
    retry_.reset();
    update();
  });
  retryMs_ = std::min(2 * retryMs_, longestRetryMs);
}

}  // namespace sentrel
