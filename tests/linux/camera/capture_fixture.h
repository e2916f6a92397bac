// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "linux/camera/pipewire_capture_session.h"
#include "stage/headless_desktop.h"
#include "stage/virtual_camera.h"
#include "stage/wait_until.h"
#include "support/manual_main_loop.h"
#include "support/serial_queue.h"

namespace sentrel::test {

using SteadyClock = std::chrono::steady_clock;

/// The eight upright bars of `barColours`, as BGRA pixels.
std::vector<std::uint8_t> colourBars(int width, int height);
struct Colour {
  int blue = 0;
  int green = 0;
  int red = 0;
};
extern const std::array<Colour, 8> barColours;

/// A capture session with its queue and a log of everything that it gives.
class CaptureUser {
 public:
  struct Handed {
    SteadyClock::time_point at;
    int width = 0;
    int height = 0;
    std::array<Colour, 8> bars;  ///< the colour in the middle of each of eight upright bars
  };
  enum class Report { interrupted, ended };
  struct Reported {
    SteadyClock::time_point at;  ///< when the test looked, at most some milliseconds late
    Report report;
  };

  CaptureUser();
  ~CaptureUser();

  /// Configures and starts as the camera manager does, and asks for frames.
  void start(DeviceInput input = {}, std::int64_t paceMs = 0);
  void stop();
  void demand(bool wanted, std::int64_t paceMs = 0) { session->setFrameDemand({wanted, paceMs}); }
  /// Runs `task` on the camera queue and waits for it.
  template <class F>
  void onQueue(F&& task) {
    queue->sync(Task(std::forward<F>(task)));
  }

  [[nodiscard]] std::vector<Handed> handed() const;
  [[nodiscard]] std::size_t handedCount() const;
  [[nodiscard]] std::vector<Reported> reports();
  [[nodiscard]] std::size_t count(Report report);
  void clear();

  /// Runs what was posted to the main loop until `condition` holds.
  [[nodiscard]] bool eventually(const std::function<bool()>& condition,
                                std::chrono::milliseconds timeout = std::chrono::seconds(20));
  /// Waits for `more` further frames.
  [[nodiscard]] bool getsFrames(std::size_t more = 3);

  std::shared_ptr<ManualMainLoop> mainLoop = std::make_shared<ManualMainLoop>();
  std::shared_ptr<SerialQueue> queue = std::make_shared<SerialQueue>("com.mardeck.sentrel.camera");
  std::unique_ptr<PipeWireCaptureSession> session;
  int deviceChanges = 0;

 private:
  mutable std::mutex mutex_;
  std::vector<Handed> handed_;
  std::vector<Reported> reports_;
  std::vector<Registration> observers_;
};

/// A private PipeWire with its session manager.
class CaptureTest : public ::testing::Test {
 protected:
  CaptureTest() { desktop.exportToProcess(); }

  HeadlessDesktop desktop{{.sessionBus = true, .pipeWire = true}};
};

}  // namespace sentrel::test
