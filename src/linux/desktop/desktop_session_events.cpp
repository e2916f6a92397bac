// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_session_events.h"

#include <cstdint>
#include <iostream>
#include <string_view>
#include <utility>

#include "linux/desktop/session_witnesses.h"
#include "linux/desktop/wayland_displays.h"
#include "linux/desktop/x11_display_power.h"

namespace sentrel {

namespace {
/// A bus that does not answer must not hold up protection.
constexpr std::int64_t knownLimitMs = 500;
}  // namespace

struct DesktopSessionEvents::State : std::enable_shared_from_this<State> {
  std::shared_ptr<MainLoop> mainLoop;
  std::shared_ptr<Clock> clock;
  std::shared_ptr<BusThread> buses;
  std::shared_ptr<EventThread> displays;

  Observer observer;
  std::uint64_t observerNumber = 0;
  bool resting = false;
  bool polling = false;

  // All of these exist while somebody observes.
  std::shared_ptr<SessionEventOrder> order;
  Registration settled;
  std::function<void()> known;  // who waits for the first answers, or nobody
  Registration knownLimit;
  Resident<SessionWitnesses> witnesses;
  Resident<X11DisplayPower> x11;
  Resident<WaylandDisplays> wayland;

  void begin();
  void end();
  void deliver(SessionEvent event) const;
  void updatePolling();
  void tellKnown();
};

void DesktopSessionEvents::State::begin() {
  const std::weak_ptr<State> weak = weak_from_this();
  order = std::make_shared<SessionEventOrder>(
      *mainLoop, *clock,
      [weak](SessionEvent event) {
        if (const auto self = weak.lock()) self->deliver(event);
      },
      [](std::string_view warning) { std::cerr << "sentrel: " << warning << '\n'; });
  settled = order->settled.connect([weak] {
    const auto self = weak.lock();
    if (!self) return;
    self->updatePolling();
    if (self->order && self->order->isKnown()) self->tellKnown();
  });
  const WitnessReports reports(mainLoop, order);
  witnesses = buses->reside<SessionWitnesses>([reports](Buses& both) {
    return std::make_unique<SessionWitnesses>(both.session, both.system, reports);
  });
  x11 = Resident<X11DisplayPower>(displays, [reports] { return std::make_unique<X11DisplayPower>(reports); });
  wayland =
      Resident<WaylandDisplays>(displays, [reports] { return std::make_unique<WaylandDisplays>(reports); });
  polling = false;
  updatePolling();
}

void DesktopSessionEvents::State::end() {
  observer = nullptr;
  witnesses = {};
  x11 = {};
  wayland = {};
  settled.reset();
  known = nullptr;
  knownLimit.reset();
  // An observer may end its own registration while it is being told: the order is left to finish this turn.
  if (order) mainLoop->post([ended = std::move(order)] {});
  order.reset();
}

void DesktopSessionEvents::State::deliver(SessionEvent event) const {
  if (const Observer told = observer) told(event);
}

void DesktopSessionEvents::State::updatePolling() {
  if (!order) return;
  const bool wanted = !resting && !order->isAwayWithout(SessionEventOrder::Witness::x11Displays);
  if (std::exchange(polling, wanted) == wanted) return;
  x11.call([wanted](X11DisplayPower& power) { power.setPolling(wanted); });
}

void DesktopSessionEvents::State::tellKnown() {
  knownLimit.reset();
  if (!known) return;
  mainLoop->post([weak = weak_from_this(), number = observerNumber, told = std::exchange(known, nullptr)] {
    const auto self = weak.lock();
    if (self && self->observer && self->observerNumber == number) told();
  });
}

DesktopSessionEvents::DesktopSessionEvents(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<Clock> clock,
                                           std::shared_ptr<BusThread> buses,
                                           std::shared_ptr<EventThread> displays)
    : state_(std::make_shared<State>()) {
  state_->mainLoop = std::move(mainLoop);
  state_->clock = std::move(clock);
  state_->buses = std::move(buses);
  state_->displays = std::move(displays);
}

DesktopSessionEvents::~DesktopSessionEvents() {
  state_->end();
}

Registration DesktopSessionEvents::install(Observer observer) {
  state_->observer = std::move(observer);
  const std::uint64_t number = ++state_->observerNumber;
  const std::weak_ptr<State> weak = state_;
  if (!state_->order) {
    state_->begin();
  } else {
    state_->mainLoop->post([weak, number] {
      const auto state = weak.lock();
      if (state && state->order && state->observerNumber == number) state->order->repeatForNewObserver();
    });
  }
  return Registration([weak, number] {
    const auto state = weak.lock();
    if (state && state->observerNumber == number) state->end();
  });
}

void DesktopSessionEvents::whenKnown(std::function<void()> known) {
  state_->known = std::move(known);
  state_->knownLimit = state_->mainLoop->after(knownLimitMs, [weak = std::weak_ptr(state_)] {
    if (const auto state = weak.lock()) state->tellKnown();
  });
  if (state_->order && state_->order->isKnown()) state_->tellKnown();
}

bool DesktopSessionEvents::isLocked() const {
  return state_->order && state_->order->isLocked();
}

void DesktopSessionEvents::cameraIsClosed() {
  state_->witnesses.call([](SessionWitnesses& witnesses) { witnesses.logind.allowSleep(); });
}

void DesktopSessionEvents::setResting(bool resting) {
  state_->resting = resting;
  state_->updatePolling();
}

}  // namespace sentrel
