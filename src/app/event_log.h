// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QLoggingCategory>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "detection/camera_control.h"
#include "linux/desktop/bus.h"
#include "platform/platform.h"
#include "service/privacy_filter_service.h"
#include "support/registration.h"

namespace sentrel {

/// Logs what the rules of the variable SENTREL_LOG ask for: those of the toolkit, with semicolons for new
/// lines. To the journal, with priorities, where standard error leads there. Once, before anything is logged.
void obeyLoggingRules();

/// Follows the parts of the program and keeps what happened last. Each event is also logged, at info, in one
/// of the categories sentrel.state, sentrel.camera, sentrel.display, sentrel.desktop and sentrel.bus; in
/// English, for whoever reads logs. Never a picture, the place of a face or the title of a window. Main
/// thread.
class EventLog {
 public:
  static constexpr std::size_t most = 20;

  struct Parts {
    Platform platform;
    std::shared_ptr<PrivacyFilterService> service;
    std::shared_ptr<CameraControl> cameraControl;
    std::shared_ptr<Bus> sessionBus;
  };

  struct Event {
    std::int64_t sinceStartMs;
    std::string words;  ///< after its category
  };

  explicit EventLog(Parts parts);
  EventLog(const EventLog&) = delete;
  EventLog& operator=(const EventLog&) = delete;

  /// In their order.
  [[nodiscard]] const std::deque<Event>& last() const { return last_; }
  [[nodiscard]] std::int64_t runningMs() const;

 private:
  using Category = const QLoggingCategory& (*)();

  void note(Category category, const QString& words);
  void noteCamera();
  void noteScreens();

  const Parts parts_;
  const std::int64_t startedMs_;
  std::deque<Event> last_;
  std::map<std::string, QString> newest_;  // by category: what repeats itself is no event
  std::vector<Registration> registrations_;
};

}  // namespace sentrel
