// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "linux/desktop/bus.h"
#include "linux/desktop/event_thread.h"
#include "platform/session_events.h"
#include "support/main_loop.h"

namespace sentrel {

class SessionEventOrder;
class WaylandDisplayPower;
class X11DisplayPower;

/// Session events from the login manager, the screen lockers, and whoever powers the displays. Nothing is
/// listened to while nobody observes. Main thread.
class DesktopSessionEvents final : public SessionEvents {
 public:
  struct Parts {
    std::shared_ptr<MainLoop> mainLoop;
    std::shared_ptr<Clock> clock;
    std::shared_ptr<Bus> sessionBus;
    std::shared_ptr<Bus> systemBus;
    std::shared_ptr<EventThread> displays;  ///< the thread for the display servers
  };

  explicit DesktopSessionEvents(Parts parts);
  ~DesktopSessionEvents() override;
  DesktopSessionEvents(const DesktopSessionEvents&) = delete;
  DesktopSessionEvents& operator=(const DesktopSessionEvents&) = delete;

  [[nodiscard]] Registration install(Observer observer) override;
  void whenKnown(std::function<void()> known) override;
  [[nodiscard]] bool isLocked() const override;
  void cameraIsClosed() override;
  void setResting(bool resting) override;

 private:
  /// Outlives this by the turn in which it ends: an event may be under way.
  struct Installed {
    Observer observer;
    std::uint64_t number = 0;  // the registrations before this one are worth nothing
  };
  struct BusSources;

  void begin();
  void end();
  void updatePolling();
  void tellKnown();

  const Parts parts_;
  const std::shared_ptr<Installed> installed_ = std::make_shared<Installed>();
  bool resting_ = false;
  bool polling_ = false;
  std::function<void()> known_;  // who waits for the first answers, or nobody
  Registration knownTimer_;      // the limit of that, or the turn in which it is told

  // All of these exist while somebody observes.
  std::shared_ptr<SessionEventOrder> order_;
  Registration settled_;
  Registration repeat_;
  std::unique_ptr<BusSources> sources_;
  Registration ending_;  // holds what has ended in this turn, which may be under way
  ThreadBound<X11DisplayPower> x11_;
  ThreadBound<WaylandDisplayPower> wayland_;
};

}  // namespace sentrel
