// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "detection/av_capture_manager.h"
#include "service/privacy_filter_service.h"
#include "support/fake_overlay_backend.h"
#include "support/fake_settings.h"

namespace sentrel::test {

/// One observer at a time, as the real sources have it: a former registration ends nothing.
template <class... Args>
class OneObserver {
 public:
  Registration install(std::function<void(Args...)> observer) {
    observer_ = std::move(observer);
    return Registration([this, mine = ++number_] {
      if (mine == number_) observer_ = nullptr;
    });
  }
  void tell(Args... args) const {
    if (const auto told = observer_) told(args...);
  }
  [[nodiscard]] std::size_t count() const { return observer_ ? 1 : 0; }

 private:
  std::function<void(Args...)> observer_;
  int number_ = 0;
};

/// A session whose person comes and goes when a test says so.
class FakeSessionEvents final : public SessionEvents {
 public:
  explicit FakeSessionEvents(std::shared_ptr<MainLoop> mainLoop) : mainLoop_(std::move(mainLoop)) {}

  OneObserver<SessionEvent> observer;
  bool resting = false;
  bool answering = true;  ///< those who know of a lock answer at once
  int closings = 0;       ///< how often the camera was said to be closed
  bool isAway = false;
  std::function<void()> known;  ///< who waits for an answer

  [[nodiscard]] Registration install(Observer told) override { return observer.install(std::move(told)); }
  void whenKnown(std::function<void()> told) override {
    known = std::move(told);
    if (answering) mainLoop_->post([this] { answer(); });
  }
  /// Also what was known before anybody observed.
  void answer() {
    const auto told = std::exchange(known, nullptr);
    if (!told || observer.count() == 0) return;
    if (isAway) observer.tell(SessionEvent::screenIsLocked);
    told();
  }
  void tell(SessionEvent event) {
    isAway = isGoingAway(event);
    observer.tell(event);
  }
  [[nodiscard]] bool isLocked() const override { return false; }
  void cameraIsClosed() override { ++closings; }
  void setResting(bool now) override { resting = now; }

 private:
  std::shared_ptr<MainLoop> mainLoop_;
};

class FakePowerSource final : public PowerSource {
 public:
  std::optional<PowerSourceDescription> source;
  int observers = 0;

  [[nodiscard]] Registration observe() override {
    ++observers;
    return Registration([this] { --observers; });
  }
  [[nodiscard]] std::optional<PowerSourceDescription> first() const override {
    return observers > 0 ? source : std::nullopt;
  }
};

class FakeKeyMonitor final : public KeyMonitor {
 public:
  OneObserver<> observer;
  bool possible = true;

  [[nodiscard]] bool canObserve() const override { return possible; }
  [[nodiscard]] Registration observe(std::function<void()> pressed) override {
    return observer.install(std::move(pressed));
  }
};

/// What is shown, and how often something was.
class FakeNotifications final : public Notifications {
 public:
  explicit FakeNotifications(std::shared_ptr<MainLoop> mainLoop) : mainLoop_(std::move(mainLoop)) {}

  std::map<std::string, NotificationContent> shown;
  int added = 0;
  bool answering = true;
  std::vector<std::function<void(bool)>> questions;  ///< while not answering

  void requestAuthorization(std::function<void(bool granted)> answer) override {
    if (!answering) {
      questions.push_back(std::move(answer));
    } else {
      mainLoop_->post([answer = std::move(answer)] { answer(false); });
    }
  }
  void add(const std::string& identifier, const NotificationContent& content) override {
    shown[identifier] = content;
    ++added;
  }
  void remove(const std::string& identifier) override { shown.erase(identifier); }

 private:
  std::shared_ptr<MainLoop> mainLoop_;
};

class FakeHaptics final : public Haptics {
 public:
  int performed = 0;
  void perform() override { ++performed; }
};

/// The desktop around the service.
struct FakeDesktop {
  FakeDesktop(const std::shared_ptr<MainLoop>& mainLoop, const std::shared_ptr<Clock>& clock)
      : session(std::make_shared<FakeSessionEvents>(mainLoop)),
        notifications(std::make_shared<FakeNotifications>(mainLoop)),
        retroOverlay(
            std::make_shared<OverlayWindowManager>(std::make_shared<FakeOverlayBackend>(), mainLoop, clock)),
        retroPiP(std::make_shared<RetroPiPManager>(retroOverlay, mainLoop, clock)) {}

  std::shared_ptr<FakeSessionEvents> session;
  std::shared_ptr<FakePowerSource> power = std::make_shared<FakePowerSource>();
  std::shared_ptr<FakeKeyMonitor> keys = std::make_shared<FakeKeyMonitor>();
  std::shared_ptr<FakeNotifications> notifications;
  std::shared_ptr<FakeHaptics> haptics = std::make_shared<FakeHaptics>();
  std::shared_ptr<OverlayWindowManager> retroOverlay;
  std::shared_ptr<RetroPiPManager> retroPiP;
  std::shared_ptr<StatsRepository> stats =
      std::make_shared<StatsRepository>(std::make_shared<MemoryUserDefaults>());

  [[nodiscard]] std::size_t observers() const {
    return session->observer.count() + keys->observer.count() + static_cast<std::size_t>(power->observers);
  }

  [[nodiscard]] std::shared_ptr<CameraControl> control(
      const AnalysisEnvironment& environment, const std::shared_ptr<AVCaptureManager>& camera) const {
    return std::make_shared<CameraControl>(CameraControl::Dependencies{
        environment.mainLoop, environment.clock, camera, camera->session(), session});
  }
  [[nodiscard]] std::shared_ptr<PrivacyFilterService> service(
      const AnalysisEnvironment& environment, const std::shared_ptr<AVCaptureManager>& camera,
      const std::shared_ptr<CameraControl>& control, const std::shared_ptr<OverlayWindowManager>& overlay,
      const std::shared_ptr<SettingsRepository>& settings) const {
    Platform platform;
    platform.mainLoop = environment.mainLoop;
    platform.clock = environment.clock;
    platform.analysisQueue = environment.analysisQueue;
    platform.faceDetector = environment.faceDetector;
    platform.notifications = notifications;
    platform.haptics = haptics;
    platform.powerSource = power;
    platform.keyMonitor = keys;
    platform.localizedText = [](const char* key) { return std::string(key); };
    return std::make_shared<PrivacyFilterService>(
        PrivacyFilterService::Dependencies{platform, camera, control, overlay, retroPiP, settings, stats});
  }
};

}  // namespace sentrel::test
