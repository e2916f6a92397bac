// SPDX-License-Identifier: Apache-2.0
#include "app/program_bus.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>

#include "app/program_interface.h"

namespace sentrel {

namespace {

using program_interface::busName;
using program_interface::tokenEntry;
constexpr auto objectPath = program_interface::path;
constexpr std::int64_t answerDeadlineMs = 2000;
constexpr std::int64_t activationTimeoutMs = 3000;
constexpr int mostAttempts = 3;

constexpr std::array<std::string_view, 6> actions{"toggle",     "cover", "preferences",
                                                  "statistics", "about", "quit"};

/// In their order.
constexpr std::array stateNames{"nominal", "inattention", "autoPaused", "cameraBusy", "inactive", "alert"};

// The properties, which sd-bus reads from ProgramBus::Values.

template <class Visitor>
void forEachProperty(Visitor&& visit) {
  using V = ProgramBus::Values;
  visit("State", &V::state);
  visit("Status", &V::status);
  visit("IsActive", &V::isActive);
  visit("AlertCount", &V::alertCount);
  visit("PauseEnd", &V::pauseEnd);
  visit("Guests", &V::guests);
  visit("GuestsEnd", &V::guestsEnd);
  visit("IgnoredFaces", &V::ignoredFaces);
  visit("IsScreenShared", &V::isScreenShared);
  visit("IsCovered", &V::isCovered);
}

int append(sd_bus_message* reply, const std::string& value) {
  return sd_bus_message_append(reply, "s", value.c_str());
}
int append(sd_bus_message* reply, bool value) {
  return sd_bus_message_append(reply, "b", static_cast<int>(value));
}
int append(sd_bus_message* reply, std::int64_t value) {
  return sd_bus_message_append(reply, "x", value);
}

int readProperty(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* property,
                 sd_bus_message* reply, void* values, sd_bus_error* /*error*/) noexcept {
  int done = -ENOENT;
  forEachProperty([&](std::string_view name, auto field) {
    if (name == property) done = append(reply, static_cast<ProgramBus::Values*>(values)->*field);
  });
  return done;
}

std::vector<sd_bus_vtable> propertyMembers() {
  std::vector<sd_bus_vtable> members{sd_bus_vtable SD_BUS_VTABLE_START(0)};
  forEachProperty([&]<class T>(const char* name, T ProgramBus::Values::* /*field*/) {
    const char* type = std::is_same_v<T, std::string> ? "s" : std::is_same_v<T, bool> ? "b" : "x";
    members.push_back(
        sd_bus_vtable SD_BUS_PROPERTY(name, type, readProperty, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE));
  });
  members.push_back(sd_bus_vtable SD_BUS_VTABLE_END);
  return members;
}

// Qt takes the token from here as it activates a window on Wayland, and removes it. There is no other way.
constexpr std::string_view variable = "XDG_ACTIVATION_TOKEN";
constexpr std::size_t longestToken = 1024;

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

const char* stateName(const FilterState& state) {
  return stateNames[static_cast<std::size_t>(state.kind())];
}

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
      values_{.state = stateName(FilterState::inactive()), .status = {}} {}

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
  constexpr auto method = [](const char* name, const char* types = "", const char* names = "",
                             const char* result = "") {
    return sd_bus_vtable SD_BUS_METHOD_WITH_NAMES(name, types, names, result, , &ProgramBus::called,
                                                  SD_BUS_VTABLE_UNPRIVILEGED);
  };
  static const std::array applicationMembers{
      sd_bus_vtable SD_BUS_VTABLE_START(0), method("Activate", "a{sv}", SD_BUS_PARAM(platform_data)),
      method("Open", "asa{sv}", SD_BUS_PARAM(uris) SD_BUS_PARAM(platform_data)),
      method("ActivateAction", "sava{sv}",
             SD_BUS_PARAM(action_name) SD_BUS_PARAM(parameter) SD_BUS_PARAM(platform_data)),
      sd_bus_vtable SD_BUS_VTABLE_END};
  static const std::array ownMethods{sd_bus_vtable SD_BUS_VTABLE_START(0),
                                     method("SwitchOn"),
                                     method("SwitchOff"),
                                     method("Toggle"),
                                     method("Pause", "x", SD_BUS_PARAM(duration_ms)),
                                     method("Resume"),
                                     method("Welcome", "xx", SD_BUS_PARAM(guests) SD_BUS_PARAM(duration_ms)),
                                     method("SendGuestsAway"),
                                     method("Cover"),
                                     method("Privacy", "", SD_BUS_PARAM(holds) SD_BUS_PARAM(report), "bs"),
                                     method("Report", "", SD_BUS_PARAM(words), "s"),
                                     method("Quit"),
                                     sd_bus_vtable SD_BUS_VTABLE_END};
  // Never destroyed, because sd-bus reads it to the very end.
  static const auto& ownProperties = *new std::vector(propertyMembers());
  // The object is there before the name is: whoever sees the name can call it.
  offers_.push_back(bus_->offer(objectPath, program_interface::application, applicationMembers.data(), this));
  offers_.push_back(bus_->offer(objectPath, program_interface::name, ownMethods.data(), this));
  offers_.push_back(bus_->offer(objectPath, program_interface::name, ownProperties.data(), &values_));
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
    const bool isEnding = reply.isError && reply.error != program_interface::noDisplayError;
    if (isEnding && ++attempts_ < mostAttempts) {
      requestName();
    } else {
      finish(reply.isError ? InstanceRole::later : InstanceRole::activator);
    }
  };
  const QByteArray token = qgetenv(variable.data());
  bus_->call(busName, {objectPath, program_interface::application, "Activate"},
             {answered, activationTimeoutMs}, "a{sv}", token.isEmpty() ? 0 : 1, tokenEntry, "s",
             token.constData());
}

void ProgramBus::finish(InstanceRole role) {
  deadline_.reset();
  if (auto outcome = std::exchange(outcome_, nullptr)) outcome(role);
  const auto early = std::exchange(early_, {});
  if (role != InstanceRole::first) return;
  for (const Message& message : early) answer(message.get());
}

/// Any method that we offer.
int ProgramBus::called(sd_bus_message* message, void* self, sd_bus_error* /*error*/) noexcept {
  constexpr int answeredByUs = 1;  // now, later or never
  auto& bus = *static_cast<ProgramBus*>(self);
  if (bus.leaving_ || (!bus.outcome_ && !(bus.perform && bus.prove && bus.report))) return answeredByUs;
  if (bus.outcome_) {
    bus.early_.emplace_back(sd_bus_message_ref(message), sd_bus_message_unref);
  } else {
    bus.answer(message);
  }
  return answeredByUs;
}

void ProgramBus::answer(sd_bus_message* message) const {
  const BusMessage call(message);
  // The call is held until the answer is known; a caller that has gone is no error.
  const auto held = [message] { return Message(sd_bus_message_ref(message), sd_bus_message_unref); };
  if (call.member == "Privacy")
    return prove([asked = held()](bool holds, const std::string& words) {
      sd_bus_reply_method_return(asked.get(), "bs", static_cast<int>(holds), words.c_str());
    });
  if (call.member == "Report")
    return report([asked = held()](const std::string& words) {
      sd_bus_reply_method_return(asked.get(), "s", words.c_str());
    });
  std::string request = call.member == "Open" ? "Activate" : call.member;  // there are no documents
  const char* refusal = nullptr;
  if (request == "ActivateAction") {
    request = call.arguments.constFirst().toString().toStdString();
    if (std::ranges::find(actions, request) == actions.end()) refusal = program_interface::misusedError;
  }
  std::vector<std::int64_t> numbers;
  for (const QVariant& argument : call.arguments) numbers.push_back(argument.toLongLong());
  if (!call.arguments.isEmpty()) adoptActivationToken(call.arguments.constLast().toMap());
  if (refusal == nullptr) refusal = perform(request, numbers);
  if (refusal == nullptr) {
    sd_bus_reply_method_return(message, "");
  } else {
    sd_bus_reply_method_errorf(message, refusal, "%s was refused.", call.member.c_str());
  }
}

void ProgramBus::show(const FilterState& state, Values values) {
  values.state = stateName(state);
  const Values former = std::exchange(values_, std::move(values));
  std::vector<std::string> changed;
  forEachProperty([&](const char* name, auto field) {
    if (former.*field != values_.*field) changed.emplace_back(name);
  });
  bus_->announceChanges(objectPath, program_interface::name, std::move(changed));
}

}  // namespace sentrel
