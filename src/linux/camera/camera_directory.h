// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "linux/camera/screen_links.h"
#include "platform/capture_session.h"
#include "platform/screen_reads.h"

struct pw_core;
struct spa_dict;
struct spa_pod;

namespace sentrel {

/// The cameras that PipeWire lists. A device's unique id is its node's name, which survives replugging; where
/// two nodes bear one name, the later one stands for it. Beside them, who gets pictures from whom: the same
/// events tell both.
class CameraDirectory {
 public:
  /// What is listed at one moment.
  struct Listing {
    std::vector<CameraDevice> devices;  ///< in the order of their appearance
    std::string sessionDefault;         ///< unique id that the session manager prefers; may name nothing
    bool operator==(const Listing&) const = default;

    [[nodiscard]] std::optional<CameraDevice> device(const std::string& uniqueID) const;
    /// The device `uniqueID`, else the first at the front, else the session manager's default, else the
    /// first.
    [[nodiscard]] std::optional<CameraDevice> choose(const std::optional<std::string>& uniqueID) const;
  };

  /// Called on the PipeWire loop, also within PipeWire's own callbacks.
  struct Events {
    std::function<void()> devicesChanged;
    std::function<void()> completed;
    std::function<void()> screenReadsChanged;
    /// One that the device `uniqueID` offers. They are asked for only where this is given, and all are told
    /// before the first `completed`.
    std::function<void(const std::string& uniqueID, const spa_pod* format)> formatOffered{};
  };

  explicit CameraDirectory(Events events);
  ~CameraDirectory();
  CameraDirectory(const CameraDirectory&) = delete;
  CameraDirectory& operator=(const CameraDirectory&) = delete;

  // PipeWire loop.

  /// Lists what `core` knows until `detach`.
  void attach(pw_core* core);
  void detach();
  /// True once everything that existed when it was attached is listed.
  [[nodiscard]] bool isComplete() const { return complete_; }
  /// The serial number of the node behind a device; empty when it is not listed.
  [[nodiscard]] std::string serialOf(const std::string& uniqueID) const;
  [[nodiscard]] bool hasSerial(const std::string& serial) const;
  /// What a node says of its own failure; empty while it has none.
  [[nodiscard]] std::string errorOf(const std::string& serial) const;

  // Any thread.

  [[nodiscard]] Listing listing() const;
  [[nodiscard]] std::vector<ScreenRead> screenReads() const;
  /// As `CaptureSession::otherUser`, of this device.
  [[nodiscard]] std::string otherUserOf(const std::string& uniqueID) const;
  /// Among the last 64 that appeared.
  [[nodiscard]] bool hasSeen(const std::string& uniqueID) const;
  /// Waits for a complete listing, and for a camera in it where none was ever listed, at most `timeout`. Once
  /// that has happened, or a wait has run out, it waits again only after `detach`. Whether a camera was ever
  /// listed. Not the PipeWire loop.
  [[nodiscard]] bool awaitFirst(std::chrono::milliseconds timeout);

 private:
  struct Node;
  struct Binding;

  void globalAdded(std::uint32_t id, const char* type, const spa_dict* properties);
  void globalRemoved(std::uint32_t id);
  void synced(int sequence);
  void publish();
  void publishReads(bool changed);
  void publishUsers();

  Events events_;
  std::unique_ptr<Binding> binding_;
  std::vector<std::unique_ptr<Node>> nodes_;  // in the order of their appearance
  std::string activeDefault_;
  std::string configuredDefault_;
  bool complete_ = false;
  ScreenLinks screenLinks_;

  mutable std::mutex mutex_;  // guards what follows, read from any thread
  std::condition_variable arrived_;
  Listing listing_;
  std::vector<ScreenRead> screenReads_;
  std::map<std::string, std::string> users_;  // names, by the device that they use
  std::deque<std::string> seen_;              // the newest at the end
  bool firstOver_ = false;
};

}  // namespace sentrel
