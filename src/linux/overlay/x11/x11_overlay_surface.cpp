// SPDX-License-Identifier: Apache-2.0
#include "linux/overlay/x11/x11_overlay_surface.h"

#include <QBitmap>
#include <QPainter>
#include <QRegion>
#include <algorithm>
#include <cstddef>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

#include "linux/overlay/painter/cover_painter.h"
#include "linux/overlay/painter/retro_painter.h"
#include "linux/overlay/painter/scene_painter.h"
#include "linux/overlay/x11/x11_overlay_window.h"
#include "support/frame.h"

namespace sentrel {

namespace {

using Look = X11OverlayWindow::Look;

// Few enough rows to send, many enough to cover a screen with few copies.
constexpr int mostStripRows = 32;

/// A window that takes new sizes is larger than its picture, and nothing may be seen there.
Look lookOfPicture(const X11Desktop& desktop) {
  const bool translucent = desktop.clickThrough() == ClickThrough::newSizes && desktop.blendsWindows();
  return translucent ? Look::translucent : Look::opaque;
}

/// The window of stripes and veil.
///
/// Each row of the pattern is the one above, moved by one pixel. So the server gets a strip of it, a few rows
/// high and wide enough for every row, and copies that down the window by itself: a full screen costs a few
/// hundred kilobytes, and what has to be drawn again costs nothing here. Where pictures must come in one
/// piece, the strip is first copied down a picture off the screen.
class X11SceneWindow {
 public:
  explicit X11SceneWindow(X11Desktop& desktop)
      : window_(desktop, X11Layer::scene, Look::translucent, "sentrel scene"),
        inOnePiece_(desktop.clickThrough() == ClickThrough::newSizes),
        graphics_(xcb_generate_id(window_.connection())) {
    const std::uint32_t exposures = 0;  // no event for every copy
    xcb_create_gc(window_.connection(), graphics_, window_.id(), XCB_GC_GRAPHICS_EXPOSURES, &exposures);
    if (inOnePiece_) return;  // such a server never throws anything away
    window_.selectExposures();
    // The server asks for content whenever it has thrown it away. The whole window is drawn at once.
    exposures_ = desktop.exposed().connect([this](xcb_window_t window) {
      if (window == window_.id() && window_.isMapped()) copyStrip(window_.id());
    });
  }

  ~X11SceneWindow() {
    dropStrip();
    xcb_free_gc(window_.connection(), graphics_);
  }
  X11SceneWindow(const X11SceneWindow&) = delete;
  X11SceneWindow& operator=(const X11SceneWindow&) = delete;

  /// Shows what covers the screen of this rectangle, or hides the window when nothing does.
  void present(const OverlayScene& scene, const Rect& pixels, double scale) {
    if (!ScenePainter::covers(scene)) {
      window_.setMapped(false);
      dropStrip();
      return;
    }
    const Content content{
        {.stripes = scene.stripes, .veilAlpha = scene.veilAlpha}, pixels.width, pixels.height, scale};
    const bool changed = content != content_ || strip_ == XCB_NONE;
    if (changed) {
      content_ = content;
      uploadStrip();
    }
    if (inOnePiece_) {
      if (changed || pixels != window_.pixels()) showInOnePiece(pixels);
      return;
    }
    window_.place(pixels);
    if (changed || !window_.isMapped()) {
      window_.setMapped(true);
      copyStrip(window_.id());
    }
  }

 private:
  /// All that the strip depends on.
  struct Content {
    OverlayScene scene;
    int width = 0;
    int height = 0;
    double scale = 1;
    bool operator==(const Content&) const = default;
  };

  void uploadStrip() {
    dropStrip();
    const auto& [scene, width, height, scale] = content_;
    stripRows_ = std::min(mostStripRows, height);
    const int columns = width + height - stripRows_;
    std::vector<std::uint32_t> pixels(static_cast<std::size_t>(columns) *
                                      static_cast<std::size_t>(stripRows_));
    ScenePainter(scene, width, height, scale).paint(columns, stripRows_, pixels);
    strip_ = xcb_generate_id(window_.connection());
    xcb_create_pixmap(window_.connection(), window_.visual().depth, strip_, window_.id(),
                      static_cast<std::uint16_t>(columns), static_cast<std::uint16_t>(stripRows_));
    window_.putImage(strip_, {0, 0, columns, stripRows_}, pixels.data());
  }

  void dropStrip() {
    if (strip_ != XCB_NONE) xcb_free_pixmap(window_.connection(), strip_);
    strip_ = XCB_NONE;
  }

  void copyStrip(xcb_drawable_t target) const {
    for (int y = 0; y < content_.height; y += stripRows_) {
      // The last copy overlaps the one before rather than reach below the window.
      const auto row = static_cast<std::int16_t>(std::min(y, content_.height - stripRows_));
      xcb_copy_area(window_.connection(), strip_, target, graphics_, row, 0, 0, row,
                    static_cast<std::uint16_t>(content_.width), static_cast<std::uint16_t>(stripRows_));
    }
  }

  void showInOnePiece(const Rect& pixels) {
    const xcb_pixmap_t picture = window_.createBackground(pixels.width, pixels.height);
    copyStrip(picture);
    window_.setBackgroundPicture(picture);
    window_.place(pixels);
    window_.repaint({0, 0, pixels.width, pixels.height});
    window_.setMapped(true);
    xcb_free_pixmap(window_.connection(), picture);  // the window keeps it
  }

  X11OverlayWindow window_;
  bool inOnePiece_;
  xcb_gcontext_t graphics_;
  Content content_;
  xcb_pixmap_t strip_ = XCB_NONE;
  int stripRows_ = 0;
  Registration exposures_;
};

/// The window of the alert's tint. It flashes by being cleared to a new colour, or, where a picture costs the
/// compositor more than that, by the opacity of the whole window, without any new picture.
class X11TintWindow {
 public:
  explicit X11TintWindow(X11Desktop& desktop)
      : window_(desktop, X11Layer::tint, Look::translucent, "sentrel tint"),
        fades_(desktop.clickThrough() == ClickThrough::newSizes) {
    if (!fades_) return;
    window_.setBackground(premultipliedTint(strongestTint));
    window_.setOpacity(0);
  }

  void show(TintLevel level, const Rect& pixels, bool mapped) {
    window_.place(pixels);
    if (std::exchange(level_, level) != level) {
      if (fades_) {
        window_.setOpacity(std::clamp(static_cast<double>(level) / strongestTint, 0.0, 1.0));
      } else {
        window_.setBackground(premultipliedTint(level));
      }
    }
    window_.setMapped(mapped);
  }

 private:
  X11OverlayWindow window_;
  bool fades_;
  TintLevel level_ = 0;
};

/// The window of a finished picture, banner or hint. The picture lives on the server as the window's
/// background, so that nothing has to be drawn again and no copy is kept here.
class X11NoticeWindow {
 public:
  X11NoticeWindow(X11Desktop& desktop, Look look, std::string_view name)
      : window_(desktop, X11Layer::notice, look, name), look_(look) {}

  /// An opaque window takes the shape of the picture's opaque area.
  void setNotice(const Notice& notice) {
    const auto& [image, at] = notice;
    const Rect whole{0, 0, image.width(), image.height()};
    const xcb_pixmap_t pixmap = window_.createBackground(whole.width, whole.height);
    // 32-bit rows of a QImage have no gaps.
    window_.putImage(pixmap, whole, reinterpret_cast<const std::uint32_t*>(image.constBits()));
    window_.setBackgroundPicture(pixmap);
    xcb_free_pixmap(window_.connection(), pixmap);  // the window keeps it
    if (look_ == Look::opaque) window_.setShape(QRegion(QBitmap::fromImage(image.createAlphaMask())));
    window_.place({at.x(), at.y(), whole.width, whole.height});
    window_.repaint(whole);
  }
  void setShown(bool shown) { window_.setMapped(shown); }

 private:
  X11OverlayWindow window_;
  Look look_;
};

/// The window of the onlooker's picture: opaque where it can be, so that it needs no compositing manager.
class X11RetroWindow {
 public:
  X11RetroWindow(X11Desktop& desktop, const X11Monitor& monitor)
      : window_(desktop, X11Layer::picture, lookOfPicture(desktop), "sentrel picture"),
        painter_(monitor.screen.scale),
        pixels_(static_cast<std::size_t>(painter_.width()) * static_cast<std::size_t>(painter_.height())),
        pixmap_(window_.createBackground(painter_.width(), painter_.height())) {
    window_.place(placeRetro(monitor.pixels, monitor.screen.scale));
  }

  ~X11RetroWindow() { xcb_free_pixmap(window_.connection(), pixmap_); }
  X11RetroWindow(const X11RetroWindow&) = delete;
  X11RetroWindow& operator=(const X11RetroWindow&) = delete;

  [[nodiscard]] xcb_window_t id() const { return window_.id(); }
  /// Paints picture and dot, and shows the window.
  void show(const RetroPicture& picture) {
    painter_.paint(picture.picture.get(), pixels_);
    const Rect whole{0, 0, painter_.width(), painter_.height()};
    window_.putImage(pixmap_, whole, pixels_.data());
    paintDot(picture.blink);
    useAsBackground(whole);
    window_.setMapped(true);
  }

  void setBlink(BlinkLevel level) {
    paintDot(level);
    useAsBackground(dotRect());
  }

 private:
  void paintDot(BlinkLevel level) {
    const auto* below = reinterpret_cast<const uchar*>(pixels_.data());
    QImage patch =
        QImage(below, painter_.width(), painter_.height(), QImage::Format_RGB32).copy(painter_.dotPlace());
    QPainter(&patch).drawImage(0, 0, painter_.dot(level));
    window_.putImage(pixmap_, dotRect(), reinterpret_cast<const std::uint32_t*>(patch.constBits()));
  }

  [[nodiscard]] Rect dotRect() const {
    const QRect& dot = painter_.dotPlace();
    return {dot.x(), dot.y(), dot.width(), dot.height()};
  }

  /// Set anew after every change: a server may have taken a copy.
  void useAsBackground(const Rect& changed) {
    window_.setBackgroundPicture(pixmap_);
    window_.repaint(changed);
  }

  X11OverlayWindow window_;
  RetroPainter painter_;
  FrameMemory<std::uint32_t> pixels_;  // without the dot
  xcb_pixmap_t pixmap_;                // the window's background
};

/// The windows of the cover: its ground, one colour on the whole monitor, and what stands on it, which takes
/// the clicks on its button. Opaque, so that they need no compositing manager. Shown as long as they live.
class X11CoverWindows {
 public:
  X11CoverWindows(X11Desktop& desktop, const X11Monitor& monitor, const Cover& cover,
                  std::function<void()> clicked)
      : cover_(cover),
        clicked_(std::move(clicked)),
        ground_(desktop, X11Layer::cover, Look::opaque, "sentrel cover"),
        panel_(desktop, X11Layer::coverPanel, Look::opaque, "sentrel uncover") {
    ground_.setBackground(coverGround(cover).rgb());
    ground_.place(monitor.pixels);
    ground_.setMapped(true);
    const auto [notice, button] = paintCover(monitor.pixels, monitor.screen.scale, cover);
    const Rect whole{0, 0, notice.image.width(), notice.image.height()};
    const xcb_pixmap_t pixmap = panel_.createBackground(whole.width, whole.height);
    panel_.putImage(pixmap, whole, reinterpret_cast<const std::uint32_t*>(notice.image.constBits()));
    panel_.setBackgroundPicture(pixmap);
    xcb_free_pixmap(panel_.connection(), pixmap);  // the window keeps it
    panel_.place({notice.at.x(), notice.at.y(), whole.width, whole.height});
    panel_.takeClicks(button);
    panel_.setMapped(true);
    button_ = QRect(button.x, button.y, button.width, button.height);
    buttons_ =
        desktop.buttons().connect([this](const xcb_button_press_event_t& event) { buttonChanged(event); });
  }
  X11CoverWindows(const X11CoverWindows&) = delete;
  X11CoverWindows& operator=(const X11CoverWindows&) = delete;
  ~X11CoverWindows() = default;

  [[nodiscard]] const Cover& cover() const { return cover_; }

 private:
  /// A click begins and ends on the button; in between the server tells us alone.
  void buttonChanged(const xcb_button_press_event_t& event) {
    if (event.event != panel_.id() || event.detail != XCB_BUTTON_INDEX_1) return;
    const bool presses = (event.response_type & 0x7FU) == XCB_BUTTON_PRESS;
    if (std::exchange(pressed_, presses) && !presses && button_.contains(event.event_x, event.event_y)) {
      clicked_();
    }
  }

  const Cover cover_;
  const std::function<void()> clicked_;
  X11OverlayWindow ground_;
  X11OverlayWindow panel_;
  QRect button_;  // on the panel
  bool pressed_ = false;
  Registration buttons_;
};

}  // namespace

struct X11OverlaySurface::Windows {
  Windows(X11Desktop& desktop, bool translucentWindows)
      : translucent(translucentWindows),
        banner(desktop, translucent ? Look::translucent : Look::opaque, "sentrel banner") {
    // An unblended window would hide the screen: without blending there is only what may be opaque.
    if (!translucent) return;
    scene.emplace(desktop);
    tint.emplace(desktop);
    hint.emplace(desktop, Look::translucent, "sentrel hint");
  }

  bool translucent;
  std::optional<X11SceneWindow> scene;
  std::optional<X11TintWindow> tint;
  std::optional<X11NoticeWindow> hint;
  X11NoticeWindow banner;
  std::optional<X11RetroWindow> picture;
  std::unique_ptr<X11CoverWindows> cover;
};

X11OverlaySurface::X11OverlaySurface(std::shared_ptr<List> list, std::uint64_t screenId)
    : DesktopSurface(std::move(list), screenId) {}

X11OverlaySurface::~X11OverlaySurface() = default;

void X11OverlaySurface::release() {
  windows_.reset();
}

void X11OverlaySurface::tintChanged() {
  if (!windows_) return;
  showTint();
  keepPictureOnTop();
}

void X11OverlaySurface::pictureChanged(const std::optional<RetroPicture>& former) {
  if (!windows_) return;
  const auto& picture = content().picture;
  if (picture && former && picture->picture == former->picture) {
    windows_->picture->setBlink(picture->blink);
  } else {
    showPicture();
  }
}

void X11OverlaySurface::refresh() {
  const X11Monitor* monitor = findMonitor();
  if (monitor == nullptr || !content().scene) return release();
  const OverlayScene& scene = *content().scene;
  const bool translucent = desktop()->blendsWindows();
  // Goes only once what takes its place is there.
  std::unique_ptr<X11CoverWindows> formerCover;
  if (!windows_ || windows_->translucent != translucent || *monitor != monitor_) {
    monitor_ = *monitor;
    keys_.reset();
    if (windows_) formerCover = std::move(windows_->cover);
    windows_.reset();
    windows_ = std::make_unique<Windows>(*desktop(), translucent);
  } else if (windows_->cover && (!scene.cover || windows_->cover->cover() != *scene.cover)) {
    formerCover = std::move(windows_->cover);
  }
  if (scene.cover && !windows_->cover) {
    windows_->cover =
        std::make_unique<X11CoverWindows>(*desktop(), monitor_, *scene.cover, [this] { clicked.emit(); });
  }
  paintNotices(scene.shortcutInHint);
  if (windows_->scene) windows_->scene->present(scene, monitor_.pixels, monitor_.screen.scale);
  showTint();
  if (windows_->hint) windows_->hint->setShown(!scene.cover);
  windows_->banner.setShown(scene.banner);
  if (!windows_->picture) showPicture();
  keepPictureOnTop();
}

const X11Monitor* X11OverlaySurface::findMonitor() const {
  if (desktop() == nullptr) return nullptr;
  const auto& monitors = desktop()->monitors();
  const auto found = std::ranges::find(monitors, screenId(), [](const X11Monitor& m) { return m.screen.id; });
  return found == monitors.end() ? nullptr : &*found;
}

/// Ahead of their use: when an alert comes, its banner has only to be mapped.
void X11OverlaySurface::paintNotices(const std::string& keys) {
  const Rect area = workAreaOf(monitor_.pixels, desktop()->workAreas());
  const bool isNew = !keys_;
  const bool isMoved = std::exchange(hintArea_, area) != area;
  const bool isReworded = std::exchange(keys_, keys) != keys;
  if (isNew) {
    windows_->banner.setNotice(
        paintBanner(monitor_.pixels, monitor_.screen.scale,
                    windows_->translucent ? BannerStyle::translucent : BannerStyle::opaque));
  }
  if (windows_->hint && (isMoved || isReworded))
    windows_->hint->setNotice(paintHint(area, monitor_.screen.scale, keys));
}

/// During an alert its window stays through the dark moments of the flash: mapping costs more than clearing.
void X11OverlaySurface::showTint() {
  const TintLevel level = content().tint;
  if (windows_->tint) windows_->tint->show(level, monitor_.pixels, level > 0 || content().scene->banner);
}

void X11OverlaySurface::showPicture() {
  if (!content().picture) return windows_->picture.reset();
  if (!windows_->picture) windows_->picture.emplace(*desktop(), monitor_);
  windows_->picture->show(*content().picture);
}

/// Under a Wayland compositor, what is mapped last may lie above all others whatever the server says (Mutter
/// orders such windows anew only along with ordinary ones). Then this window is made anew, as the last.
void X11OverlaySurface::keepPictureOnTop() {
  if (!windows_->picture || desktop()->stack().lastMapped() == windows_->picture->id()) return;
  windows_->picture.reset();
  showPicture();
}

}  // namespace sentrel
