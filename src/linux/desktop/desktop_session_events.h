// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/desktop/bus.h"
#include "linux/desktop/event_thread.h"
#include "platform/session_events.h"
#include "support/main_loop.h"

namespace sentrel {

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
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace sentrel
