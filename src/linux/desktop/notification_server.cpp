// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/notification_server.h"

#include <QVariantMap>
#include <utility>

#include "linux/desktop/bus_values.h"

namespace sentrel {

namespace {

/// After a server could not be started, no start is tried for this long.
constexpr std::chrono::minutes startRest{10};

/// Who asks gives up by himself; without a bus nobody would ever take the questions away.
constexpr std::size_t mostQuestions = 8;

BusPeer::Place ofServer(const char* member) {
  return {QStringLiteral("/org/freedesktop/Notifications"), QStringLiteral("org.freedesktop.Notifications"),
          QString::fromLatin1(member)};
}

QVariantList notifyArguments(const NotificationContent& content, std::uint32_t replaces) {
  constexpr std::uint8_t critical = 2;
  const QVariantMap hints{{QStringLiteral("urgency"), QVariant::fromValue(critical)},
                          {QStringLiteral("sound-name"), QStringLiteral("message-new-instant")},
                          {QStringLiteral("desktop-entry"), QStringLiteral("expert.mardeck.sentrel")}};
  constexpr int serversOwnExpiry = -1;
  // The action "default" is the notification itself; its label is not shown.
  return {QStringLiteral("Sentrel"),
          replaces,
          QStringLiteral("expert.mardeck.sentrel"),
          QString::fromStdString(content.title),
          QString::fromStdString(content.body),
          QStringList{QStringLiteral("default"), QStringLiteral("Sentrel")},
          hints,
          serversOwnExpiry};
}

}  // namespace

NotificationServer::NotificationServer(BusConnection& sessionBus,
                                       std::function<void(const std::string& identifier)> chosen)
    : chosen_(std::move(chosen)),
      server_(
          sessionBus, QStringLiteral("org.freedesktop.Notifications"),
          {.appeared = [this] { appeared(); }, .gone = [this] { gone(); }, .absent = [this] { absent(); }}) {}

void NotificationServer::appeared() {
  starting_ = false;
  startFailedAt_.reset();
  for (auto& question : std::exchange(questions_, {})) ask(std::move(question));
  for (auto& [identifier, entry] : entries_) showNext(identifier);
}

/// Nobody serves: what was asked and added before we knew that is a reason to start a server.
void NotificationServer::absent() {
  bool needed = !questions_.empty();
  for (const auto& [identifier, entry] : entries_) needed = needed || entry.next.has_value();
  if (needed) startServer();
}

void NotificationServer::gone() {
  starting_ = false;
  listening_.clear();
  for (auto& [identifier, entry] : entries_) {
    entry.number = 0;  // the next server counts anew
    entry.underWay = false;
    entry.unwanted = false;
  }
}

void NotificationServer::ask(std::function<void(bool answers)> answer) {
  if (!server_.isPresent()) {
    if (questions_.size() == mostQuestions) questions_.erase(questions_.begin());
    questions_.push_back(std::move(answer));
    startServer();
    return;
  }
  server_.call(ofServer("GetServerInformation"), {}, [answer = std::move(answer)](const QDBusMessage& reply) {
    answer(reply.type() == QDBusMessage::ReplyMessage);
  });
}

void NotificationServer::add(const std::string& identifier, const NotificationContent& content) {
  Entry& entry = entries_[identifier];
  entry.next = content;
  entry.unwanted = false;
  if (server_.isPresent()) {
    showNext(identifier);
  } else {
    startServer();
  }
}

void NotificationServer::remove(const std::string& identifier) {
  const auto found = entries_.find(identifier);
  if (found == entries_.end()) return;
  Entry& entry = found->second;
  entry.next.reset();
  entry.unwanted = entry.underWay;
  close(entry);
  listenWhileShown();
}

void NotificationServer::showNext(const std::string& identifier) {
  Entry& entry = entries_[identifier];
  if (entry.underWay || !entry.next) return;
  const NotificationContent content = *std::exchange(entry.next, std::nullopt);
  entry.underWay = true;
  // A late answer is still an answer: without its number a notification could never be taken away.
  server_.call(
      ofServer("Notify"), notifyArguments(content, entry.number),
      [this, identifier](const QDBusMessage& reply) { shown(identifier, reply); }, BusPeer::endlessMs);
}

void NotificationServer::shown(const std::string& identifier, const QDBusMessage& reply) {
  Entry& entry = entries_[identifier];
  entry.underWay = false;
  entry.number = onlyArgument<uint>(reply).value_or(0);
  if (std::exchange(entry.unwanted, false)) close(entry);
  showNext(identifier);
  listenWhileShown();
}

void NotificationServer::close(Entry& entry) {
  if (entry.number == 0) return;
  server_.call(ofServer("CloseNotification"), {std::exchange(entry.number, 0U)});
}

void NotificationServer::startServer() {
  if (starting_ || server_.presence() != BusPeer::Presence::absent) return;
  if (startFailedAt_ && std::chrono::steady_clock::now() - *startFailedAt_ < startRest) {
    startIsHopeless();
    return;
  }
  starting_ = true;
  server_.start([this](const QDBusMessage& reply) {
    starting_ = false;
    if (reply.type() == QDBusMessage::ReplyMessage) return;  // its name appears
    startFailedAt_ = std::chrono::steady_clock::now();
    startIsHopeless();
  });
}

void NotificationServer::startIsHopeless() {
  for (const auto& question : std::exchange(questions_, {})) question(false);
}

std::optional<std::string> NotificationServer::identifierOf(std::uint32_t number) const {
  for (const auto& [identifier, entry] : entries_) {
    if (number != 0 && entry.number == number) return identifier;
  }
  return std::nullopt;
}

/// Servers tell everybody about everybody's notifications, so they are listened to only while one is ours.
void NotificationServer::listenWhileShown() {
  bool anyShown = false;
  for (const auto& [identifier, entry] : entries_) anyShown = anyShown || entry.number != 0;
  if (!anyShown) {
    listening_.clear();
    return;
  }
  if (!listening_.empty()) return;
  listening_.push_back(server_.listen(ofServer("ActionInvoked"), [this](const QDBusMessage& signal) {
    if (signal.signature() != QLatin1String("us")) return;
    if (const auto identifier = identifierOf(signal.arguments().at(0).toUInt())) chosen_(*identifier);
  }));
  listening_.push_back(server_.listen(ofServer("NotificationClosed"), [this](const QDBusMessage& signal) {
    if (signal.signature() != QLatin1String("uu")) return;
    if (const auto identifier = identifierOf(signal.arguments().at(0).toUInt()))
      entries_[*identifier].number = 0;
    listenWhileShown();
  }));
}

}  // namespace sentrel
