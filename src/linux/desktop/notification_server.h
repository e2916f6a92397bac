// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QString>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "linux/desktop/bus_peer.h"
#include "platform/desktop_services.h"

namespace sentrel {

/// The notification server of the session, spoken to in version 1.2 of the desktops' protocol: keeps the
/// server's number for each of our identifiers. Lives on the bus thread.
class NotificationServer {
 public:
  /// `chosen` is called on this thread.
  NotificationServer(BusConnection& sessionBus, std::function<void(const std::string& identifier)> chosen);

  /// Asks whether a server answers; `answer` may never come.
  void ask(std::function<void(bool answers)> answer);
  void add(const std::string& identifier, const NotificationContent& content);
  void remove(const std::string& identifier);

 private:
  struct Entry {
    std::uint32_t number = 0;                 // the server's; 0: not shown
    bool underWay = false;                    // a showing waits for its number
    bool unwanted = false;                    // to be closed as soon as the number is known
    std::optional<NotificationContent> next;  // waits for a server or for the showing under way
  };

  void appeared();
  void absent();
  void gone();
  void showNext(const std::string& identifier);
  void shown(const std::string& identifier, const QDBusMessage& reply);
  void close(Entry& entry);
  void startServer();
  void startIsHopeless();
  void listenWhileShown();
  [[nodiscard]] std::optional<std::string> identifierOf(std::uint32_t number) const;

  std::function<void(const std::string&)> chosen_;
  std::map<std::string, Entry> entries_;
  std::vector<std::function<void(bool)>> questions_;  // wait for a server
  std::vector<Registration> listening_;
  bool starting_ = false;
  std::optional<std::chrono::steady_clock::time_point> startFailedAt_;
  BusPeer server_;  // last: its handlers use the others
};

}  // namespace sentrel
