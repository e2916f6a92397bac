// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_notifications.h"

#include <utility>

namespace sentrel {

namespace {
constexpr std::int64_t answerDeadlineMs = 2'000;
}  // namespace

/// Answered once: by the server or by the deadline. Main thread, but for its creation.
struct DesktopNotifications::Question {
  std::function<void(bool granted)> answer;
  Registration deadline;

  void settle(bool granted) {
    deadline.reset();
    if (const auto told = std::exchange(answer, nullptr)) told(granted);
  }
};

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
  const auto question = std::make_shared<Question>();
  question->answer = std::move(answer);
  question->deadline = mainLoop_->after(answerDeadlineMs, [question] { question->settle(false); });
  server_.call([loop = mainLoop_, question](NotificationServer& server) {
    server.ask(
        [loop, question](bool answers) { loop->post([question, answers] { question->settle(answers); }); });
  });
}

void DesktopNotifications::add(const std::string& identifier, const NotificationContent& content) {
  server_.call([=](NotificationServer& server) { server.add(identifier, content); });
}

void DesktopNotifications::remove(const std::string& identifier) {
  server_.call([=](NotificationServer& server) { server.remove(identifier); });
}

}  // namespace sentrel
