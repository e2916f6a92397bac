// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>

#include "detection/calibration_session.h"
#include "service/privacy_filter_service.h"
#include "support/fake_camera.h"
#include "support/fake_desktop.h"
#include "support/fake_overlay_backend.h"
#include "support/manual_main_loop.h"

namespace sentrel::test {

/// The program's threads over fakes: a manual main loop and clock, queues that run on the test's own thread
/// when it says so, a scripted camera and detector.
struct TestMachine {
  /// With a real main loop the queues are real, too; the manual loop is the clock alone.
  explicit TestMachine(std::shared_ptr<MainLoop> real = nullptr) : mainLoop(real ? real : loop) {
    for (auto* queue : {&cameraQueue, &analysisQueue})
      *queue = real ? std::make_shared<SerialQueue>("test") : std::make_shared<ManualQueue>();
  }

  std::shared_ptr<ManualMainLoop> loop = std::make_shared<ManualMainLoop>();
  std::shared_ptr<MainLoop> mainLoop;
  std::shared_ptr<SerialQueue> cameraQueue;
  std::shared_ptr<SerialQueue> analysisQueue;
  std::shared_ptr<FakeCaptureSession> session = std::make_shared<FakeCaptureSession>();
  std::shared_ptr<ScriptedDetector> detector = std::make_shared<ScriptedDetector>();
  FramePool pool{8};

  [[nodiscard]] AnalysisEnvironment environment() const { return {mainLoop, loop, analysisQueue, detector}; }

  [[nodiscard]] FrameRef frame() { return pool.acquire(4, 4); }

  /// How many of them nobody holds.
  [[nodiscard]] std::size_t freeFrames() {
    std::vector<FrameRef> taken;
    while (auto free = frame()) taken.push_back(std::move(free));
    return taken.size();
  }

  /// Until every queue and the main loop have nothing left to do but wait for time.
  void settle() {
    // The longest chain of hand-overs is main, analysis, main, camera, main, main.
    for (int i = 0; i < 4; ++i) {
      loop->runPosted();
      analysisQueue->sync([] {});
      cameraQueue->sync([] {});
    }
    loop->runPosted();
  }

  /// Lets time pass, at most `stepMs` between two looks at the queues.
  void advance(std::int64_t ms, std::int64_t stepMs = 50) {
    for (; ms > 0; ms -= stepMs) {
      loop->advance(std::min(ms, stepMs));
      settle();
    }
  }
};

/// The whole core over fakes at its edges.
struct TestCore {
  explicit TestCore(std::shared_ptr<MainLoop> real = nullptr) : machine(std::move(real)) {}
  /// What the end of protection leaves to the loop would keep the loop.
  ~TestCore() {
    service.reset();
    machine.loop->runPosted();
  }
  TestCore(const TestCore&) = delete;
  TestCore& operator=(const TestCore&) = delete;

  TestMachine machine;
  std::shared_ptr<FakeOverlayBackend> backend = std::make_shared<FakeOverlayBackend>();
  std::shared_ptr<OverlayWindowManager> overlay =
      std::make_shared<OverlayWindowManager>(backend, machine.mainLoop, machine.loop);
  std::shared_ptr<MemoryUserDefaults> defaults = std::make_shared<MemoryUserDefaults>();
  std::shared_ptr<FakeLoginItem> loginItem = std::make_shared<FakeLoginItem>();
  std::shared_ptr<SettingsRepository> settings = std::make_shared<SettingsRepository>(defaults, loginItem);
  std::shared_ptr<StatsRepository> stats = std::make_shared<StatsRepository>(defaults);
  std::shared_ptr<AVCaptureManager> camera = std::make_shared<AVCaptureManager>(
      machine.session, machine.cameraQueue, machine.environment(), settings);
  FakeDesktop desktop{machine.mainLoop};
  std::shared_ptr<CameraControl> control = std::make_shared<CameraControl>(
      CameraControl::Dependencies{machine.mainLoop, machine.loop, camera, machine.session, desktop.session});
  std::shared_ptr<PrivacyFilterService> service = newService();

  const FaceDetections alone = detectionsOf({faceOf(0.2)}, {faceOf(0.2)});
  const FaceDetections lookingAway = detectionsOf({faceOf(0.2)}, {faceOf(0.2, 0.1, 0.8)});
  const FaceDetections watched = detectionsOf({faceOf(0.2), faceOf(0.05)}, {faceOf(0.2)});

  [[nodiscard]] std::shared_ptr<PrivacyFilterService> newService() const {
    const auto retro = std::make_shared<RetroPiPManager>(overlay, machine.mainLoop, machine.loop);
    return std::make_shared<PrivacyFilterService>(
        ServiceDependencies{platform(), camera, control, overlay, retro, settings, stats});
  }
  void start() {
    service->start();
    machine.settle();
  }
  void stop() {
    service->stop();
    machine.settle();
  }
  /// Saves the settings after `change` of them.
  template <class Change>
  void changeSettings(Change change) {
    FilterSettings next = settings->settings;
    change(next);
    settings->save(next);
  }
  template <class Change>
  void changeOptions(Change change) {
    ProtectionOptions next = settings->options;
    change(next);
    settings->save(next);
  }
  void tell(SessionEvent event) {
    desktop.session->tell(event);
    machine.settle();
  }
  [[nodiscard]] Platform platform() const {
    Platform given;
    given.mainLoop = machine.mainLoop;
    given.clock = machine.loop;
    given.analysisQueue = machine.analysisQueue;
    given.captureSession = machine.session;
    given.faceDetector = machine.detector;
    given.userDefaults = defaults;
    given.alertJournal = desktop.journal;
    given.notifications = desktop.notifications;
    given.haptics = desktop.haptics;
    given.powerSource = desktop.power;
    given.screenSharing = desktop.sharing;
    given.sessionEvents = desktop.session;
    given.keyMonitor = desktop.keys;
    given.localizedText = [](const char* key) { return std::string(key); };
    return given;
  }
  [[nodiscard]] FilterState::Kind state() const { return service->fsmState().get().kind(); }

  std::shared_ptr<CalibrationSession> newCalibration() {
    calibration = std::make_shared<CalibrationSession>(
        CalibrationSession::Dependencies{machine.loop, machine.loop, camera, control, settings});
    return calibration;
  }
  /// Lets the camera see `faces` for `ms`, ten frames a second.
  void see(const std::optional<FaceDetections>& faces, std::int64_t ms) {
    machine.detector->next = faces;
    for (; ms > 0; ms -= 100) {
      if (machine.session->delivers()) machine.session->request->onFrame(machine.frame());
      machine.settle();
      machine.loop->advance(100);
    }
    machine.settle();
  }

  std::shared_ptr<CalibrationSession> calibration;  ///< the newest
};

}  // namespace sentrel::test
