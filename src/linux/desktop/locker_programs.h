// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QSocketNotifier>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "support/main_loop.h"
#include "support/registration.h"

namespace sentrel {

/// Screen lockers that tell nobody that they lock, as that of sway: the screen is locked while one of their
/// programs runs on our display. The kernel tells when such a program is opened and when it ends, so nothing
/// is asked meanwhile. One that becomes another user when it starts cannot be told from another display's,
/// and does not count. Main thread.
class LockerPrograms {
 public:
  /// Tells in a later turn whether one runs, and then each change.
  using Observer = std::function<void(bool runs, bool isFirst)>;

  LockerPrograms(std::shared_ptr<MainLoop> mainLoop, Observer observer);
  ~LockerPrograms();
  LockerPrograms(const LockerPrograms&) = delete;
  LockerPrograms& operator=(const LockerPrograms&) = delete;

 private:
  class Process;

  void watchFiles();
  void filesWereUsed();
  /// And some times again, where nothing is found: who opens a program has not become it yet.
  void look(int more);

  const std::shared_ptr<MainLoop> mainLoop_;
  const Observer observer_;
  const int files_;  // of the kernel, which tells of the programs' files
  QSocketNotifier used_;
  std::vector<std::unique_ptr<Process>> running_;
  std::optional<bool> told_;
  Registration nextLook_;
};

}  // namespace sentrel
