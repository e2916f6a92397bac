// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "linux/desktop/witness_reports.h"
#include "linux/desktop/x11_observer_connection.h"
#include "support/registration.h"

namespace sentrel {

/// The X server about the power of the displays (DPMS). Servers since 2021 tell each change (DPMS 1.2); older
/// ones are asked. Lives on an event thread.
class X11DisplayPower {
 public:
  static constexpr std::int64_t pollMs = 20'000;

  explicit X11DisplayPower(WitnessReports reports);

  /// Whether a server that does not tell changes is asked for them: at once and every `pollMs`.
  void setPolling(bool wanted);

 private:
  enum class How { found, changed };

  [[nodiscard]] bool prepare();
  void selectEvents();
  void handle(const xcb_generic_event_t& event);
  void ask(How how);
  void tell(bool off, How how);
  void lost();

  WitnessReports reports_;
  std::unique_ptr<X11ObserverConnection> server_;
  std::uint8_t opcode_ = 0;
  bool tellsChanges_ = false;
  std::optional<bool> off_;
  Registration poll_;
};

}  // namespace sentrel
