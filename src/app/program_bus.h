// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QVariantMap>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "detection/filter_fsm.h"
#include "linux/desktop/bus.h"
#include "support/main_loop.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// How the attempt to become the one running instance ended.
enum class InstanceRole {
  first,       ///< the bus name is ours
  later,       ///< another instance has it; that one was activated, had a person started this one
  unreachable  ///< there is no session bus: nobody can tell
};

/// Who started the program.
enum class Launch {
  person,  ///< somebody, or the login
  bus      ///< the session bus, for a message to it
};

// The desktop's leave to come to the front goes from the program that the person used to the one that shows a
// window, as platform data of `org.freedesktop.Application`. Main thread.

/// Makes room in the environment for tokens to come. To be called once, before the first thread starts.
void reserveActivationToken();

/// The next window that is activated uses what `platformData` brings.
void adoptActivationToken(const QVariantMap& platformData);

/// What other programs see of us on the session bus: the name expert.mardeck.sentrel,
/// `org.freedesktop.Application` as the desktop entry standard describes it, and, for scripts and status
/// bars, the read-only properties of `expert.mardeck.sentrel1` with their change signals. Main thread; no
/// call here waits for the bus.
class ProgramBus {
 public:
  ProgramBus(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<Bus> sessionBus, Launch launch);
  ProgramBus(const ProgramBus&) = delete;
  ProgramBus& operator=(const ProgramBus&) = delete;

  /// Connects, asks for the name, and tells the outcome once on the main thread. A bus that does not answer
  /// within 2 s counts as unreachable; from then on a bus that comes late, or back, is joined, and the name
  /// asked for again. An instance that is about to end does not count as one: its name is waited for.
  /// Activations that arrive before the outcome are told right after it.
  void claimName(std::function<void(InstanceRole)> outcome);

  /// From now on activations are left unanswered: the end is near, and whoever sent them takes our place.
  void leave() { leaving_ = true; }

  void setState(const FilterState& state);
  void setActive(bool active);
  /// Onlookers since the counters were last set to zero.
  void setAlertCount(std::int64_t count);

  /// One of "toggle", "preferences", "statistics", "about" and "quit"; empty where the program itself is
  /// meant.
  Signal<QString> activated;

  /// The properties as sd-bus reads them.
  struct Values {
    const char* state;
    int isActive = 0;
    std::int64_t alertCount = 0;
  };

 private:
  static int called(sd_bus_message* message, void* self, sd_bus_error* error) noexcept;

  void connectionChanged(bool connected);
  void requestName();
  void nameAnswered(const BusMessage& reply);
  void activateOther();
  void finish(InstanceRole role);
  void announce(const char* property);

  const std::shared_ptr<MainLoop> mainLoop_;
  const std::shared_ptr<Bus> bus_;
  const Launch launch_;
  std::function<void(InstanceRole)> outcome_;
  std::vector<QString> early_;  // actions that arrived before the outcome
  int attempts_ = 0;            // to activate the other instance
  bool leaving_ = false;
  Registration deadline_;
  Values values_;
  std::vector<Registration> offers_;
  Registration connection_;
};

}  // namespace sentrel
