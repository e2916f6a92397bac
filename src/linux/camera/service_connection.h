// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "linux/camera/pipewire_loop.h"

struct pw_context;
struct pw_core;

namespace sentrel {

/// Keeps this process connected to the PipeWire daemon. Where there is none, it watches the folder of the
/// daemon's socket, so that nothing has to be polled, and tries again with growing pauses: for as long as
/// somebody needs the daemon, else a few times only. PipeWire loop, under its lock.
class ServiceConnection {
 public:
  struct Events {
    std::function<void(pw_core*)> connected;
    /// The connection still exists; everything made from it has to be destroyed before this returns.
    std::function<void()> lost;
    std::function<void()> absent;  ///< an attempt found no daemon
  };

  /// The events run outside of PipeWire's own callbacks.
  ServiceConnection(PipeWireLoop& loop, Events events);
  ~ServiceConnection();
  ServiceConnection(const ServiceConnection&) = delete;
  ServiceConnection& operator=(const ServiceConnection&) = delete;

  /// Tries to connect soon, unless it is connected.
  void open();
  /// Tells `lost` where it is connected, and ends everything.
  void close();
  [[nodiscard]] bool isConnected() const { return core_ != nullptr; }
  /// Valid while connected.
  [[nodiscard]] pw_context* context() const { return context_; }
  /// Whether somebody needs the daemon now.
  void setNeeded(bool needed);

 private:
  struct Listener;
  class FolderWatch;

  void attempt();
  void disconnect();
  void retry();

  PipeWireLoop& loop_;
  Events events_;
  LoopTimer retryTimer_;
  LoopEvent broken_;
  std::unique_ptr<Listener> listener_;
  std::unique_ptr<FolderWatch> watch_;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
  bool needed_ = false;
  std::chrono::milliseconds pause_{0};
};

}  // namespace sentrel
