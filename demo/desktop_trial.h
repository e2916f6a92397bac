// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPoint>
#include <QRect>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "desktop_shell.h"
#include "program_trial.h"

namespace sentrel::test {

/// The program on a real desktop: in every state it must cover what it should, and every click and key must
/// reach what lies below: windows of Wayland and of X11, the desktop's own panel and keys, and the program's
/// own windows. The same on every desktop; what one does not have is told in the table. Main thread.
class DesktopTrial final : public ProgramTrial {
 public:
  /// So many clicks and keys go to each target in each state.
  DesktopTrial(HeadlessDesktop& desktop, const DesktopKind& kind, DesktopShell& shell,
               const std::filesystem::path& folder, const std::string& program, int clicks);

 private:
  /// How many of something arrived, or why the desktop does not have it.
  struct Row {
    std::string topic;  ///< "clicks", "lock": what the table of all desktops has a column for
    std::string what;
    int passed = 0;
    int wanted = 0;
    std::string notHere{};
  };

  void play() override;
  void screenshot(const std::filesystem::path& path) override { shell_.screenshot(path); }

  // What is tried, in this order.
  void prepare();
  void runForTheFirstTime();
  /// Brings the state about, takes a picture of this name, and clicks and types.
  void reachThrough(const std::string& name, const std::string& state);
  void coverFullScreenWindow();
  void coverSecondOutput();
  void coverAtScale(double scale);
  void followAppearance();
  void openPreferences();
  void lockAndUnlock();
  void showNotification();
  void openOverview();
  void outliveHangingDesktop();
  void switchOffByKeys();
  void switchOffByMouse();
  void leaveNothing();
  void lockWithoutProgram();
  void writeTable() const;

  void bringAbout(const std::string& state);
  void fillScreenAgain();
  void coverDocument(const std::string& name, const QRect& place);
  /// Of the document's window; empty where it is not there.
  [[nodiscard]] QSize documentSize() { return shell_.window(document_.title()).value_or(QRect()).size(); }
  /// Brings the state about, and takes a picture of this name once the screen shows it.
  void takePictureIn(const std::string& state, const std::string& name);
  void reachEverything(const std::string& when);
  void reachOwnWindow(const std::string& when);
  /// How many of `clicks_` were counted.
  [[nodiscard]] int clicksPassed(const std::vector<QPoint>& points, const std::function<int()>& count,
                                 void (DesktopShell::*press)(QPoint) = &DesktopShell::click);
  [[nodiscard]] int keysPassed(const std::string& key, const std::function<int()>& count);
  [[nodiscard]] int wordsPrinted(const char* words) const;  ///< by the X11 window

  /// Opens the program's window as a second start does, or closes it.
  void openPopover();
  void closePopover();
  /// The window's place without its shadow.
  [[nodiscard]] QRect popover();
  /// Of two pictures, 0 to 255, of a sample of the pixels.
  [[nodiscard]] double difference(const std::string& one, const std::string& another,
                                  const QRect& part) const;

  /// A row of what is done now, and of how much of it passed; of a desktop that does not have it, why. What
  /// fails leaves a row that failed.
  void record(const std::string& topic, const std::string& what, int wanted,
              const std::function<int()>& passed);
  /// As one thing that happens or throws.
  void record(const std::string& topic, const std::string& what, const std::function<void()>& happens) {
    record(topic, what, 1, [&] { return happens(), 1; });
  }
  void follows(const std::string& words, const std::function<bool()>& condition);

  const DesktopKind& kind_;
  DesktopShell& shell_;
  const int clicks_;
  ChildProcess otherWindow_;
  std::vector<Row> rows_;
};

}  // namespace sentrel::test
