// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <QVariantMap>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
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
  later,       ///< another instance has it, and shows nothing for this start
  activator,   ///< another instance has it, and has opened its window because a person started this one
  unreachable  ///< there is no session bus: nobody can tell
};

/// Who started the program.
enum class Launch {
  person,  ///< somebody, or the login
  bus      ///< the session bus, for a message to it
};

/// The state as other programs read it; part of the program's interface, never translated.
[[nodiscard]] const char* stateName(const FilterState& state);

// The desktop's leave to come to the front goes from the program that the person used to the one that shows a
// window, as platform data of `org.freedesktop.Application`. Main thread.

/// Makes room in the environment for tokens to come. To be called once, before the first thread starts.
void reserveActivationToken();

/// The next window that is activated uses what `platformData` brings.
void adoptActivationToken(const QVariantMap& platformData);

/// What other programs see of us on the session bus: the name expert.mardeck.sentrel,
/// `org.freedesktop.Application` as the desktop entry standard describes it, and, for scripts and status
/// bars, the methods of `expert.mardeck.sentrel1` and its read-only properties with their change signals.
/// Main thread; no call here waits for the bus.
class ProgramBus {
 public:
  ProgramBus(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<Bus> sessionBus, Launch launch);
  ProgramBus(const ProgramBus&) = delete;
  ProgramBus& operator=(const ProgramBus&) = delete;

  /// Connects, asks for the name, and tells the outcome once on the main thread. A bus that does not answer
  /// within 2 s counts as unreachable; from then on a bus that comes late, or back, is joined, and the name
  /// asked for again. An instance that is about to end does not count as one: its name is waited for.
  /// Requests that arrive before the outcome are carried out right after it.
  void claimName(std::function<void(InstanceRole)> outcome);

  /// From now on requests are left unanswered: the end is near, and whoever sent them takes our place, or is
  /// told by the bus that nobody is there any more.
  void leave() { leaving_ = true; }

  /// What the properties say. Times are milliseconds since 1970, and 0 is none.
  struct Values {
    std::string state;
    std::string status;  ///< in words for the person, a line for each thing that there is to say
    bool isActive = false;
    std::int64_t alertCount = 0;  ///< onlookers since the counters were last set to zero
    std::int64_t pauseEnd = 0;
    std::int64_t guests = 0;
    std::int64_t guestsEnd = 0;  ///< 0 with guests is the next lock
    std::int64_t ignoredFaces = 0;
    bool isScreenShared = false;
    bool isCovered = false;
  };
  /// Tells everybody what has changed.
  void show(const FilterState& state, Values values);

  /// Carries out what another program asks for: "Activate", which means the program itself, one of the
  /// actions "toggle", "cover", "preferences", "statistics", "about" and "quit", or a method of our own
  /// interface with its numbers. Gives the name of the error with which it is refused, or null.
  std::function<const char*(const std::string& request, const std::vector<std::int64_t>& numbers)> perform;
  /// Has the program try what it claims of the person's privacy, and gives what is told of that: whether
  /// every claim holds, and the report.
  using ProofTold = std::function<void(bool holds, const std::string& report)>;
  std::function<void(ProofTold told)> prove;
  /// Tells, now or within some seconds, all there is to know when something does not work.
  using ReportTold = std::function<void(const std::string& words)>;
  std::function<void(ReportTold told)> report;

 private:
  using Message = std::shared_ptr<sd_bus_message>;

  static int called(sd_bus_message* message, void* self, sd_bus_error* error) noexcept;

  void connectionChanged(bool connected);
  void requestName();
  void nameAnswered(const BusMessage& reply);
  void activateOther();
  void finish(InstanceRole role);
  void answer(sd_bus_message* message) const;

  const std::shared_ptr<MainLoop> mainLoop_;
  const std::shared_ptr<Bus> bus_;
  const Launch launch_;
  std::function<void(InstanceRole)> outcome_;
  std::vector<Message> early_;  // calls that arrived before the outcome
  int attempts_ = 0;            // to activate the other instance
  bool leaving_ = false;
  Registration deadline_;
  Values values_;
  std::vector<Registration> offers_;
  Registration connection_;
};

}  // namespace sentrel
