// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QPoint>
#include <QStringList>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "program_trial.h"
#include "stage/bus_doubles.h"

namespace sentrel::test {

/// A trial in a session whose services are mocks, with a timeline of what happened and what followed. Main
/// thread.
class SessionTrial : public ProgramTrial {
 public:
  using ProgramTrial::ProgramTrial;

 protected:
  using SteadyClock = std::chrono::steady_clock;

  void stateChanged(const StateWatcher::Entry& entry) override { note("state: " + entry.state); }

  /// Something happens; the words go to the timeline.
  void happens(const std::string& words, const std::function<void()>& action) {
    note("-- " + words);
    happened_ = SteadyClock::now();
    action();
  }

  /// Waits for what follows, and notes how long it took since the last happening.
  void follows(const std::string& words, const std::function<bool()>& condition) {
    waitFor(words, condition);
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(SteadyClock::now() - happened_);
    note(words + " (" + std::to_string(took.count()) + " ms)");
  }

  void followsState(const std::string& state) {
    follows("protection is in " + state, [&] { return isIn(state); });
  }

  void followsCamera(bool open) {
    follows(open ? "the camera is open" : "the camera is closed", [&] { return camera_.isOpen() == open; });
  }

  void note(const std::string& words) {
    const std::chrono::duration<double> passed = SteadyClock::now() - began_;
    timeline_.push_back(QString::asprintf("%7.3f s  ", passed.count()).toStdString() + words);
    std::printf("  %s\n", timeline_.back().c_str());
  }

  /// The program protects the user, who is alone. The timeline begins here.
  void begin();
  void end();
  void writeTimeline() const;
  /// That nothing went wrong.
  void tellSuccess() const;

  /// `sentrel WORDS`, which is to end well; gives what it printed.
  std::string command(const std::vector<std::string>& words);
  /// Ends the program, and starts it with these options alone and nobody looking on.
  void startWith(const QJsonObject& options);

  /// The program's window, where the pointer is.
  void openPopover();
  void closePopover();
  void takePopover(const std::string& name);
  void press(const std::vector<std::string>& keys);
  void click(const std::string& what, QPoint at);

  /// Answers what notification servers are asked beside "Notify".
  static void describe(BusDouble& notificationServer, const QStringList& capabilities);

  MockSession session_{desktop_};
  SteadyClock::time_point began_ = SteadyClock::now();
  SteadyClock::time_point happened_ = began_;

 private:
  std::vector<std::string> timeline_;
  QStringList chosen_;  // options that the program was started with
};

}  // namespace sentrel::test
