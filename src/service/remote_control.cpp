// SPDX-License-Identifier: Apache-2.0
#include "service/remote_control.h"

#include <string>
#include <utility>

#include "service/user_feedback.h"

namespace sentrel {

namespace {
constexpr const char* commandNotification = "sentrel.command";
}  // namespace

RemoteControl::RemoteControl(std::shared_ptr<PrivacyFilterService> service,
                             const ServiceDependencies& dependencies, std::function<void()> quit)
    : service_(std::move(service)), platform_(dependencies.platform), quit_(std::move(quit)) {
  answered_ = platform_.notifications->answered.connect(
      [this](const std::string& notification, const std::string& action) { answered(notification, action); });
}

RemoteControl::Answer RemoteControl::mayWeaken() const {
  if (platform_.sessionEvents->isLocked()) return Answer::locked;
  return service_->isSwitchedOn() ? Answer::done : Answer::off;
}

/// Tells the person with the text of this key what a command has `done`.
RemoteControl::Answer RemoteControl::weakened(bool done, const char* text) {
  if (!done) return Answer::misused;
  news_.assignIfChanged(Origin::command);
  platform_.notifications->add(commandNotification,
                               {.title = platform_.localizedText(textId("notif_command_title")),
                                .body = platform_.localizedText(text)});
  return Answer::done;
}

RemoteControl::Answer RemoteControl::switchOn() {
  service_->start();
  return Answer::done;
}

RemoteControl::Answer RemoteControl::switchOff() {
  const Answer answer = mayWeaken();
  if (answer == Answer::off) return Answer::done;
  if (answer != Answer::done) return answer;
  service_->stop();
  return weakened(true, textId("notif_command_off"));
}

RemoteControl::Answer RemoteControl::toggle() {
  return service_->isSwitchedOn() ? switchOff() : switchOn();
}

RemoteControl::Answer RemoteControl::pause(std::int64_t durationMs) {
  const Answer answer = mayWeaken();
  if (answer != Answer::done) return answer;
  return weakened(service_->relaxations().pause(durationMs), textId("notif_command_pause"));
}

RemoteControl::Answer RemoteControl::resume() {
  if (!service_->isSwitchedOn()) return Answer::off;
  service_->relaxations().resume();
  return Answer::done;
}

RemoteControl::Answer RemoteControl::welcome(std::int64_t guests, std::optional<std::int64_t> durationMs) {
  const Answer answer = mayWeaken();
  if (answer != Answer::done) return answer;
  return weakened(service_->relaxations().welcome(guests, durationMs), textId("notif_command_guest"));
}

RemoteControl::Answer RemoteControl::sendGuestsAway() {
  if (!service_->isSwitchedOn()) return Answer::off;
  service_->relaxations().sendGuestsAway();
  return Answer::done;
}

RemoteControl::Answer RemoteControl::quit() {
  const Answer answer = mayWeaken();
  if (answer == Answer::locked) return answer;
  if (answer == Answer::done) weakened(true, textId("notif_command_quit"));
  platform_.mainLoop->post(quit_);
  return Answer::done;
}

void RemoteControl::answered(const std::string& notification, const std::string& action) {
  if (notification != OnlookerFeedback::notification || mayWeaken() != Answer::done) return;
  Relaxations& relaxations = service_->relaxations();
  const bool done = action == OnlookerFeedback::nobodyAction  ? relaxations.filter.ignoreOnlooker()
                    : action == OnlookerFeedback::pauseAction ? relaxations.pause(OnlookerFeedback::pauseMs)
                                                              : false;
  if (done) news_.assignIfChanged(Origin::notification);
}

}  // namespace sentrel
