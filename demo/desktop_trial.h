// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPoint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "desktop_shell.h"
#include "program_trial.h"

namespace sentrel::test {

/// The program on a real desktop: in every state it must cover what it should, and every click must reach
/// what lies below: windows of Wayland and of X11, the desktop's own panel, and the program's own switch. The
/// same on every desktop; what one does not have is told in the table. Main thread.
class DesktopTrial final : public ProgramTrial {
 public:
  /// So many clicks go to each target while the tint flashes.
  DesktopTrial(HeadlessDesktop& desktop, const DesktopKind& kind, DesktopShell& shell,
               const std::filesystem::path& folder, const std::string& program, int clicks);

 private:
  /// How many of something arrived, or why the desktop does not have it.
  struct Row {
    std::string state;
    std::string target;
    int passed = 0;
    int wanted = 0;
    std::string notHere;
  };

  void play() override;
  void screenshot(const std::filesystem::path& path) override { shell_.screenshot(path); }

  void prepare();
  void bringAbout(const std::string& state);
  /// Brings the state about, takes a picture of this name, and clicks.
  void clickThrough(const std::string& name, const std::string& state, int clicks);
  void clickEverywhere(const std::string& state, int clicks);
  /// How many of so many clicks were counted.
  [[nodiscard]] int clicksPassed(int clicks, const std::vector<QPoint>& points,
                                 const std::function<int()>& count);
  void outliveHangingDesktop();
  void openOverview(const std::string& state);
  void switchOffWithTheMouse();
  void judge() const;

  /// A row of what is done now, and of how much of it passed; of a desktop that does not have it, why.
  void record(const std::string& state, const std::string& target, int wanted,
              const std::function<int()>& passed);
  void follows(const std::string& words, const std::function<bool()>& condition);

  const DesktopKind& kind_;
  DesktopShell& shell_;
  const int clicks_;
  ChildProcess otherWindow_;
  std::vector<Row> rows_;
};

}  // namespace sentrel::test
