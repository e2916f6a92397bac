// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_portal.h"

#include <algorithm>

namespace sentrel {

DesktopPortal::DesktopPortal(std::shared_ptr<Bus> sessionBus)
    : BusService(std::move(sessionBus), "org.freedesktop.portal.Desktop") {}

Registration DesktopPortal::follow(const std::function<void(bool ready)>& follower) {
  Registration registration = changed_.connect(follower);
  if (ready_) follower(true);
  return registration;
}

void DesktopPortal::want() {
  if (!std::exchange(wanted_, true) && isAbsent()) start();
}

void DesktopPortal::whenReady(std::function<void(bool ready)> then) {
  if (ready_) return then(true);
  waiting_.push_back(std::move(then));
  if (isPresent()) return;  // it is being told who we are
  isAbsent() ? start([this] { tellWaiting(false); }) : tellWaiting(false);
}

void DesktopPortal::tellWaiting(bool ready) {
  for (const auto& then : std::exchange(waiting_, {})) then(ready);
}

void DesktopPortal::appeared() {
  // Older portals do not know the question, and one that hangs is no worse than without it.
  const auto registered = [this](const BusMessage&) {
    ready_ = true;
    changed_.emit(true);
    tellWaiting(true);
  };
  constexpr int noOptions = 0;
  call({path, "org.freedesktop.host.portal.Registry", "Register"}, {registered}, "sa{sv}",
       "expert.mardeck.sentrel", noOptions);
}

void DesktopPortal::gone() {
  if (std::exchange(ready_, false)) changed_.emit(false);
  tellWaiting(false);
}

void DesktopPortal::absent() {
  tellWaiting(false);
  if (wanted_) start();
}

/// The answer is a signal of an object whose path is known beforehand, so that it can be listened to before
/// the question is asked.
std::shared_ptr<DesktopPortal::Question> DesktopPortal::expect(const std::string& token,
                                                               Answer answer) const {
  std::string sender = bus().ownName().erase(0, 1);
  std::ranges::replace(sender, '.', '_');
  auto question = std::make_shared<Question>();
  question->answer = std::move(answer);
  const auto answered = [weak = std::weak_ptr(question)](const BusMessage& signal) {
    const auto asked = weak.lock();
    if (!asked || signal.signature != "ua{sv}") return;
    const bool granted = signal.arguments.at(0).toUInt() == 0;
    asked->take(granted ? std::optional(signal.arguments.at(1).toMap()) : std::nullopt);
  };
  question->response = listen({std::string(path).append("/request/").append(sender).append("/").append(token),
                               "org.freedesktop.portal.Request", "Response"},
                              answered);
  return question;
}

void DesktopPortal::Question::take(const std::optional<QVariantMap>& results) {
  response.reset();
  if (const Answer taken = std::exchange(answer, nullptr)) taken(results);
}

}  // namespace sentrel
