// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "linux/desktop/bus_thread.h"
#include "linux/desktop/notification_server.h"
#include "platform/desktop_services.h"
#include "support/main_loop.h"

namespace sentrel {

/// Notifications through the session's notification server. Authorised means that a server answers.
class DesktopNotifications final : public Notifications {
 public:
  DesktopNotifications(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<BusThread> buses);
  ~DesktopNotifications() override;

  void requestAuthorization(std::function<void(bool granted)> answer) override;
  void add(const std::string& identifier, const NotificationContent& content) override;
  void remove(const std::string& identifier) override;

 private:
  void settle(bool granted);

  std::shared_ptr<MainLoop> mainLoop_;
  std::shared_ptr<BusThread> buses_;
  std::shared_ptr<DesktopNotifications*> self_;  // null once this is gone
  bool granted_ = false;
  std::vector<std::function<void(bool granted)>> waiting_;  // for the answer to the question under way
  Registration deadline_;                                   // of that question
  std::uint64_t question_ = 0;                              // its number
  Resident<NotificationServer> server_;
};

}  // namespace sentrel
