// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QImage>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "desktop_shell.h"

namespace sentrel::test {

/// A screen locker that is a program of its own and fills the screen with a colour: swaylock, or i3lock.
class ScreenLocker {
 public:
  /// `program` with what it needs to stay in the foreground. Which signal ends it says its manual.
  ScreenLocker(const HeadlessDesktop& desktop, std::string program, int endSignal)
      : folder_(desktop.runtimeFolder()), program_(std::move(program)), endSignal_(endSignal) {}

  /// For the desktop's key or command that locks.
  [[nodiscard]] std::string command() const {
    return program_ + " --color 204060 & echo $! >" + (folder_ / "locker").string();
  }

  /// To be called once the desktop was asked to lock.
  void waitUntilShown(DesktopShell& shell) const {
    const auto isShown = [&] {
      const auto picture = folder_ / "look.png";
      shell.screenshot(picture);
      return QImage(QString::fromStdString(picture.string())).pixel(20, 500) == qRgb(0x20, 0x40, 0x60);
    };
    if (!waitUntil(isShown, limit, std::chrono::milliseconds(200)))
      throw std::runtime_error(program_ + " does not cover the screen");
  }

  void end() const {
    pid_t process = 0;
    std::ifstream(folder_ / "locker") >> process;
    if (process <= 0) throw std::runtime_error("no locker runs");
    ::kill(process, endSignal_);
    const auto hasEnded = [&] {
      std::error_code error;
      return std::filesystem::read_symlink("/proc/" + std::to_string(process) + "/exe", error).empty();
    };
    if (!waitUntil(hasEnded, limit)) throw std::runtime_error(program_ + " does not end");
  }

 private:
  /// The processor draws it, on a machine that may be busy.
  static constexpr std::chrono::seconds limit{60};

  const std::filesystem::path folder_;
  const std::string program_;
  const int endSignal_;
};

}  // namespace sentrel::test
