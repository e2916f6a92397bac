// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QVariantList>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "soak_watch.h"
#include "stage/bus_doubles.h"
#include "stage/headless_desktop.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {

/// The person, the cameras, the services and the screens around the program, and what happens to them. One
/// thread; ends with the program.
class SoakLife {
 public:
  struct Parts {
    HeadlessDesktop& desktop;  ///< with both buses, PipeWire, X11 and screens side by side
    SoakJournal& journal;
    std::string program;
    unsigned seed;
    int fps;                               ///< of the cameras
    const std::atomic<bool>& interrupted;  ///< nothing is waited for any more
  };
  explicit SoakLife(Parts parts);

  static constexpr int screenWidth = 1280;
  static constexpr int screenHeight = 720;
  static constexpr int mostScreens = 2;

  /// Starts the program as a new person does, and lets everything happen once that leaves something behind
  /// for good.
  void begin();
  /// Something happens, by chance, and some time passes.
  void happen();
  /// A person alone before one camera and one screen, without windows, with protection switched on.
  void calmDown();
  /// Opens a window that takes no pictures, and closes it.
  void glance();
  /// An onlooker, who must be noticed.
  void lookOn();
  void lock(bool locked) { locked ? goAway(&SoakWorld::locked) : comeBack(&SoakWorld::locked); }
  /// Waits for the state; a breach when it does not come.
  void reach(const std::string& state);
  void quit();

  /// False when the time is over, or the person wants an end.
  [[nodiscard]] bool wait(const std::function<bool()>& condition,
                          std::chrono::milliseconds limit = std::chrono::seconds(20)) const;
  [[nodiscard]] const SoakWatch& watch() const { return *watch_; }
  [[nodiscard]] ChildProcess& program() { return program_; }

 private:
  using Edit = std::function<void(SoakWorld&)>;
  using Reason = bool SoakWorld::*;
  enum class Window { none, popover, preferences, calibration };
  enum class Scene { alone, watched, away };

  void passOnboarding();
  void happenOnce();
  void changeScene(Scene scene);
  void goAway(Reason reason);
  void comeBack(Reason reason);
  void askToLock();
  void runLow();
  void plug(std::size_t camera, bool there);
  void give(std::size_t camera, bool gives);
  void restartPipeWire();
  void restartBus(TestBus bus);
  void joinBuses();
  void setMonitors(int count);
  void openWindow(Window window, const char* action);
  void closeWindow();
  void chooseCamera();
  void startCalibration();
  void toggle();
  void pauseForAWhile();
  void welcomeGuest();
  void callItNobody();
  void shareScreen();
  void cover();

  /// Does it, and says what is true of the world then.
  void change(const std::string& words, const Edit& edit, const std::function<void()>& action);
  /// Not where the person has ended everything.
  void breach(const std::string& words);
  void activate(const char* action) const;
  /// A method of the program; a breach where it goes on refusing what it must do.
  void command(const char* method, const QVariantList& arguments = {});
  [[nodiscard]] qlonglong number(const char* property) const;
  /// A person alone whom it protects; false where that cannot be now.
  [[nodiscard]] bool comesToRest();
  void press(const std::string& key);
  void pause(std::chrono::milliseconds length) const;
  [[nodiscard]] unsigned chance(unsigned in) { return static_cast<unsigned>(random_() % in); }
  [[nodiscard]] std::chrono::milliseconds some(unsigned least, unsigned most) {
    return std::chrono::milliseconds(least + chance(most - least + 1));
  }

  const Parts parts_;
  HeadlessDesktop& desktop_;
  std::mt19937 random_;
  std::vector<QImage> scenes_;
  std::atomic<Scene> scene_ = Scene::alone;
  std::array<std::atomic<bool>, 2> gives_{true, true};
  std::atomic<int> frames_ = 0;  // that can be analysed
  std::array<std::unique_ptr<VirtualCamera>, 2> cameras_;
  std::optional<MockSession> session_;
  ChildProcess notificationServer_;
  ChildProcess program_;
  std::unique_ptr<SoakWatch> watch_;
  Window window_ = Window::none;
};

}  // namespace sentrel::test
