// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <QPoint>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "gnome_shell.h"
#include "stage/document_desktop.h"
#include "stage/pictures.h"
#include "stage/state_watcher.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {

/// The program on a real desktop: in every state it must cover what it should, and every click must reach
/// what lies below: a Wayland window, an X11 window, the desktop's own panel, and the program's own switch.
class DesktopTrial {
 public:
  /// The folder is emptied. So many clicks go to each target while the tint flashes.
  DesktopTrial(HeadlessDesktop& desktop, const GnomeShell& shell, std::filesystem::path folder,
               std::string program, int clicks);

  /// Prints what it saw and gives the exit code.
  [[nodiscard]] int run();

 private:
  enum class Seen { alone, away, watched };
  /// How many clicks of how many arrived.
  struct Row {
    std::string state;
    std::string target;
    int passed = 0;
    int clicks = 0;
  };

  void prepare();
  void bringAbout(const std::string& state);
  /// Brings the state about, takes a picture of this name, and clicks.
  void clickThrough(const std::string& name, const std::string& state, int clicks);
  void clickEverywhere(const std::string& state, int clicks);
  void clickAt(const std::string& state, const std::string& target, int clicks,
               const std::vector<QPoint>& points, const std::function<int()>& arrived);
  void outliveHangingDesktop();
  void openOverview(const std::string& state);
  void switchOffWithTheMouse();
  void quit();
  [[nodiscard]] bool judge() const;
  [[nodiscard]] std::string faultInPictures() const;
  [[nodiscard]] double processorSeconds() const;

  void follows(const std::string& words, const std::function<bool()>& condition);
  [[nodiscard]] static bool runUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit);
  void picture(const std::string& name);
  [[nodiscard]] bool isIn(const std::string& state) const;

  HeadlessDesktop& desktop_;
  const GnomeShell& shell_;
  std::filesystem::path folder_;
  std::string binary_;
  int clicks_;
  DocumentDesktop document_;
  QImage alone_;
  QImage away_;
  QImage watched_;
  std::atomic<Seen> seen_ = Seen::alone;
  VirtualCamera camera_;
  StateWatcher watcher_;
  ChildProcess otherWindow_;
  ChildProcess program_;
  std::vector<Row> rows_;
};

}  // namespace sentrel::test
