// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "linux/desktop/bus.h"
#include "platform/desktop_services.h"
#include "support/main_loop.h"

namespace sentrel {

/// Notifications through the session's notification server, in version 1.2 of the desktops' protocol. Keeps
/// the server's number for each of our identifiers. Authorised means that a server answers. Main thread.
class DesktopNotifications final : public Notifications, private BusService {
 public:
  DesktopNotifications(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<Bus> sessionBus);

  void requestAuthorization(std::function<void(bool granted)> answer) override;
  void add(const std::string& identifier, const NotificationContent& content) override;
  void remove(const std::string& identifier) override;
  [[nodiscard]] const Published<bool>& isHeard() const override { return isHeard_; }
  [[nodiscard]] const Published<bool>& canHideOthers() const override { return canHideOthers_; }
  [[nodiscard]] Registration hideOthers() override;

 private:
  struct Entry {
    std::uint32_t number = 0;                     // the server's; 0: not shown
    std::vector<NotificationAction> actions{};    // of what is shown, or was last
    std::optional<NotificationContent> underWay;  // shown, but its number is not known yet
    std::optional<NotificationContent> next;      // waits for a server or for the number
    bool unwanted = false;                        // to be closed as soon as the number is known
  };
  /// The server's number of an inhibition; 0 while it is not known.
  using Inhibition = std::uint32_t;

  void updateHeard();
  void appeared() override;
  void absent() override;
  void gone() override;
  void askServer();
  void settle(bool granted);
  void showNext(const std::string& identifier);
  void shown(const std::string& identifier, const BusMessage& reply);
  void close(Entry& entry);
  void startServer();
  void startFailed();
  void listenWhileShown();
  void chooses(const BusMessage& signal);
  void closed(const BusMessage& signal);
  void askAboutHiding();
  void inhibited(const std::weak_ptr<Inhibition>& inhibition, const BusMessage& reply);
  void showOthers();
  void endInhibition(Inhibition number);
  void quietEnded();
  [[nodiscard]] std::optional<std::string> identifierOf(const BusMessage& signal) const;

  const std::shared_ptr<MainLoop> mainLoop_;
  bool granted_ = false;
  std::vector<std::function<void(bool granted)>> waiting_;  // for the answer to the question under way
  Registration deadline_;                                   // of that question
  std::map<std::string, Entry> entries_;
  std::vector<Registration> listening_;
  std::vector<Registration> quiet_;  // what servers tell of being quiet
  bool isQuiet_ = false;
  bool isOurQuiet_ = false;  // because of an inhibition of ours
  bool isMute_ = false;      // does not answer, though it is there
  Registration patience_;    // with a server that was given something to show
  Published<bool> isHeard_{false};
  Published<bool> canHideOthers_{false};
  std::shared_ptr<Inhibition> inhibition_;  // while others are hidden; its registration holds it weakly
  Registration trial_;                      // whether ours is still shown
  bool starting_ = false;
  std::optional<std::chrono::steady_clock::time_point> startFailedAt_;
};

/// Haptics through the feedback service that phones and tablets run; it is never started for us. Main thread.
class FeedbackdHaptics final : public Haptics, private BusService {
 public:
  explicit FeedbackdHaptics(std::shared_ptr<Bus> sessionBus);
  void perform() override;
};

}  // namespace sentrel
