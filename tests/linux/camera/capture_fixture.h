// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "linux/camera/pipewire_capture_session.h"
#include "stage/headless_desktop.h"
#include "stage/virtual_camera.h"
#include "support/manual_main_loop.h"
#include "support/serial_queue.h"

namespace sentrel::test {

using SteadyClock = std::chrono::steady_clock;

struct Colour {
  int blue = 0;
  int green = 0;
  int red = 0;
};
inline const std::vector<Colour> barColours{{235, 235, 235}, {20, 220, 220}, {220, 220, 20}, {30, 200, 30},
                                            {200, 30, 200},  {30, 30, 200},  {200, 30, 30},  {20, 20, 20}};

/// A picture of upright bars, as BGRA pixels.
inline std::vector<std::uint8_t> bars(int width, int height,
                                      const std::vector<Colour>& colours = barColours) {
  std::vector<std::uint8_t> pixels;
  for (int i = 0; i < width * height; ++i) {
    const Colour& colour =
        colours.at(static_cast<std::size_t>(i % width) * colours.size() / static_cast<std::size_t>(width));
    for (const int value : {colour.blue, colour.green, colour.red, 255})
      pixels.push_back(static_cast<std::uint8_t>(value));
  }
  return pixels;
}

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

  CaptureUser() {
    const auto note = [this](Report report) {
      return [this, report] { reports_.push_back({SteadyClock::now(), report}); };
    };
    observers_.push_back(session->wasInterrupted.connect(note(Report::interrupted)));
    observers_.push_back(session->interruptionEnded.connect(note(Report::ended)));
    observers_.push_back(session->devicesChanged.connect([this] { ++deviceChanges; }));
  }
  ~CaptureUser() {
    session.reset();
    queue->sync([] {});  // nothing of this object is used any more
  }

  /// Configures and starts as the camera manager does, and asks for frames.
  void start(const std::optional<std::string>& deviceID = {}, std::int64_t paceMs = 0) {
    demand(true, paceMs);
    onQueue([this] { (void)session->awaitDevices(std::chrono::seconds(10)); });
    configure(deviceID);
    onQueue([this] { session->startRunning(); });
  }
  void configure(const std::optional<std::string>& deviceID) {
    const auto log = [this](const FrameRef& frame) {
      Handed handed{SteadyClock::now(), frame->width(), frame->height(), {}};
      for (std::size_t bar = 0; bar < handed.bars.size(); ++bar) {
        const std::uint8_t* pixel = frame->row(frame->height() / 2) +
                                    static_cast<std::ptrdiff_t>(2 * bar + 1) * frame->width() / 16 * 4;
        handed.bars.at(bar) = {pixel[0], pixel[1], pixel[2]};
      }
      const std::lock_guard lock(mutex_);
      handed_.push_back(handed);
    };
    onQueue([&] { EXPECT_FALSE(session->configure({640, 480, deviceID, log})); });
  }
  void stop() {
    onQueue([this] { session->stopRunning(); });
  }
  void demand(bool wanted, std::int64_t paceMs = 0) const { session->setFrameDemand({wanted, paceMs}); }
  /// Runs `task` on the camera queue and waits for it.
  template <class F>
  void onQueue(F&& task) {
    queue->sync(Task(std::forward<F>(task)));
  }

  [[nodiscard]] std::vector<Handed> handed() const {
    const std::lock_guard lock(mutex_);
    return handed_;
  }
  [[nodiscard]] std::vector<Reported> reports() {
    mainLoop->runPosted();
    return reports_;
  }
  [[nodiscard]] std::ptrdiff_t count(Report report) {
    return std::ranges::count(reports(), report, &Reported::report);
  }
  void clear() {
    mainLoop->runPosted();
    reports_.clear();
    const std::lock_guard lock(mutex_);
    handed_.clear();
  }

  /// Runs what was posted to the main loop until `condition` holds.
  [[nodiscard]] bool eventually(const std::function<bool()>& condition,
                                std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    return waitUntil(
        [&] {
          mainLoop->runPosted();
          return condition();
        },
        timeout, std::chrono::milliseconds(2));
  }
  /// Waits for `more` further frames.
  [[nodiscard]] bool getsFrames(std::size_t more = 3) {
    const std::size_t wanted = handed().size() + more;
    return eventually([&] { return handed().size() >= wanted; });
  }

  std::shared_ptr<ManualMainLoop> mainLoop = std::make_shared<ManualMainLoop>();
  std::shared_ptr<SerialQueue> queue = std::make_shared<SerialQueue>("com.mardeck.sentrel.camera");
  std::unique_ptr<PipeWireCaptureSession> session = std::make_unique<PipeWireCaptureSession>(mainLoop, queue);
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
