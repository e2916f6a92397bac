// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "linux/desktop/bus.h"
#include "linux/desktop/event_thread.h"
#include "platform/session_events.h"
#include "support/main_loop.h"

namespace sentrel {

class SessionEventOrder;
class WaylandDisplayPower;
class X11DisplayPower;

/// Session events from the login manager, the screen lockers, and whoever powers the displays. Nothing is
/// listened to while nobody observes or follows. Main thread.
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
  [[nodiscard]] Registration followLock(std::function<void(bool locked)> follower) override;
  void cameraIsClosed() override;
  void setResting(bool resting) override;

 private:
  struct Sources;
  struct LockFollower;

  void begin();
  void observerEnded();
  void endUnheard();
  void tellLock(LockFollower& follower) const;
  void tellLockFollowers();
  void updatePolling();
  void tellKnown();

  const Parts parts_;
  std::shared_ptr<const Observer> observer_;  // whose registration holds it weakly; a new one ends it
  bool resting_ = false;
  bool polling_ = false;
  std::function<void()> known_;  // who waits for the first answers, or nobody
  Registration knownTimer_;      // the limit of that, or the turn in which it is told

  std::vector<std::shared_ptr<LockFollower>> lockFollowers_;  // each held weakly by its registration

  // All of these exist while somebody observes or follows.
  std::shared_ptr<SessionEventOrder> order_;
  Registration settled_;
  Registration unconfirmed_;
  Registration repeat_;
  std::unique_ptr<Sources> sources_;
  Registration ending_;  // holds what has ended in this turn, which may be under way
  ThreadBound<X11DisplayPower> x11_;
  ThreadBound<WaylandDisplayPower> wayland_;
};

}  // namespace sentrel
