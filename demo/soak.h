// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "soak_watch.h"
#include "stage/headless_desktop.h"
#include "stage/played_session.h"
#include "stage/process_usage.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {

/// A random life with the program, an hour's happenings in a minute, between rests at which nothing may have
/// been left behind. The same seed gives the same life, as far as the machine is as quick. Main thread.
class Soak {
 public:
  struct Options {
    std::chrono::minutes length;
    unsigned seed;
    std::filesystem::path folder;  ///< is emptied; gets the log and what the program printed
    std::string program;
    const std::atomic<bool>* interrupted;  ///< the person wants an end
  };
  /// The desktop needs both buses, PipeWire and X11, and screens side by side.
  Soak(HeadlessDesktop& desktop, Options options);

  /// Lives to the end; the exit code.
  int run();

  static constexpr int screenWidth = 1280;
  static constexpr int screenHeight = 720;
  static constexpr int mostScreens = 2;

 private:
  using SteadyClock = std::chrono::steady_clock;
  using Edit = std::function<void(SoakWorld&)>;
  enum class Window { none, popover, preferences, calibration };
  enum class Scene { alone, watched, away, count };

  void begin();
  void passOnboarding();
  void live();
  void happen();
  void end();
  void summarize();
  [[nodiscard]] bool goesOn() const;

  // The happenings.
  void changeScene(Scene scene);
  void goAway(bool SoakWorld::*reason);
  void comeBack(bool SoakWorld::*reason);
  void askToLock();
  void runLow();
  void plug(std::size_t camera, bool there);
  void give(std::size_t camera, bool gives);
  void restartPipeWire();
  void restartBus(TestBus bus);
  void setMonitors(int count);
  void openWindow(Window window, const char* action);
  void closeWindow();
  void chooseCamera();
  void startCalibration();
  void toggle();

  /// Brings everything into the state of rest, waits for it, and compares with the rests before.
  void rest();
  void reach(const std::string& state);
  void restIn(const std::string& state);
  [[nodiscard]] ProcessUsage settledUsage() const;
  void compareHours();

  void change(const std::string& words, const Edit& edit, const std::function<void()>& action);
  void activate(const char* action) const;
  void press(const std::string& key);
  void pause(std::chrono::milliseconds length) const;
  /// False when the time is over.
  [[nodiscard]] bool wait(const std::function<bool()>& condition,
                          std::chrono::milliseconds limit = std::chrono::seconds(20)) const;
  [[nodiscard]] unsigned chance(unsigned in) { return static_cast<unsigned>(random_() % in); }
  [[nodiscard]] std::chrono::milliseconds some(unsigned least, unsigned most) {
    return std::chrono::milliseconds(least + random_() % (most - least + 1));
  }
  [[nodiscard]] std::string time() const;
  void log(const std::string& words);
  void say(const std::string& words);
  void breach(const std::string& words);

  HeadlessDesktop& desktop_;
  const Options options_;
  const SteadyClock::time_point began_ = SteadyClock::now();
  std::mt19937 random_;
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> log_;
  mutable std::mutex mutex_;  // for the log and the last happenings
  std::deque<std::string> last_;

  std::vector<QImage> scenes_;
  std::atomic<Scene> scene_ = Scene::alone;
  std::array<std::atomic<bool>, 2> gives_{true, true};
  std::array<std::unique_ptr<VirtualCamera>, 2> cameras_;
  std::optional<PlayedSession> session_;
  ChildProcess notificationServer_;
  ChildProcess program_;
  std::unique_ptr<SoakWatch> watch_;

  Window window_ = Window::none;
  int happenings_ = 0;
  std::atomic<int> breaches_ = 0;
  std::map<std::string, std::vector<ProcessUsage>> rests_;  // by state, since the first tenth
};

}  // namespace sentrel::test
