// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "stage/headless_desktop.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {

/// What has happened, for the log and for whoever watches. Any thread.
class SoakJournal {
 public:
  /// The log is written anew.
  explicit SoakJournal(const std::filesystem::path& log);

  void log(const std::string& words);
  /// Also to whoever watches.
  void say(const std::string& words);
  void happening(const std::string& words);
  /// With what happened before it.
  void breach(const std::string& words);

  [[nodiscard]] int happenings() const { return happenings_; }
  [[nodiscard]] int breaches() const { return breaches_; }
  [[nodiscard]] std::chrono::steady_clock::duration passed() const {
    return std::chrono::steady_clock::now() - began_;
  }

 private:
  [[nodiscard]] std::string time() const;

  const std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
  std::atomic<int> happenings_ = 0;
  std::atomic<int> breaches_ = 0;
  std::mutex mutex_;  // for what follows
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
  std::deque<std::string> last_;
};

/// What the life has made of the machine, as far as the program must answer for it.
struct SoakWorld {
  bool agreed = false;  ///< to the camera
  bool wished = false;  ///< protection is switched on
  bool calibrating = false;
  bool locked = false;
  bool lockerCovers = false;
  bool asleep = false;
  bool switchedAway = false;
  bool lockAsked = false;  ///< and nobody has confirmed it
  bool paused = false;     ///< for a time, by a command
  bool shared = false;     ///< others see the screen
  bool covered = false;    ///< every screen, by a command
  bool unclear = false;    ///< it need not have heard of everything yet
  bool pipeWire = true;
  bool sessionBus = true;
  bool started = false;  ///< the program
  struct Camera {
    bool there = false;
    bool gives = true;  ///< pictures that can be analysed
  };
  std::array<Camera, 2> cameras{};
  int monitors = 1;

  [[nodiscard]] bool isAway() const { return locked || lockerCovers || asleep || switchedAway || lockAsked; }
};

/// Watches the running program from outside, for as long as it lives: its state on the bus, whether the
/// cameras are open and who looks at their frames, what lies over the screen. Compares that with what the
/// world asks for, and tells every breach once. Time in which this process itself was held up does not count.
class SoakWatch {
 public:
  using Duration = std::chrono::steady_clock::duration;

  struct Parts {
    const HeadlessDesktop& desktop;
    std::array<const VirtualCamera*, 2> cameras;
    const std::atomic<int>& frames;  ///< given so far that can be analysed
    int monitorWidth;
    int monitorHeight;
    SoakJournal& journal;  ///< gets the breaches, on a thread of the watch
  };
  struct Longest {
    double closingMs = 0;     ///< from a reason to rest, or the end of every wish, to closed cameras
    double protectingMs = 0;  ///< from everything being there to protection
    double blindMs = 0;       ///< without a frame while the program said that it sees
    double answerMs = 0;      ///< until the program told its state
  };

  explicit SoakWatch(Parts parts);
  ~SoakWatch();
  SoakWatch(const SoakWatch&) = delete;
  SoakWatch& operator=(const SoakWatch&) = delete;

  [[nodiscard]] const SoakWorld& world() const { return world_; }
  /// Whether nothing keeps it from protecting. The life's thread.
  [[nodiscard]] bool mustProtect() const { return expectedIn(world_) == Expected::protecting; }
  /// The world becomes another one by what `action` does. Until it is done, nothing is expected that is not
  /// expected of both. The life's thread.
  void change(const std::function<void(SoakWorld&)>& edit, const std::function<void()>& action);
  [[nodiscard]] std::string state() const;
  /// The program's windows that a window manager knows.
  [[nodiscard]] int windows() const { return windows_; }
  [[nodiscard]] bool cameraIsOpen() const;
  [[nodiscard]] int alerts() const { return alerts_; }
  /// For how long, and how often, the program has said that protection is active.
  [[nodiscard]] std::chrono::duration<double> activeFor() const;
  [[nodiscard]] int sessions() const;
  [[nodiscard]] Longest longest() const;

 private:
  class Screen;
  /// What the world asks of the program.
  enum class Expected { anything, closed, protecting };
  enum class Rule { saysThatItSees, protects, closes, rests, stops, answers, covers, uncovers, count };

  [[nodiscard]] static Expected expectedIn(const SoakWorld& world);
  void ask(const std::stop_token& stop);
  void answered(Duration asked, const std::string& state, bool active);
  void look(const std::stop_token& stop);
  void judge();
  void judgeScreen(Duration now);
  void require(Rule rule, bool holds, const std::string& words);
  [[nodiscard]] static double milli(Duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
  }

  const Parts parts_;
  SoakWorld world_;  // the life's thread

  std::atomic<Duration> now_{Duration{}};
  std::atomic<int> windows_ = 0;
  std::atomic<int> alerts_ = 0;

  mutable std::mutex mutex_;  // for all that follows
  int frames_ = 0;            // that were given at `lastFrame_`
  Duration lastFrame_{};
  Expected expected_ = Expected::anything;
  Duration expectedSince_{};
  Duration protectedAt_{};  // or expected to be from then on
  bool closingMeasured_ = true;
  bool protectingMeasured_ = true;
  bool started_ = false;
  bool wished_ = false;
  bool calibrating_ = false;
  bool shared_ = false;
  bool covered_ = false;
  bool away_ = false;
  bool sessionBus_ = true;
  int monitors_ = 1;
  Duration worldSince_{};
  std::string state_ = "inactive";
  Duration stateSince_{};
  Duration answeredAt_{};
  std::optional<std::chrono::steady_clock::time_point> activeAt_;  // the last time that it said so
  std::chrono::steady_clock::duration activeFor_{};
  int sessions_ = 0;
  std::optional<Duration> openSince_;
  int covers_ = 0;
  Duration coversSince_{};
  Duration coversAt_{};
  std::array<bool, static_cast<std::size_t>(Rule::count)> broken_{};
  Longest longest_;

  std::jthread asker_;
  std::jthread looker_;
};

}  // namespace sentrel::test
