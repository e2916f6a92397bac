// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/desktop_notifications.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace sentrel {

namespace {

constexpr std::int64_t answerDeadlineMs = 2'000;

/// After a server could not be started, no start is tried for this long.
constexpr std::chrono::minutes startRest{10};

/// A server that hides ours together with those of others does so at once, before or after it answers.
constexpr std::int64_t trialMs = 2'000;

constexpr auto path = "/org/freedesktop/Notifications";

BusMember ofServer(const char* member) {
  return {path, "org.freedesktop.Notifications", member};
}

}  // namespace

DesktopNotifications::DesktopNotifications(std::shared_ptr<MainLoop> mainLoop,
                                           std::shared_ptr<Bus> sessionBus)
    : BusService(std::move(sessionBus), "org.freedesktop.Notifications"), mainLoop_(std::move(mainLoop)) {}

void DesktopNotifications::updateHeard() {
  isHeard_.assignIfChanged(isPresent() && (!isQuiet_ || isOurQuiet_) && !isMute_);
}

void DesktopNotifications::appeared() {
  starting_ = false;
  startFailedAt_.reset();
  // Some servers tell that the person does not want to be disturbed.
  const auto follow = [this](const char* interface, const char* property) {
    quiet_.push_back(followProperties(path, interface, [this, property](const QVariantMap& properties, bool) {
      isQuiet_ = valueOf<bool>(properties, property).value_or(isQuiet_);
      updateHeard();
    }));
  };
  follow("org.freedesktop.Notifications", "Inhibited");
  follow("org.dunstproject.cmd0", "paused");
  updateHeard();
  askAboutHiding();
  if (deadline_) askServer();
  for (auto& [identifier, entry] : entries_) showNext(identifier);
}

/// Nobody serves: what was asked and added before we knew that is a reason to start a server.
void DesktopNotifications::absent() {
  const auto waits = [](const auto& entry) { return entry.second.next.has_value(); };
  if (deadline_ || std::ranges::any_of(entries_, waits)) startServer();
}

void DesktopNotifications::gone() {
  starting_ = false;
  listening_.clear();
  quiet_.clear();
  isQuiet_ = isOurQuiet_ = isMute_ = false;
  patience_.reset();
  updateHeard();
  canHideOthers_.assignIfChanged(false);
  inhibition_.reset();
  trial_.reset();
  for (auto& [identifier, entry] : entries_) {
    entry.number = 0;  // the next server counts anew
    if (!entry.next && !entry.unwanted) entry.next = std::move(entry.underWay);
    entry.underWay.reset();
    entry.unwanted = false;
  }
}

void DesktopNotifications::requestAuthorization(std::function<void(bool granted)> answer) {
  if (granted_) {
    mainLoop_->post([answer = std::move(answer)] { answer(true); });
    return;
  }
  waiting_.push_back(std::move(answer));
  if (deadline_) return;
  deadline_ = mainLoop_->after(answerDeadlineMs, [this] { settle(false); });
  askServer();
}

void DesktopNotifications::askServer() {
  if (!isPresent()) return startServer();
  // An answer that comes too late is not to settle the next question.
  call(ofServer("GetServerInformation"),
       {[this](const BusMessage& reply) { settle(!reply.isError); }, answerDeadlineMs}, "");
}

/// By the server or by the deadline.
void DesktopNotifications::settle(bool granted) {
  if (!deadline_) return;
  granted_ = granted;
  deadline_.reset();
  for (const auto& told : std::exchange(waiting_, {})) told(granted);
}

void DesktopNotifications::add(const std::string& identifier, const NotificationContent& content) {
  Entry& entry = entries_[identifier];
  entry.next = content;
  entry.unwanted = false;
  if (isPresent()) {
    showNext(identifier);
  } else {
    startServer();
  }
}

void DesktopNotifications::remove(const std::string& identifier) {
  const auto found = entries_.find(identifier);
  if (found == entries_.end()) return;
  Entry& entry = found->second;
  entry.next.reset();
  entry.unwanted = entry.underWay.has_value();
  close(entry);
  listenWhileShown();
}

void DesktopNotifications::showNext(const std::string& identifier) {
  Entry& entry = entries_[identifier];
  if (entry.underWay || !entry.next) return;
  entry.underWay = std::exchange(entry.next, std::nullopt);
  entry.actions = entry.underWay->actions;
  listenWhileShown();  // before it is shown: it can be answered at once
  constexpr int critical = 2;
  constexpr int serversOwnExpiry = -1;
  // A late answer is still an answer: without its number a notification could never be taken away.
  const BusReply reply{[this, identifier](const BusMessage& answer) { shown(identifier, answer); },
                       BusReply::noTimeout};
  if (!patience_)
    patience_ = mainLoop_->after(answerDeadlineMs, [this] {
      isMute_ = true;
      updateHeard();
    });
  const NotificationContent& content = *entry.underWay;
  const auto notify = [&](auto... actions) {
    const auto withHint = [&](const char* name, const char* type, auto value) {
      call(ofServer("Notify"), reply, "susssasa{sv}i", "Sentrel", entry.number, "expert.mardeck.sentrel",
           content.title.c_str(), content.body.c_str(), static_cast<int>(sizeof...(actions)), actions..., 3,
           "urgency", "y", critical, name, type, value, "desktop-entry", "s", "expert.mardeck.sentrel",
           serversOwnExpiry);
    };
    content.silent ? withHint("suppress-sound", "b", 1) : withHint("sound-name", "s", "message-new-instant");
  };
  // The action "default" is the notification itself; its label is not shown.
  if (entry.actions.size() == 2) {
    const auto& [first, second] = std::tie(entry.actions[0], entry.actions[1]);
    notify("default", "Sentrel", first.identifier.c_str(), first.label.c_str(), second.identifier.c_str(),
           second.label.c_str());
  } else {
    notify("default", "Sentrel");
  }
}

void DesktopNotifications::shown(const std::string& identifier, const BusMessage& reply) {
  Entry& entry = entries_[identifier];
  entry.underWay.reset();
  entry.number = reply.only<uint>().value_or(0);
  patience_.reset();
  isMute_ = false;
  updateHeard();
  if (std::exchange(entry.unwanted, false)) close(entry);
  showNext(identifier);
  listenWhileShown();
}

void DesktopNotifications::close(Entry& entry) {
  if (entry.number != 0) call(ofServer("CloseNotification"), {}, "u", std::exchange(entry.number, 0U));
}

void DesktopNotifications::startServer() {
  if (starting_ || !isAbsent()) return;
  if (startFailedAt_ && std::chrono::steady_clock::now() - *startFailedAt_ < startRest) return startFailed();
  starting_ = true;
  start([this] {
    starting_ = false;
    startFailedAt_ = std::chrono::steady_clock::now();
    startFailed();
  });
}

/// Nobody answers the question under way; who asked is told in a later turn.
void DesktopNotifications::startFailed() {
  if (deadline_) deadline_ = mainLoop_->after(0, [this] { settle(false); });
}

std::optional<std::string> DesktopNotifications::identifierOf(const BusMessage& signal) const {
  const auto number = valueOf<uint>(signal.arguments.value(0)).value_or(0);
  for (const auto& [identifier, entry] : entries_) {
    if (number != 0 && entry.number == number) return identifier;
  }
  return std::nullopt;
}

/// Only what was offered is an answer.
void DesktopNotifications::chooses(const BusMessage& signal) {
  const auto identifier = identifierOf(signal);
  if (!identifier) return;
  const std::string action = valueOf<QString>(signal.arguments.value(1)).value_or(QString()).toStdString();
  const auto& offered = entries_[*identifier].actions;
  if (action == "default") {
    chosen.emit(*identifier);
  } else if (std::ranges::find(offered, action, &NotificationAction::identifier) != offered.end()) {
    answered.emit(*identifier, action);
  }
}

/// Servers tell everybody about everybody's notifications, so they are listened to only while one is ours.
void DesktopNotifications::listenWhileShown() {
  const auto isShown = [](const auto& entry) { return entry.second.number != 0 || entry.second.underWay; };
  if (!std::ranges::any_of(entries_, isShown)) {
    listening_.clear();
    return;
  }
  if (!listening_.empty()) return;
  listening_.push_back(
      listen(ofServer("ActionInvoked"), [this](const BusMessage& signal) { chooses(signal); }));
  listening_.push_back(
      listen(ofServer("NotificationClosed"), [this](const BusMessage& signal) { closed(signal); }));
}

void DesktopNotifications::closed(const BusMessage& signal) {
  const auto identifier = identifierOf(signal);
  if (!identifier) return;
  entries_[*identifier].number = 0;
  listenWhileShown();
  constexpr uint byThePerson = 2;
  constexpr uint byUs = 3;
  const auto reason = valueOf<uint>(signal.arguments.value(1)).value_or(0);
  const bool isTried = trial_ || (inhibition_ && *inhibition_ == 0);
  if (!isTried || reason == byThePerson || reason == byUs) return;
  // Ours went with the others: rather none is hidden.
  canHideOthers_ = false;
  showOthers();
}

// The notifications of others.

/// Servers name what they can do.
void DesktopNotifications::askAboutHiding() {
  call(ofServer("GetCapabilities"), {[this](const BusMessage& reply) {
         const auto abilities = reply.only<QStringList>().value_or(QStringList());
         canHideOthers_.assignIfChanged(abilities.contains(QLatin1String("inhibitions")));
       }},
       "");
}

Registration DesktopNotifications::hideOthers() {
  if (!canHideOthers_ || inhibition_ || (isQuiet_ && !isOurQuiet_)) return {};
  inhibition_ = std::make_shared<Inhibition>(0);
  isOurQuiet_ = true;
  const std::weak_ptr weak(inhibition_);
  constexpr int noHints = 0;
  call(ofServer("Inhibit"),
       {[this, weak](const BusMessage& reply) { inhibited(weak, reply); }, BusReply::noTimeout}, "ssa{sv}",
       "expert.mardeck.sentrel", "Sentrel", noHints);
  return Registration([this, weak] {
    if (!weak.expired()) showOthers();
  });
}

void DesktopNotifications::inhibited(const std::weak_ptr<Inhibition>& inhibition, const BusMessage& reply) {
  const auto number = reply.only<uint>().value_or(0);
  const auto held = inhibition.lock();
  if (number == 0) {
    canHideOthers_.assignIfChanged(false);
    if (held) showOthers();
    quietEnded();
  } else if (!held) {
    endInhibition(number);  // it is over already
  } else {
    *held = number;
    trial_ = mainLoop_->after(trialMs, [this] { trial_.reset(); });
  }
}

void DesktopNotifications::showOthers() {
  trial_.reset();
  const auto ended = std::exchange(inhibition_, nullptr);
  if (ended && *ended != 0) endInhibition(*ended);
}

void DesktopNotifications::endInhibition(Inhibition number) {
  call(ofServer("UnInhibit"), {[this](const BusMessage&) { quietEnded(); }}, "u", number);
}

/// From now on it is somebody else's, if there is any.
void DesktopNotifications::quietEnded() {
  if (inhibition_) return;
  isOurQuiet_ = false;
  updateHeard();
}

FeedbackdHaptics::FeedbackdHaptics(std::shared_ptr<Bus> sessionBus)
    : BusService(std::move(sessionBus), "org.sigxcpu.Feedback") {}

void FeedbackdHaptics::perform() {
  constexpr int noHints = 0;
  constexpr int onlyOnce = -1;  // its natural length
  call({"/org/sigxcpu/Feedback", "org.sigxcpu.Feedback", "TriggerFeedback"}, {}, "ssa{sv}i",
       "expert.mardeck.sentrel", "message-new-instant", noHints, onlyOnce);
}

}  // namespace sentrel
