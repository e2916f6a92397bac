// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QRect>
#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "stage/document_desktop.h"
#include "stage/headless_desktop.h"
#include "stage/pictures.h"
#include "stage/state_watcher.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {

/// No two frames of a camera are the same. One thread.
class CameraNoise {
 public:
  CameraNoise();
  /// Valid until the next call.
  [[nodiscard]] const std::uint8_t* over(const QImage& picture);

 private:
  std::vector<std::int8_t> noise_;
  std::vector<std::uint8_t> shown_;
  std::minstd_rand random_;
};

/// The program on a private desktop, with a document below its cover and its user before a virtual camera,
/// who has agreed to the camera long ago. What is to happen says the class that derives from it. Main thread.
class ProgramTrial {
 public:
  /// The folder is emptied. Needs a desktop with a screen, PipeWire and a session bus.
  ProgramTrial(HeadlessDesktop& desktop, std::filesystem::path folder, std::string program);
  virtual ~ProgramTrial() { camera_.vanish(); }  // its thread uses what goes now
  ProgramTrial(const ProgramTrial&) = delete;
  ProgramTrial& operator=(const ProgramTrial&) = delete;

  /// The exit code; what went wrong was printed.
  [[nodiscard]] int run();

 protected:
  enum class Seen { alone, away, watched, watchedFromAfar, watchedFromElsewhere, turnedAway };

  /// Throws std::runtime_error when something else happens than it should.
  virtual void play() = 0;
  virtual void stateChanged(const StateWatcher::Entry& /*entry*/) {}
  virtual void screenshot(const std::filesystem::path& path) { desktop_.screenshot(path); }

  /// Returns once it is on the screen, of which "00-uncovered" is a picture then.
  void showDocument();
  /// What the camera sees from now on. It is plugged in the first time.
  void see(Seen seen);
  /// Another picture of 640 x 480, with noise or, to the bit, always the same.
  void see(const QImage& picture, bool isFrozen = false);
  void start() { program_ = desktop_.spawn(binary_); }
  void quit();

  /// Throws std::runtime_error where it does not come to that, or the program ends first.
  void waitFor(const std::string& words, const std::function<bool()>& condition);
  /// Runs the event loop; false when the time is over.
  [[nodiscard]] static bool runUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit);
  static void pause(std::chrono::milliseconds length) {
    (void)runUntil([] { return false; }, length);
  }

  /// Of what has been on the screen for `pictureDelay_`.
  void takePicture(const std::string& name) {
    pause(pictureDelay_);
    screenshot(pathOf(name));
  }
  [[nodiscard]] bool isIn(const std::string& state) const;
  [[nodiscard]] std::filesystem::path pathOf(const std::string& picture) const {
    return folder_ / (picture + ".png");
  }
  /// Throws std::runtime_error where there is none.
  [[nodiscard]] QImage picture(const std::string& name) const;
  /// 0 to 255, of a sample of the pixels; of the whole picture unless a part is named.
  [[nodiscard]] double brightness(const std::string& name, const QRect& part = {}) const;
  /// Where the onlooker's picture belongs.
  [[nodiscard]] static QRect onlookerPlace(const QSize& screen) {
    return {screen.width() - 276, screen.height() - 272, 256, 192};
  }
  /// Whether it is there: something green, framed in green.
  [[nodiscard]] static bool showsOnlooker(const QImage& screen);
  /// Throws std::runtime_error unless each state covers more of the document than the one before, and only
  /// the last one shows the onlooker. Pictures of: no cover, nominal, inattention, alert.
  void judgeCovers(const std::array<std::string, 4>& names, const QRect& part = {}) const;

  HeadlessDesktop& desktop_;
  const std::filesystem::path folder_;
  const std::string binary_;
  const PortraitScene portrait_;
  DocumentDesktop document_;
  VirtualCamera camera_;
  StateWatcher watcher_;
  ChildProcess program_;
  /// Long enough after a change for the cover to be composed.
  std::chrono::milliseconds pictureDelay_{700};

 private:
  CameraNoise noise_;
  bool pluggedIn_ = false;
};

/// The user looks, turns away, looks again, and somebody looks on and leaves. Needs X11 or Wayland.
[[nodiscard]] std::unique_ptr<ProgramTrial> onlookerDemo(HeadlessDesktop& desktop,
                                                         const std::filesystem::path& folder,
                                                         const std::string& program);
/// A day with the program: the session locks and wakes, the camera is pulled, somebody looks on, the battery
/// runs low. Needs X11 and both buses.
[[nodiscard]] std::unique_ptr<ProgramTrial> dayDemo(HeadlessDesktop& desktop,
                                                    const std::filesystem::path& folder,
                                                    const std::string& program);
/// What the person asks for: a pause, a guest, a face that is nobody, answers to the notification, and the
/// cover of every screen. Needs X11 and both buses.
[[nodiscard]] std::unique_ptr<ProgramTrial> handsDemo(HeadlessDesktop& desktop,
                                                      const std::filesystem::path& folder,
                                                      const std::string& program);
/// What the program shows of itself: what keeps the camera from seeing, what protection sees, what it proves,
/// its journal, and what the doctor says. Needs X11 and both buses.
[[nodiscard]] std::unique_ptr<ProgramTrial> showsDemo(HeadlessDesktop& desktop,
                                                      const std::filesystem::path& folder,
                                                      const std::string& program);

}  // namespace sentrel::test
