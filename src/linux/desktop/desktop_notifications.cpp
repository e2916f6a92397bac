// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_notifications.h"

#include <utility>

namespace sentrel {

namespace {
constexpr std::int64_t answerDeadlineMs = 2'000;
}  // namespace

DesktopNotifications::DesktopNotifications(std::shared_ptr<MainLoop> mainLoop,
                                           std::shared_ptr<BusThread> buses)
    : mainLoop_(std::move(mainLoop)),
      buses_(std::move(buses)),
      self_(std::make_shared<DesktopNotifications*>(this)) {
  const auto tell = [loop = mainLoop_, weak = std::weak_ptr(self_)](const std::string& identifier) {
    loop->post([weak, identifier] {
      if (const auto self = weak.lock()) (*self)->chosen.emit(identifier);
    });
  };
  server_ = buses_->reside<NotificationServer>(
      [tell](Buses& both) { return std::make_unique<NotificationServer>(both.session, tell); });
}

DesktopNotifications::~DesktopNotifications() = default;

void DesktopNotifications::requestAuthorization(std::function<void(bool granted)> answer) {
  if (granted_) {
    mainLoop_->post([answer = std::move(answer)] { answer(true); });
    return;
  }
  waiting_.push_back(std::move(answer));
  if (deadline_) return;
  deadline_ = mainLoop_->after(answerDeadlineMs, [this] { settle(false); });
  server_.call(
      [loop = mainLoop_, weak = std::weak_ptr(self_), number = ++question_](NotificationServer& server) {
        server.ask([loop, weak, number](bool answers) {
          loop->post([weak, number, answers] {
            const auto self = weak.lock();
            if (self && (*self)->deadline_ && (*self)->question_ == number) (*self)->settle(answers);
          });
        });
      });
}

/// By the server or by the deadline.
void DesktopNotifications::settle(bool granted) {
  granted_ = granted;
  deadline_.reset();
  for (const auto& told : std::exchange(waiting_, {})) told(granted);
}

void DesktopNotifications::add(const std::string& identifier, const NotificationContent& content) {
  server_.call([=](NotificationServer& server) { server.add(identifier, content); });
}

void DesktopNotifications::remove(const std::string& identifier) {
  server_.call([=](NotificationServer& server) { server.remove(identifier); });
}

}  // namespace sentrel
