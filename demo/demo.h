// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QTimer>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "onlooker_scene.h"
#include "stage/document_desktop.h"
#include "stage/headless_desktop.h"
#include "stage/pictures.h"
#include "stage/state_watcher.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {

/// One run of the demonstration, driven by the event loop, which it ends with its exit code. Main thread.
class Demo final : public QObject {
  Q_OBJECT

 public:
  /// The folder is emptied.
  Demo(HeadlessDesktop& desktop, std::filesystem::path folder, std::string program);

  void begin();

 private:
  struct Shot {
    std::filesystem::path path;
    ChildProcess process;
  };

  /// Takes the picture of the uncovered screen.
  [[nodiscard]] bool documentIsShown();
  void startProgram();
  void sceneBegan();
  void stateChanged(const StateWatcher::Entry& entry);
  void takePicture(const std::string& name);
  void look();
  void finish();
  void fail(const std::string& reason);
  void say(const std::string& words) const;
  /// Milliseconds since the scene began; 0 for what came before.
  [[nodiscard]] std::int64_t sinceBeginning(std::chrono::steady_clock::time_point moment) const;
  void writeTimeline() const;
  [[nodiscard]] std::string orderOfStates() const;
  [[nodiscard]] std::string faultInPictures() const;

  HeadlessDesktop& desktop_;
  std::filesystem::path folder_;
  std::string binary_;
  DocumentDesktop document_;
  PortraitScene portrait_;
  OnlookerScene scene_;
  VirtualCamera camera_;
  StateWatcher watcher_;
  ChildProcess program_;
  std::vector<Shot> shots_;
  QTimer looks_;
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
  // Written by the camera's thread at the first frame; nanoseconds of the steady clock, 0 before.
  std::atomic<std::int64_t> firstFrameNs_ = 0;
  std::optional<std::chrono::steady_clock::time_point> began_;
  std::optional<std::chrono::steady_clock::time_point> calmSince_;
  bool done_ = false;
};

}  // namespace sentrel::test
