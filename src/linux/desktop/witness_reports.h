// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>

#include "platform/session_event_order.h"
#include "support/main_loop.h"

namespace sentrel {

/// Carries what witnesses say to the order of events on the main thread, as long as that exists. Any thread.
class WitnessReports {
 public:
  using Witness = SessionEventOrder::Witness;

  WitnessReports(std::shared_ptr<MainLoop> mainLoop, std::weak_ptr<SessionEventOrder> order)
      : mainLoop_(std::move(mainLoop)), order_(std::move(order)) {}

  void changed(Witness witness, bool absent) const {
    tell([=](SessionEventOrder& order) { order.changed(witness, absent); });
  }
  void found(Witness witness, bool absent) const {
    tell([=](SessionEventOrder& order) { order.found(witness, absent); });
  }
  void lost(Witness witness) const {
    tell([=](SessionEventOrder& order) { order.lost(witness); });
  }
  void silent(Witness witness) const {
    tell([=](SessionEventOrder& order) { order.silent(witness); });
  }
  void lockRequested() const {
    tell([](SessionEventOrder& order) { order.lockRequested(); });
  }
  void unlockRequested() const {
    tell([](SessionEventOrder& order) { order.unlockRequested(); });
  }

 private:
  template <class Say>
  void tell(Say say) const {
    mainLoop_->post([order = order_, say] {
      if (const auto live = order.lock()) say(*live);
    });
  }

  std::shared_ptr<MainLoop> mainLoop_;
  std::weak_ptr<SessionEventOrder> order_;
};

}  // namespace sentrel
