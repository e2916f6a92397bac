// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "detection/vision_face_analyzer.h"
#include "stage/detection_line.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {
namespace {

using std::chrono::milliseconds;

constexpr int width = 640;
constexpr int height = 480;
constexpr int bars = 10;  // light or dark: the bits of a frame's index
constexpr int barWidth = width / bars;

/// A film whose frames tell their index.
class CountedFilm {
 public:
  const std::uint8_t* frame(std::int64_t index) {
    newest_ = index;
    for (std::size_t pixel = 0; pixel < pixels_.size() / 4; ++pixel) {
      const auto bar = static_cast<std::int64_t>(pixel % width) / barWidth;
      const std::uint8_t level = (index >> bar & 1) != 0 ? 200 : 40;
      std::fill_n(pixels_.begin() + static_cast<std::ptrdiff_t>(pixel) * 4, 3, level);
    }
    return pixels_.data();
  }
  static std::int64_t indexOf(const Frame& frame) {
    std::int64_t index = 0;
    for (int bar = 0; bar < bars; ++bar) {
      const int x = bar * barWidth + barWidth / 2;
      if (frame.row(height / 2)[x * 4 + 1] > 128) index |= std::int64_t{1} << bar;
    }
    return index;
  }
  [[nodiscard]] std::int64_t newest() const { return newest_; }

 private:
  std::vector<std::uint8_t> pixels_ = std::vector<std::uint8_t>(std::size_t{width} * height * 4, 255);
  std::atomic<std::int64_t> newest_ = 0;
};

/// Takes nine frames' time for each, and notes how many frames its own is behind the camera.
class SlowDetector final : public FaceDetector {
 public:
  explicit SlowDetector(const CountedFilm& film) : film_(film) {}

  std::optional<FaceDetectorError> prepare() override { return std::nullopt; }
  std::optional<FaceDetections> detect(const Frame& frame, std::int64_t) override {
    {
      const std::lock_guard lock(mutex_);
      behind_.push_back(film_.newest() - CountedFilm::indexOf(frame));
    }
    std::this_thread::sleep_for(milliseconds(300));
    return FaceDetections{};
  }
  void restartTracking() override {}
  void release() override {}
  void tune(const FaceTuning&) override {}

  [[nodiscard]] std::vector<std::int64_t> behind() const {
    const std::lock_guard lock(mutex_);
    return behind_;
  }

 private:
  const CountedFilm& film_;
  mutable std::mutex mutex_;
  std::vector<std::int64_t> behind_;
};

// What waits for a slow detector is one frame, and the newest; and the main loop does not wait with it.
TEST(SlowDetector, IsGivenTheNewestFrameAndHoldsNobodyUp) {
  CountedFilm film;
  auto slow = std::make_shared<SlowDetector>(film);
  DetectionLine line([&](const std::shared_ptr<FaceDetector>&) { return slow; });
  VirtualCamera camera({.fps = 30});
  camera.appear();
  camera.setSource([&](std::int64_t index) { return film.frame(index); });
  const auto analyzer = std::make_shared<VisionFaceAnalyzer>(30, line.environment);
  line.camera->setAnalyzer(analyzer);
  line.camera->startSession([](const StartResult&) {});
  std::vector<std::int64_t> latenessMs;
  std::int64_t last = 0;
  const Registration ticks = line.mainLoop->every(20, [&] {
    const std::int64_t now = line.clock->nowMs();
    if (last != 0) latenessMs.push_back(now - last - 20);
    last = now;
  });
  ASSERT_TRUE(line.runUntil([&] { return slow->behind().size() >= 12; }, std::chrono::seconds(60)));

  // Medians: a busy machine may be late once.
  auto behind = slow->behind();
  behind.erase(behind.begin());
  std::ranges::sort(behind);
  std::ranges::sort(latenessMs);
  EXPECT_GE(behind.front(), 0);
  EXPECT_LE(behind[behind.size() / 2], 3);  // and not the nine of a frame that has waited its turn
  EXPECT_LE(latenessMs[latenessMs.size() / 2], 50);
}

}  // namespace
}  // namespace sentrel::test
