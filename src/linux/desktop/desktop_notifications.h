// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/desktop/bus_thread.h"
#include "linux/desktop/notification_server.h"
#include "platform/notifications.h"
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
  struct Question;

  std::shared_ptr<MainLoop> mainLoop_;
  std::shared_ptr<BusThread> buses_;
  std::shared_ptr<DesktopNotifications*> self_;  // null once this is gone
  Resident<NotificationServer> server_;
};

}  // namespace sentrel
