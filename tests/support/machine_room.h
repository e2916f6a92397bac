// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "detection/vision_face_analyzer.h"
#include "support/fake_capture_session.h"
#include "support/frame.h"
#include "support/manual_main_loop.h"
#include "support/manual_queue.h"
#include "support/scripted_detector.h"

namespace sentrel::test {

/// The program's threads over fakes: real queues, a manual main loop and clock, a scripted camera and
/// detector.
struct MachineRoom {
  std::shared_ptr<ManualMainLoop> loop = std::make_shared<ManualMainLoop>();
  std::shared_ptr<SerialQueue> cameraQueue = std::make_shared<SerialQueue>("com.mardeck.sentrel.camera");
  std::shared_ptr<SerialQueue> analysisQueue = std::make_shared<SerialQueue>("com.mardeck.sentrel.vision");
  std::shared_ptr<FakeCaptureSession> session = std::make_shared<FakeCaptureSession>();
  std::shared_ptr<ScriptedDetector> detector = std::make_shared<ScriptedDetector>();
  FramePool pool{8};

  /// One whose queues run on the test's own thread, when it says so.
  static MachineRoom withoutThreads() {
    MachineRoom room;
    room.cameraQueue = std::make_shared<ManualQueue>();
    room.analysisQueue = std::make_shared<ManualQueue>();
    return room;
  }

  [[nodiscard]] AnalysisEnvironment environment() const { return {loop, loop, analysisQueue, detector}; }

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

}  // namespace sentrel::test
