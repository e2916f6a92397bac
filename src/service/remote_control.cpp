// SPDX-License-Identifier: Apache-2.0
#include "service/remote_control.h"

#include <string>
#include <utility>

#include "service/user_feedback.h"

namespace sentrel {

namespace {

constexpr const char* offTitle = textId("notif_off_title");
constexpr const char* pauseTitle = textId("notif_pause_title");
constexpr const char* guestTitle = textId("notif_guest_title");

}  // namespace

RemoteControl::RemoteControl(std::shared_ptr<PrivacyFilterService> service, Platform platform,
                             std::function<void()> quit)
    : service_(std::move(service)), platform_(std::move(platform)), quit_(std::move(quit)) {
  Relaxations& relaxations = service_->relaxations();
  observed_.push_back(platform_.notifications->answered.connect(
      [this](const std::string& shown, const std::string& action) { answered(shown, action); }));
  observed_.push_back(service_->isStarting().onChange([this](bool isStarting) {
    if (isStarting) ended(offTitle);
  }));
  observed_.push_back(relaxations.pauseEndMs().onChange([this](const auto& end) {
    if (!end) ended(pauseTitle);
  }));
  observed_.push_back(relaxations.stay().onChange([this](const auto& stay) {
    if (!stay) ended(guestTitle);
  }));
}

RemoteControl::Answer RemoteControl::mayWeaken() const {
  if (platform_.sessionEvents->isLocked()) return Answer::locked;
  return service_->isSwitchedOn() ? Answer::done : Answer::off;
}

/// Tells the person under the title of this key what a command has `done`.
RemoteControl::Answer RemoteControl::weakened(bool done, const char* title) {
  if (!done) return Answer::misused;
  news_.assignIfChanged(Origin::command);
  told_ = title;
  platform_.notifications->add(notification, {.title = platform_.localizedText(title),
                                              .body = platform_.localizedText(textId("notif_off_text"))});
  return Answer::done;
}

void RemoteControl::ended(std::string_view title) {
  if (told_ != title) return;
  told_ = {};
  platform_.notifications->remove(notification);
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
  return weakened(true, offTitle);
}

RemoteControl::Answer RemoteControl::toggle() {
  return service_->isSwitchedOn() ? switchOff() : switchOn();
}

RemoteControl::Answer RemoteControl::pause(std::int64_t durationMs) {
  const Answer answer = mayWeaken();
  if (answer != Answer::done) return answer;
  return weakened(service_->relaxations().pause(durationMs), pauseTitle);
}

RemoteControl::Answer RemoteControl::resume() {
  if (!service_->isSwitchedOn()) return Answer::off;
  service_->relaxations().resume();
  return Answer::done;
}

RemoteControl::Answer RemoteControl::welcome(std::int64_t guests, std::optional<std::int64_t> durationMs) {
  const Answer answer = mayWeaken();
  if (answer != Answer::done) return answer;
  if (service_->relaxations().refusesGuests()) return Answer::paused;
  return weakened(service_->relaxations().welcome(guests, durationMs), guestTitle);
}

RemoteControl::Answer RemoteControl::sendGuestsAway() {
  if (!service_->isSwitchedOn()) return Answer::off;
  service_->relaxations().sendGuestsAway();
  return Answer::done;
}

RemoteControl::Answer RemoteControl::cover() {
  switch (service_->screenCover().toggle()) {
    case ScreenCover::Answer::locked:
      return Answer::locked;
    case ScreenCover::Answer::impossible:
      return Answer::impossible;
    case ScreenCover::Answer::done:
      break;
  }
  return Answer::done;
}

RemoteControl::Answer RemoteControl::quit() {
  const Answer answer = mayWeaken();
  if (answer == Answer::locked) return answer;
  if (answer == Answer::done) weakened(true, offTitle);
  platform_.mainLoop->post(quit_);
  return Answer::done;
}

void RemoteControl::answered(const std::string& shown, const std::string& action) {
  if (shown != OnlookerFeedback::notification || mayWeaken() != Answer::done) return;
  Relaxations& relaxations = service_->relaxations();
  const bool done = action == OnlookerFeedback::nobodyAction  ? relaxations.filter.ignoreOnlooker()
                    : action == OnlookerFeedback::pauseAction ? relaxations.pause(OnlookerFeedback::pauseMs)
                                                              : false;
  if (done) news_.assignIfChanged(Origin::notification);
}

}  // namespace sentrel
