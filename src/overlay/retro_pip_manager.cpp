// SPDX-License-Identifier: Apache-2.0
#include "overlay/retro_pip_manager.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "overlay/overlay_content_view.h"
#include "platform/platform.h"

namespace sentrel {

namespace {

constexpr std::int64_t fadeMs = 550;
constexpr std::int64_t blinkStepMs = 33;

/// Where the grown side of a box begins and ends in `size` pixels; empty for what is no number.
std::pair<int, int> grownRange(double begin, double length, int size) {
  constexpr double growth = 0.65;
  const double first = std::floor((begin - length * growth) * size);
  const double last = std::ceil((begin + length * (1 + growth)) * size);
  if (!std::isfinite(first) || !std::isfinite(last)) return {0, 0};
  return {static_cast<int>(std::clamp<double>(first, 0, size)),
          static_cast<int>(std::clamp<double>(last, 0, size))};
}

}  // namespace

Rect retroCrop(int frameWidth, int frameHeight, const std::optional<NormalizedRect>& face) {
  const Rect whole{0, 0, frameWidth, frameHeight};
  if (!face || !(face->width > 0) || !(face->height > 0)) return whole;
  const auto [left, right] = grownRange(face->x, face->width, frameWidth);
  // The box is measured from the bottom, the frame's rows from the top.
  const auto [top, bottom] = grownRange(1 - face->y - face->height, face->height, frameHeight);
  if (left >= right || top >= bottom) return whole;
  return {left, top, right - left, bottom - top};
}

void copyGrey(const Frame& frame, const Rect& crop, GreyPicture& picture) {
  constexpr int bytesPerPixel = 4;
  picture.width = crop.width;
  picture.height = crop.height;
  picture.levels.reserve(static_cast<std::size_t>(frame.width()) * static_cast<std::size_t>(frame.height()));
  picture.levels.resize(static_cast<std::size_t>(crop.width) * static_cast<std::size_t>(crop.height));
  std::uint8_t* to = picture.levels.begin();
  for (int y = crop.y; y < crop.y + crop.height; ++y) {
    const std::uint8_t* pixel = frame.row(y) + static_cast<std::ptrdiff_t>(crop.x) * bytesPerPixel;
    for (int x = 0; x < crop.width; ++x, pixel += bytesPerPixel) {
      // Luminance of BT.709, in 256ths.
      *to++ = static_cast<std::uint8_t>((19U * pixel[0] + 183U * pixel[1] + 54U * pixel[2]) >> 8U);
    }
  }
}

RetroPiPView::RetroPiPView(const RetroPiPState& shownState, OverlayWindowManager& overlay, MainLoop& mainLoop,
                           const Clock& clock)
    : state(shownState), overlay_(overlay), mainLoop_(mainLoop), clock_(clock), shownSinceMs_(clock.nowMs()) {
  frame_ = state.frame.subscribe([this](const auto&) { setBlink(blink); });
  motion_ = overlay.reducedMotion.subscribe([this](bool reduced) { startBlinking(reduced); });
}

RetroPiPView::~RetroPiPView() {
  overlay_.picture = std::nullopt;
}

void RetroPiPView::startBlinking(bool reducedMotion) {
  blinkTask_.reset();
  if (reducedMotion) return setBlink(brightestBlink);
  updateDot();
  blinkTask_ = mainLoop_.every(blinkStepMs, [this] { updateDot(); });
}

void RetroPiPView::updateDot() {
  const std::int64_t phase = (clock_.nowMs() - shownSinceMs_) % (2 * fadeMs);
  const std::int64_t distance = phase < fadeMs ? phase : 2 * fadeMs - phase;
  const double opacity = easeInOut(static_cast<double>(distance) / static_cast<double>(fadeMs));
  const auto next = static_cast<BlinkLevel>(std::lround(opacity * brightestBlink));
  if (next != blink) setBlink(next);
}

void RetroPiPView::setBlink(BlinkLevel level) {
  blink = level;
  overlay_.picture = RetroPicture{state.frame, level};
}

RetroPiPManager::RetroPiPManager(std::shared_ptr<OverlayWindowManager> overlay,
                                 std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<Clock> clock)
    : overlay_(std::move(overlay)), mainLoop_(std::move(mainLoop)), clock_(std::move(clock)) {}

const std::shared_ptr<RetroPiPManager>& RetroPiPManager::shared() {
  static const auto instance = std::make_shared<RetroPiPManager>(
      OverlayWindowManager::shared(), Platform::current().mainLoop, Platform::current().clock);
  return instance;
}

void RetroPiPManager::openWindow() {
  window.emplace(state, *overlay_, *mainLoop_, *clock_);
}

void RetroPiPManager::renderFrame(const FrameRef& pixelBuffer,
                                  const std::optional<NormalizedRect>& faceRect) {
  if (!pixelBuffer || pixelBuffer->empty()) return;
  auto picture = freePicture();
  copyGrey(*pixelBuffer, retroCrop(pixelBuffer->width(), pixelBuffer->height(), faceRect), *picture);
  state.frame = std::shared_ptr<const GreyPicture>(std::move(picture));
}

void RetroPiPManager::hide() {
  window.reset();
  if (!state.frame.get()) return;
  state.frame = nullptr;
  for (const auto& picture : pictures_) picture->levels.wipe();
}

/// One that nobody shows: what is shown must not change.
std::shared_ptr<GreyPicture> RetroPiPManager::freePicture() {
  const auto free =
      std::ranges::find_if(pictures_, [](const auto& picture) { return picture.use_count() == 1; });
  return free != pictures_.end() ? *free : pictures_.emplace_back(std::make_shared<GreyPicture>());
}

}  // namespace sentrel
