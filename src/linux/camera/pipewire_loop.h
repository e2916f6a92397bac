// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

struct pw_context;
struct pw_core;
struct pw_loop;
struct pw_thread_loop;
struct spa_source;

namespace sentrel {

using SteadyTime = std::chrono::steady_clock::time_point;

/// Something that wakes the PipeWire thread and runs a callback there. It is made and destroyed under the
/// loop's lock, or while the loop does not run, and outlived by the loop.
class LoopSource {
 public:
  LoopSource(const LoopSource&) = delete;
  LoopSource& operator=(const LoopSource&) = delete;

 protected:
  LoopSource(pw_loop* loop, std::function<void()> callback);
  ~LoopSource();

  pw_loop* loop_;
  std::function<void()> callback_;
  spa_source* source_ = nullptr;
};

/// Fires once, at a moment; arming it again moves the moment.
class LoopTimer : public LoopSource {
 public:
  LoopTimer(pw_loop* loop, std::function<void()> callback);
  void arm(SteadyTime moment);
  void disarm();

 private:
  std::optional<SteadyTime> armed_;  // arming for the same moment again, frame by frame, costs nothing
};

/// Fires soon after it was signalled, once for any number of signals, outside every other callback.
class LoopEvent : public LoopSource {
 public:
  LoopEvent(pw_loop* loop, std::function<void()> callback);
  void signal();  ///< Any thread.
};

/// The process's PipeWire thread. Everything that belongs to it is used on that thread, where its callbacks
/// run, or elsewhere under its `Lock`, which stops the thread meanwhile. Connections and streams are made and
/// destroyed on the thread itself, through `call`: elsewhere the library waits for its thread in the midst of
/// that, and lets go of the lock for as long, so that callbacks meet half of a stream.
class PipeWireLoop {
 public:
  explicit PipeWireLoop(const char* threadName);
  ~PipeWireLoop();
  PipeWireLoop(const PipeWireLoop&) = delete;
  PipeWireLoop& operator=(const PipeWireLoop&) = delete;

  /// Any thread but the loop's own; no `Lock` may be held.
  void start();
  void stop();

  [[nodiscard]] pw_loop* get() const;

  /// Runs `task` on the PipeWire thread, under its lock and outside every other callback, and returns at its
  /// end. Where the thread does not run, the task runs at once. Any thread but the loop's own; no `Lock` may
  /// be held. `task` must not throw.
  void call(const std::function<void()>& task);

  /// Stops the thread while it is held.
  using Lock = std::lock_guard<const PipeWireLoop>;
  void lock() const;
  void unlock() const;

 private:
  pw_thread_loop* loop_;
  std::optional<LoopEvent> callEvent_;
  const std::function<void()>* called_ = nullptr;  // under the loop's lock
  std::mutex callMutex_;                           // one call at a time, and none while the thread ends
  bool running_ = false;                           // under `callMutex_`
};

/// Keeps this process connected to the PipeWire daemon while it is open. Where there is none, it watches the
/// folder of the daemon's socket, and tries again with growing pauses. PipeWire loop, under its lock.
class PipeWireConnection {
 public:
  struct Events {
    std::function<void(pw_core*)> connected;
    /// The connection still exists; everything made from it has to be destroyed before this returns.
    std::function<void()> lost;
    std::function<void()> absent;  ///< an attempt found no daemon
  };

  /// The events run outside of PipeWire's own callbacks.
  PipeWireConnection(PipeWireLoop& loop, Events events);
  ~PipeWireConnection();
  PipeWireConnection(const PipeWireConnection&) = delete;
  PipeWireConnection& operator=(const PipeWireConnection&) = delete;

  /// Connects soon, unless it is open.
  void open();
  /// Tells `lost` where it is connected, and ends everything.
  void close();
  [[nodiscard]] bool isOpen() const { return open_; }
  [[nodiscard]] bool isConnected() const { return core_ != nullptr; }
  /// Connects anew through a socket that somebody has connected for us. When that connection ends, the next
  /// one is an ordinary one again.
  void useRemote(std::shared_ptr<const int> socket);
  /// Such a connection while there is one: other ways to the daemon would show no cameras.
  [[nodiscard]] pw_core* remote() const { return isRemote_ ? core_ : nullptr; }
  /// Valid while connected.
  [[nodiscard]] pw_context* context() const { return context_; }

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
  std::shared_ptr<const int> socket_;  // for the next attempt
  bool isRemote_ = false;
  bool open_ = false;
  std::chrono::milliseconds pause_{0};
};

}  // namespace sentrel
