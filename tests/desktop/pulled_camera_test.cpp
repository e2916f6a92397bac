// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "service/privacy_filter_service.h"
#include "stage/detection_line.h"
#include "stage/portrait_scene.h"
#include "stage/virtual_camera.h"
#include "support/fake_desktop.h"
#include "support/fake_login_item.h"
#include "support/fake_overlay_backend.h"

namespace sentrel::test {
namespace {

using Kind = FilterState::Kind;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// The real detector, with a log of when it was done with a frame.
class LoggedDetector final : public FaceDetector {
 public:
  explicit LoggedDetector(std::shared_ptr<FaceDetector> detector) : detector_(std::move(detector)) {}

  std::optional<FaceDetectorError> prepare() override { return detector_->prepare(); }
  std::optional<FaceDetections> detect(const Frame& frame, std::int64_t timestampMs) override {
    auto detections = detector_->detect(frame, timestampMs);
    const std::lock_guard lock(mutex_);
    analysedMs_.push_back(clock_.nowMs());
    return detections;
  }
  void restartTracking() override { detector_->restartTracking(); }
  void release() override { detector_->release(); }
  void tune(const FaceTuning& tuning) override { detector_->tune(tuning); }

  [[nodiscard]] std::vector<std::int64_t> analysedMs() const {
    const std::lock_guard lock(mutex_);
    return analysedMs_;
  }

 private:
  const std::shared_ptr<FaceDetector> detector_;
  const SystemClock clock_;
  mutable std::mutex mutex_;
  std::vector<std::int64_t> analysedMs_;
};

struct StateChange {
  std::int64_t atMs;
  Kind kind;
};

bool protects(Kind kind) {
  return kind == Kind::nominal || kind == Kind::inattention || kind == Kind::alert;
}

/// The longest time in a protecting state without an analysed frame, from the entry or the frame before to
/// the next frame or the state's end.
std::int64_t longestBlindMs(const std::vector<StateChange>& states, std::vector<std::int64_t> analysed,
                            std::int64_t endMs) {
  std::int64_t longest = 0;
  for (std::size_t i = 0; i < states.size(); ++i) {
    if (!protects(states[i].kind)) continue;
    const std::int64_t leftMs = i + 1 < states.size() ? states[i + 1].atMs : endMs;
    std::int64_t seenMs = states[i].atMs;
    for (const std::int64_t frameMs : analysed) {
      if (frameMs <= seenMs || frameMs > leftMs) continue;
      longest = std::max(longest, frameMs - seenMs);
      seenMs = frameMs;
    }
    longest = std::max(longest, leftMs - seenMs);
  }
  return longest;
}

enum class Way { pulled, stalled };

/// The service over the real camera, which a test takes away and gives back.
class PulledCamera : public ::testing::Test {
 protected:
  PulledCamera() {
    camera.appear();
    camera.setSource([this](std::int64_t) { return picture.constBits(); });
    watch = service->fsmState().onChange([this](const FilterState& state) {
      states.push_back({line.clock->nowMs(), state.kind()});
    });
  }
  ~PulledCamera() override {
    service->stop();
    (void)line.runUntil([this] { return !line.camera->isRunning().get(); }, seconds(10));
  }

  void runFor(milliseconds duration) {
    (void)line.runUntil([] { return false; }, duration);
  }
  [[nodiscard]] Kind state() const { return service->fsmState().get().kind(); }

  /// Takes the camera away for a while and judges what the log says.
  void check(Way way, seconds away) {
    service->start();
    ASSERT_TRUE(line.runUntil([this] { return detector->analysedMs().size() >= 15; }, seconds(30)));
    ASSERT_EQ(state(), Kind::nominal);

    way == Way::pulled ? camera.vanish() : camera.setPlaying(false);
    runFor(away);
    const auto framesBefore = detector->analysedMs().size();
    const std::int64_t returnMs = line.clock->nowMs();
    way == Way::pulled ? camera.appear() : camera.setPlaying(true);
    const bool recovered = line.runUntil(
        [&] { return state() == Kind::nominal && detector->analysedMs().size() >= framesBefore + 15; },
        seconds(30));
    ASSERT_TRUE(recovered);

    const std::int64_t endMs = line.clock->nowMs();
    const auto analysed = detector->analysedMs();
    const std::int64_t blindMs = longestBlindMs(states, analysed, endMs);
    const std::int64_t firstFrameMs = analysed[framesBefore] - returnMs;
    // The last entry into a protecting state may lie before the first frame: then that frame is the recovery.
    const std::int64_t recoveryMs = std::max(analysed[framesBefore], states.back().atMs) - returnMs;
    std::cout << "longest without a frame while protecting: " << blindMs << " ms; first frame "
              << firstFrameMs << " ms and protection " << recoveryMs << " ms after the return\n";
    EXPECT_LE(blindMs, 2500);
    EXPECT_LE(recoveryMs, 1000 + 5000);
    EXPECT_TRUE(
        std::any_of(states.begin(), states.end(), [](const auto& s) { return s.kind == Kind::cameraBusy; }));
    for (const auto& change : states) {
      EXPECT_TRUE(change.kind == Kind::nominal || change.kind == Kind::cameraBusy)
          << "a lost camera is neither a look away nor an onlooker";
    }
  }

  std::shared_ptr<LoggedDetector> detector;
  DetectionLine line{[this](std::shared_ptr<FaceDetector> real) {
    detector = std::make_shared<LoggedDetector>(std::move(real));
    return detector;
  }};
  const QImage picture = PortraitScene().frame({}).convertToFormat(QImage::Format_RGB32);
  VirtualCamera camera{{}};
  std::shared_ptr<OverlayWindowManager> overlay = std::make_shared<OverlayWindowManager>(
      std::make_shared<FakeOverlayBackend>(), line.mainLoop, line.clock);
  std::shared_ptr<SettingsRepository> settings = std::make_shared<SettingsRepository>(
      std::make_shared<MemoryUserDefaults>(), std::make_shared<FakeLoginItem>());
  FakeDesktop surroundings{line.mainLoop, line.clock};
  std::shared_ptr<PrivacyFilterService> service = std::make_shared<PrivacyFilterService>(
      surroundings.parts(line.environment, line.camera, overlay, settings));
  std::vector<StateChange> states;
  Registration watch;
};

TEST_F(PulledCamera, PulledForTwelveSeconds) {
  check(Way::pulled, seconds(12));
}

TEST_F(PulledCamera, StalledForNineSeconds) {
  check(Way::stalled, seconds(9));
}

TEST_F(PulledCamera, LongPulledForAMinute) {
  check(Way::pulled, seconds(60));
}

}  // namespace
}  // namespace sentrel::test
