// SPDX-License-Identifier: Apache-2.0
#include "app/program_bus.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <string_view>
#include <utility>

namespace sentrel {

namespace {

constexpr auto busName = "expert.mardeck.sentrel";
constexpr auto objectPath = "/expert/mardeck/sentrel";
constexpr auto stateInterface = "expert.mardeck.sentrel1";
constexpr auto applicationInterface = "org.freedesktop.Application";
constexpr std::int64_t answerDeadlineMs = 2000;
constexpr std::int64_t activationTimeoutMs = 3000;
constexpr int mostAttempts = 3;

constexpr std::array actions{"toggle", "preferences", "statistics", "about", "quit"};

/// The states as other programs read them on the bus, in their order; part of the program's interface, never
/// translated.
constexpr std::array stateNames{"nominal", "inattention", "autoPaused", "cameraBusy", "inactive", "alert"};

constexpr const char* stateName(const FilterState& state) {
  return stateNames[static_cast<std::size_t>(state.kind())];
}

const std::array stateMembers{
    sd_bus_vtable SD_BUS_VTABLE_START(0),
    sd_bus_vtable SD_BUS_PROPERTY("State", "s", nullptr, offsetof(ProgramBus::Values, state),
                                  SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    sd_bus_vtable SD_BUS_PROPERTY("IsActive", "b", nullptr, offsetof(ProgramBus::Values, isActive),
                                  SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    sd_bus_vtable SD_BUS_PROPERTY("AlertCount", "x", nullptr, offsetof(ProgramBus::Values, alertCount),
                                  SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    sd_bus_vtable SD_BUS_VTABLE_END};

// Qt takes the token from here as it activates a window on Wayland, and removes it. There is no other way.
constexpr std::string_view variable = "XDG_ACTIVATION_TOKEN";
constexpr std::size_t longestToken = 1024;
constexpr auto tokenEntry = "activation-token";

/// The environment of this process with room for the token behind all other variables, where its coming and
/// going is the change of one pointer. setenv() would move the array away from under the threads that read
/// it.
struct Reserved {
  std::vector<char*> variables;  // what `environ` shows
  std::array<char, variable.size() + longestToken + 2> text{};

  Reserved() { *std::ranges::copy(variable, text.begin()).out = '='; }
  void put(const QByteArray& token) {
    if (token.isEmpty() || static_cast<std::size_t>(token.size()) > longestToken) return;
    char* const value = text.data() + variable.size() + 1;
    *std::ranges::copy(token, value).out = '\0';
    // Others may remove variables, too; nobody adds one.
    std::size_t place = 0;
    while (variables[place] != nullptr && variables[place] != text.data()) ++place;
    std::atomic_ref(variables[place]).store(text.data(), std::memory_order_release);
  }
};

/// Never destroyed: the environment is read to the very end.
Reserved& reserved() {
  static auto* const made = new Reserved;
  return *made;
}

}  // namespace

void reserveActivationToken() {
  Reserved& made = reserved();
  const QByteArray token = qgetenv(variable.data());
  qunsetenv(variable.data());
  for (char** each = environ; *each != nullptr; ++each) made.variables.push_back(*each);
  made.variables.resize(made.variables.size() + 2, nullptr);  // the token, and the end
  environ = made.variables.data();
  made.put(token);
}

void adoptActivationToken(const QVariantMap& platformData) {
  const QByteArray token = platformData.value(QLatin1String(tokenEntry)).toString().toUtf8();
  // Where a library has added a variable, the environment is a copy that we must not touch.
  if (environ == reserved().variables.data()) reserved().put(token);
}

ProgramBus::ProgramBus(std::shared_ptr<MainLoop> mainLoop, std::shared_ptr<Bus> sessionBus, Launch launch)
    : mainLoop_(std::move(mainLoop)),
      bus_(std::move(sessionBus)),
      launch_(launch),
      values_{.state = stateName(FilterState::inactive())} {}

void ProgramBus::claimName(std::function<void(InstanceRole)> outcome) {
  outcome_ = std::move(outcome);
  deadline_ = mainLoop_->after(answerDeadlineMs, [this] { finish(InstanceRole::unreachable); });
  connection_ = bus_->follow([this](bool connected) { connectionChanged(connected); });
}

void ProgramBus::connectionChanged(bool connected) {
  offers_.clear();
  if (!connected) {
    finish(InstanceRole::unreachable);
    return;
  }
  static const std::array applicationMembers{
      sd_bus_vtable SD_BUS_VTABLE_START(0),
      sd_bus_vtable SD_BUS_METHOD("Activate", "a{sv}", "", &ProgramBus::called, SD_BUS_VTABLE_UNPRIVILEGED),
      sd_bus_vtable SD_BUS_METHOD("Open", "asa{sv}", "", &ProgramBus::called, SD_BUS_VTABLE_UNPRIVILEGED),
      sd_bus_vtable SD_BUS_METHOD("ActivateAction", "sava{sv}", "", &ProgramBus::called,
                                  SD_BUS_VTABLE_UNPRIVILEGED),
      sd_bus_vtable SD_BUS_VTABLE_END};
  // The object is there before the name is: whoever sees the name can call it.
  offers_.push_back(bus_->offer(objectPath, applicationInterface, applicationMembers.data(), this));
  offers_.push_back(bus_->offer(objectPath, stateInterface, stateMembers.data(), &values_));
  requestName();
}

void ProgramBus::requestName() {
  // An instance that runs already waits in the queue: another one may have been quicker on a new bus.
  constexpr unsigned queue = 0;
  constexpr unsigned doNotQueue = 4;
  bus_->call("org.freedesktop.DBus", {"/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName"},
             {[this](const BusMessage& reply) { nameAnswered(reply); }}, "su", busName,
             outcome_ ? doNotQueue : queue);
}

void ProgramBus::nameAnswered(const BusMessage& reply) {
  if (!outcome_) return;
  constexpr unsigned primaryOwner = 1;
  constexpr unsigned alreadyOwner = 4;
  const auto answer = reply.only<uint>();
  if (!answer) {
    finish(InstanceRole::unreachable);
  } else if (*answer == primaryOwner || *answer == alreadyOwner) {
    finish(InstanceRole::first);
  } else if (launch_ == Launch::bus) {
    finish(InstanceRole::later);  // the message that we were started for goes to the other one
  } else {
    activateOther();
  }
}

/// The other one may be ending: then it does not answer, and its name comes free.
void ProgramBus::activateOther() {
  deadline_.reset();  // the bus has answered
  const auto answered = [this](const BusMessage& reply) {
    if (reply.isError && ++attempts_ < mostAttempts) {
      requestName();
    } else {
      finish(InstanceRole::later);
    }
  };
  const QByteArray token = qgetenv(variable.data());
  bus_->call(busName, {objectPath, applicationInterface, "Activate"}, {answered, activationTimeoutMs},
             "a{sv}", token.isEmpty() ? 0 : 1, tokenEntry, "s", token.constData());
}

void ProgramBus::finish(InstanceRole role) {
  deadline_.reset();
  if (auto outcome = std::exchange(outcome_, nullptr)) outcome(role);
  const auto early = std::exchange(early_, {});
  if (role != InstanceRole::first) return;
  for (const QString& action : early) activated.emit(action);
}

/// The activation itself, documents to open, of which there are none, or an action.
int ProgramBus::called(sd_bus_message* message, void* self, sd_bus_error* error) noexcept {
  constexpr int unanswered = 1;
  auto& bus = *static_cast<ProgramBus*>(self);
  if (bus.leaving_) return unanswered;
  const BusMessage call(message);
  QString action;
  if (call.member == "ActivateAction") {
    action = call.arguments.constFirst().toString();
    if (std::ranges::none_of(actions, [&](const char* known) { return action == QLatin1String(known); }))
      return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS, "There is no such action.");
  }
  adoptActivationToken(call.arguments.constLast().toMap());
  if (bus.outcome_) {
    bus.early_.push_back(action);
  } else {
    bus.activated.emit(action);
  }
  return sd_bus_reply_method_return(message, "");
}

void ProgramBus::setState(const FilterState& state) {
  const char* name = stateName(state);
  if (std::exchange(values_.state, name) != name) announce("State");
}

void ProgramBus::setActive(bool active) {
  if (std::exchange(values_.isActive, static_cast<int>(active)) != static_cast<int>(active))
    announce("IsActive");
}

void ProgramBus::setAlertCount(std::int64_t count) {
  if (std::exchange(values_.alertCount, count) != count) announce("AlertCount");
}

void ProgramBus::announce(const char* property) {
  bus_->announceChange(objectPath, stateInterface, property);
}

}  // namespace sentrel
