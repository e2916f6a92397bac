// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "detection/filter_fsm.h"
#include "detection/onlooker_filter.h"
#include "platform/alert_journal.h"
#include "service/relaxations.h"
#include "service/service_dependencies.h"

namespace sentrel {

/// Makes a record of each alert, and adds it to the journal when the alert is over and the person wants one
/// kept. Main thread.
class AlertRecorder {
 public:
  AlertRecorder(const ServiceDependencies& dependencies, const Relaxations& relaxations)
      : uses_(dependencies), relaxations_(relaxations) {}

  /// The newest frame, as it was judged.
  void follow(const OnlookerFilter::Frame& frame);
  /// What is done about it.
  void alertStarted(bool darkens, bool notifies);
  /// The machine is in `state` now; harmless without an alert.
  void alertEnded(const FilterState& state);

 private:
  /// What the person can say of an onlooker; more of either than before ends the alert.
  struct Answers {
    std::int64_t ignored = 0;
    std::int64_t guests = 0;
  };

  [[nodiscard]] Answers answers() const;
  [[nodiscard]] AlertEnd endBy(const FilterState& state) const;

  const ServiceDependencies& uses_;
  const Relaxations& relaxations_;
  std::int64_t faces_ = 0;  // of the newest frame
  double widest_ = 0;
  std::optional<AlertRecord> record_;  // of the alert that lasts
  Answers before_;
};

}  // namespace sentrel
