// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/desktop/bus_connection.h"
#include "linux/desktop/event_thread.h"
#include "linux/desktop/resident.h"

namespace sentrel {

/// Both buses, on their event thread.
struct Buses {
  BusConnection session{BusKind::session};
  BusConnection system{BusKind::system};
};

/// The thread on which everything lives that speaks with a bus. Connects to a bus when somebody first needs
/// it. Outlives what resides on it.
class BusThread {
 public:
  BusThread()
      : thread_(std::make_shared<EventThread>("sentrel-bus")),
        buses_(std::make_shared<std::unique_ptr<Buses>>()) {
    thread_->post([buses = buses_] { *buses = std::make_unique<Buses>(); });
  }
  ~BusThread() {
    thread_->post([buses = buses_] { buses->reset(); });
  }
  BusThread(const BusThread&) = delete;
  BusThread& operator=(const BusThread&) = delete;

  /// `make(Buses&)` runs on the thread and gives a `std::unique_ptr<T>`.
  template <class T, class Make>
  [[nodiscard]] Resident<T> reside(Make make) const {
    return Resident<T>(thread_, [buses = buses_, make = std::move(make)]() mutable {
      return std::unique_ptr<T>(make(**buses));
    });
  }

 private:
  std::shared_ptr<EventThread> thread_;
  std::shared_ptr<std::unique_ptr<Buses>> buses_;
};

}  // namespace sentrel
