// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "stage/bus_doubles.h"
#include "stage/document_desktop.h"
#include "stage/headless_desktop.h"
#include "stage/pictures.h"
#include "stage/state_watcher.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {

/// A day with the program: the session locks and wakes, the camera is pulled, somebody looks on, the battery
/// runs low. Leaves in a folder a timeline of what happened and what followed, and pictures. Main thread.
class DayDemo {
 public:
  /// The folder is emptied. Needs a desktop with both buses, PipeWire and X11.
  DayDemo(HeadlessDesktop& desktop, std::filesystem::path folder, std::string program);

  /// Plays the day; the exit code of the demonstration.
  int run();

 private:
  using Time = std::chrono::steady_clock::time_point;

  void prepare();
  void lockAndWake();
  void pullTheCamera();
  void lookOn();
  void runLow();
  void quit();

  /// Something happens; the words go to the timeline.
  void happens(const std::string& words, const std::function<void()>& action);
  /// Waits for what follows, and notes how long it took since the last happening.
  void follows(const std::string& words, const std::function<bool()>& condition);
  void followsState(const std::string& state);
  void followsCamera(bool open);
  /// Looks for a while that nothing follows.
  void nothingFollows();
  void picture(const std::string& name);
  void note(const std::string& words);
  [[nodiscard]] bool runUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit);
  [[nodiscard]] double brightness(const std::string& name) const;
  [[nodiscard]] int notifications() const;

  HeadlessDesktop& desktop_;
  std::filesystem::path folder_;
  std::string binary_;
  MockSession session_;
  DocumentDesktop document_;
  QImage alone_;
  QImage watched_;
  std::atomic<bool> isWatched_ = false;
  VirtualCamera camera_;
  StateWatcher watcher_;
  ChildProcess notificationServer_;
  ChildProcess program_;
  Time began_ = std::chrono::steady_clock::now();
  Time happened_ = began_;
  std::vector<std::string> timeline_;
};

}  // namespace sentrel::test
