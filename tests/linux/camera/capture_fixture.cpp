// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/capture_fixture.h"

#include <algorithm>

namespace sentrel::test {

const std::array<Colour, 8> barColours{{{235, 235, 235},
                                        {20, 220, 220},
                                        {220, 220, 20},
                                        {30, 200, 30},
                                        {200, 30, 200},
                                        {30, 30, 200},
                                        {200, 30, 30},
                                        {20, 20, 20}}};

std::vector<std::uint8_t> colourBars(int width, int height) {
  std::vector<std::uint8_t> pixels;
  pixels.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const Colour& colour = barColours.at(static_cast<std::size_t>(x * 8 / width));
      for (const int value : {colour.blue, colour.green, colour.red, 255}) {
        pixels.push_back(static_cast<std::uint8_t>(value));
      }
    }
  }
  return pixels;
}

CaptureUser::CaptureUser() : session(std::make_unique<PipeWireCaptureSession>(mainLoop, queue)) {
  const auto note = [this](Report report) {
    return [this, report] { reports_.push_back({SteadyClock::now(), report}); };
  };
  observers_.push_back(session->wasInterrupted.connect(note(Report::interrupted)));
  observers_.push_back(session->interruptionEnded.connect(note(Report::ended)));
  observers_.push_back(session->devicesChanged.connect([this] { ++deviceChanges; }));
}

CaptureUser::~CaptureUser() {
  session.reset();
  queue->sync([] {});  // nothing of this object is used any more
}

void CaptureUser::start(DeviceInput input, std::int64_t paceMs) {
  demand(true, paceMs);
  onQueue([this, &input] {
    session->awaitDevices(std::chrono::seconds(10));
    session->beginConfiguration();
    session->setPreset(640, 480);
    session->addInput(input);
    session->addOutput({[this](const FrameRef& frame) {
      Handed handed{SteadyClock::now(), frame->width(), frame->height(), {}};
      for (std::size_t bar = 0; bar < handed.bars.size(); ++bar) {
        const std::uint8_t* pixel = frame->row(frame->height() / 2) +
                                    static_cast<std::ptrdiff_t>(2 * bar + 1) * frame->width() / 16 * 4;
        handed.bars.at(bar) = {pixel[0], pixel[1], pixel[2]};
      }
      const std::lock_guard lock(mutex_);
      handed_.push_back(handed);
    }});
    session->commitConfiguration();
    session->startRunning();
  });
}

void CaptureUser::stop() {
  onQueue([this] { session->stopRunning(); });
}

std::vector<CaptureUser::Handed> CaptureUser::handed() const {
  const std::lock_guard lock(mutex_);
  return handed_;
}

std::size_t CaptureUser::handedCount() const {
  const std::lock_guard lock(mutex_);
  return handed_.size();
}

std::vector<CaptureUser::Reported> CaptureUser::reports() {
  mainLoop->runPosted();
  return reports_;
}

std::size_t CaptureUser::count(Report report) {
  return static_cast<std::size_t>(std::ranges::count(reports(), report, &Reported::report));
}

void CaptureUser::clear() {
  mainLoop->runPosted();
  reports_.clear();
  const std::lock_guard lock(mutex_);
  handed_.clear();
}

bool CaptureUser::eventually(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
  return waitUntil(
      [&] {
        mainLoop->runPosted();
        return condition();
      },
      timeout, std::chrono::milliseconds(2));
}

bool CaptureUser::getsFrames(std::size_t more) {
  const std::size_t wanted = handedCount() + more;
  return eventually([&] { return handedCount() >= wanted; });
}

}  // namespace sentrel::test
