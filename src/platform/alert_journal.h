// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "support/published.h"

namespace sentrel {

/// How an alert ended.
enum class AlertEnd {
  gone,        ///< nobody looked on any more
  nobody,      ///< the person said that it is nobody
  welcomed,    ///< the person said that it is a guest
  paused,      ///< by the person, or because others see the screen
  away,        ///< locked, asleep, another session, or dark displays
  lowBattery,  ///< protection rests below its threshold
  blind,       ///< the camera gave nothing any more
  off,         ///< protection was switched off, or the program ended
};

/// One alert, without a picture and without a name of a window or program: a plain value.
struct AlertRecord {
  std::int64_t beganMs = 0;  ///< milliseconds since 1970
  std::int64_t lengthMs = 0;
  std::int64_t faces = 0;  ///< the most at the same time that counted, the person's own among them
  double widestFace = 0;   ///< of the onlookers, as a share of the picture's width
  std::string camera{};    ///< its name
  bool darkened = false;   ///< what was done: the screens darkened, ...
  bool notified = false;   ///< ... and a notification was shown
  AlertEnd end = AlertEnd::gone;

  bool operator==(const AlertRecord&) const = default;
};

/// What is kept of alerts where the person wants it; whoever calls `add` knows that they do. Main thread;
/// nothing here waits for the disk.
class AlertJournal {
 public:
  virtual ~AlertJournal() = default;

  /// Keeps one more. Its beginning is by the program's clock.
  virtual void add(AlertRecord record) = 0;
  /// Forgets all of them.
  virtual void erase() = 0;

  /// Gives all that is kept, the oldest first, in a later turn. Times are by the clock on the wall.
  virtual void read(std::function<void(const std::vector<AlertRecord>& records)> reader) = 0;
  /// Writes them as a table to a new file of this name, and tells in a later turn whether that is done.
  virtual void exportTo(std::string path, std::function<void(bool isDone)> told) = 0;

  /// The key of a text that tells why the journal is not whole; empty while it is.
  Published<std::string> trouble;
};

}  // namespace sentrel
