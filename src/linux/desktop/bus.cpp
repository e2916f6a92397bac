// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/bus.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <string_view>
#include <utility>

namespace sentrel {

namespace {

constexpr std::int64_t firstRetryMs = 1'000;
constexpr std::int64_t longestRetryMs = 64'000;
constexpr std::int64_t longestTimerMs = 3'600'000;
constexpr std::uint64_t usPerMs = 1'000;

constexpr auto busName = "org.freedesktop.DBus";
constexpr auto propertiesInterface = "org.freedesktop.DBus.Properties";

/// The bus starts services within 25 s; it answers sooner when it cannot.
constexpr std::int64_t startTimeoutMs = 30'000;

/// Of messages that are handled in one turn: whoever sends without end must not keep the main loop.
constexpr int mostMessages = 64;

std::string textOr(const char* text) {
  return text != nullptr ? text : "";
}

/// An address may also name a place on the network, which is not even to be looked up, or a program to start.
bool isLocal(const QByteArray& addresses) {
  return std::ranges::all_of(addresses.split(';'), [](const QByteArray& address) {
    return address.isEmpty() || address.startsWith("unix:");
  });
}

bool readBasic(sd_bus_message* message, char type, QVariant& value) {
  union {
    std::int64_t widest;
    std::int32_t number;
    std::uint32_t natural;
    double real;
    const char* text;
  } read{};
  if (sd_bus_message_read_basic(message, type, &read) <= 0) return false;
  if (type == SD_BUS_TYPE_BOOLEAN) {
    value = read.number != 0;
  } else if (type == SD_BUS_TYPE_INT32) {
    value = read.number;
  } else if (type == SD_BUS_TYPE_UINT32) {
    value = read.natural;
  } else if (type == SD_BUS_TYPE_INT64) {
    value = qint64{read.widest};
  } else if (type == SD_BUS_TYPE_DOUBLE) {
    value = read.real;
  } else if (type == SD_BUS_TYPE_STRING || type == SD_BUS_TYPE_OBJECT_PATH) {
    value = QString::fromUtf8(read.text);
  } else if (type == SD_BUS_TYPE_UNIX_FD) {
    // The message closes its own one.
    value =
        QVariant::fromValue(BusDescriptor(new int(fcntl(read.number, F_DUPFD_CLOEXEC, 3)), [](const int* d) {
          ::close(*d);
          delete d;
        }));
  }
  return true;
}

/// What is left of the message, or of the container that was entered.
QVariantList readAll(sd_bus_message* message);

bool readContainer(sd_bus_message* message, char type, std::string_view contents, QVariant& value) {
  if (sd_bus_message_enter_container(message, type, std::string(contents).c_str()) <= 0) return false;
  const QVariantList values = readAll(message);
  if (sd_bus_message_exit_container(message) < 0) return false;
  if (type == SD_BUS_TYPE_VARIANT) {
    value = values.value(0);
  } else if (type == SD_BUS_TYPE_ARRAY && contents == "{sv}") {
    QVariantMap map;
    for (const QVariant& entry : values)
      map.insert(entry.toList().value(0).toString(), entry.toList().value(1));
    value = map;
  } else if (type == SD_BUS_TYPE_ARRAY && (contents == "s" || contents == "o")) {
    value = QVariant(values).toStringList();
  } else {
    value = values;
  }
  return true;
}

QVariantList readAll(sd_bus_message* message) {
  QVariantList values;
  char type = 0;
  const char* contents = nullptr;
  while (sd_bus_message_peek_type(message, &type, &contents) > 0) {
    QVariant value;
    const bool read =
        contents != nullptr ? readContainer(message, type, contents, value) : readBasic(message, type, value);
    if (!read) break;
    values.push_back(value);
  }
  return values;
}

int receive(sd_bus_message* message, void* handler, sd_bus_error* /*error*/) noexcept {
  // The connection breaks: an answer that it makes up now is nobody's.
  if (sd_bus_is_open(sd_bus_message_get_bus(message)) <= 0) return 0;
  // Copied, because a handler may end its own subscription.
  const BusHandler called = *static_cast<BusHandler*>(handler);
  if (called) called(BusMessage(message));
  return 0;
}

/// From now on the slot owns the handler.
void own(sd_bus_slot* slot, BusHandler* handler) {
  sd_bus_slot_set_userdata(slot, handler);
  sd_bus_slot_set_destroy_callback(slot, [](void* owned) { delete static_cast<BusHandler*>(owned); });
}

Registration endOf(sd_bus_slot* slot) {
  return Registration([slot] { sd_bus_slot_unref(slot); });
}

/// May be called from its own signal.
void end(std::unique_ptr<QSocketNotifier>& notifier) {
  if (!notifier) return;
  notifier->setEnabled(false);
  notifier.release()->deleteLater();
}

}  // namespace

BusMessage::BusMessage(sd_bus_message* message)
    : isError(sd_bus_message_is_method_error(message, nullptr) > 0),
      error(isError ? textOr(sd_bus_message_get_error(message)->name) : std::string()),
      member(textOr(sd_bus_message_get_member(message))),
      signature(textOr(sd_bus_message_get_signature(message, 1))),
      arguments(readAll(message)) {}

std::string BusMessage::objectPath() const {
  const auto path = signature == "o" ? only<QString>() : std::nullopt;
  return path && *path != QLatin1String("/") ? path->toStdString() : std::string();
}

Bus::Bus(std::shared_ptr<MainLoop> mainLoop, BusKind kind)
    : mainLoop_(std::move(mainLoop)), kind_(kind), retryMs_(firstRetryMs) {}

Bus::~Bus() {
  close();
}

Registration Bus::follow(const std::function<void(bool connected)>& follower) {
  Registration registration = changed_.connect(follower);
  if (connected_) {
    follower(true);
  } else if (!bus_ && !retry_) {
    retry_ = mainLoop_->after(0, [this] { attempt(); });
  }
  return registration;
}

std::string Bus::ownName() const {
  const char* name = nullptr;
  if (connected_) sd_bus_get_unique_name(bus_.get(), &name);
  return textOr(name);
}

void Bus::close() {
  end(readable_);
  end(writable_);
  due_.reset();
  retry_.reset();
  connected_ = false;
  bus_.reset();
}

void Bus::attempt() {
  retry_.reset();
  if (changed_.observerCount() == 0) return;
  const bool isSession = kind_ == BusKind::session;
  sd_bus* made = nullptr;
  // Opening does not wait, not even for the greeting.
  if (!isLocal(qgetenv(isSession ? "DBUS_SESSION_BUS_ADDRESS" : "DBUS_SYSTEM_BUS_ADDRESS")) ||
      (isSession ? sd_bus_open_user(&made) : sd_bus_open_system(&made)) < 0) {
    lost();
    return;
  }
  bus_.reset(made);
  readable_ = std::make_unique<QSocketNotifier>(sd_bus_get_fd(made), QSocketNotifier::Read);
  writable_ = std::make_unique<QSocketNotifier>(sd_bus_get_fd(made), QSocketNotifier::Write);
  for (const auto* notifier : {readable_.get(), writable_.get()})
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [this] { process(); });
  watch();
}

void Bus::process() {
  // A handler that runs an event loop of its own hears nothing more until it returns.
  if (sd_bus_get_current_message(bus_.get()) != nullptr) return;
  const sd_bus* const processed = bus_.get();
  int done = 1;
  for (int left = mostMessages; left > 0 && done > 0; --left) {
    done = sd_bus_process(bus_.get(), nullptr);
    if (bus_.get() != processed) return;  // a handler has closed it
    if (!connected_ && sd_bus_is_ready(bus_.get()) > 0) {
      connected_ = true;
      retryMs_ = firstRetryMs;
      changed_.emit(true);
    }
  }
  if (done < 0) {
    lost();
  } else {
    watch();
  }
}

/// What the connection waits for changes with everything that is read or sent.
void Bus::watch() {
  const int events = sd_bus_get_events(bus_.get());
  writable_->setEnabled(events > 0 && (events & POLLOUT) != 0);
  std::uint64_t dueUs = 0;
  due_.reset();
  if (events >= 0 && sd_bus_get_timeout(bus_.get(), &dueUs) >= 0 && dueUs == UINT64_MAX) return;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const auto nowMs = static_cast<std::int64_t>(now.tv_sec) * 1'000 + now.tv_nsec / 1'000'000;
  const auto delayMs = static_cast<std::int64_t>(dueUs / usPerMs) + 1 - nowMs;
  due_ = mainLoop_->after(std::clamp<std::int64_t>(delayMs, 0, longestTimerMs), [this] { process(); });
}

void Bus::lost() {
  close();
  retry_ = mainLoop_->after(retryMs_, [this] { attempt(); });
  retryMs_ = std::min(retryMs_ * 2, longestRetryMs);
  changed_.emit(false);
}

Bus::Message Bus::newCall(const std::string& destination, const BusMember& method) {
  sd_bus_message* call = nullptr;
  if (connected_)
    sd_bus_message_new_method_call(bus_.get(), &call, destination.c_str(), method.path.c_str(),
                                   method.interface.c_str(), method.name.c_str());
  return Message(call);
}

void Bus::send(sd_bus_message* message, BusReply reply) {
  sd_bus_message_set_auto_start(message, static_cast<int>(reply.startsService));
  const std::uint64_t timeoutUs = reply.timeoutMs == BusReply::noTimeout
                                      ? UINT64_MAX
                                      : static_cast<std::uint64_t>(reply.timeoutMs) * usPerMs;
  auto handler = std::make_unique<BusHandler>(std::move(reply.handler));
  sd_bus_slot* slot = nullptr;
  if (sd_bus_call_async(bus_.get(), &slot, message, &receive, handler.get(), timeoutUs) >= 0) {
    own(slot, handler.release());
    // The connection keeps it until the reply has come.
    sd_bus_slot_set_floating(slot, 1);
    sd_bus_slot_unref(slot);
  }
  watch();
}

Registration Bus::listen(const std::string& sender, const BusMember& signal, BusHandler handler,
                         const std::string& firstArgument) {
  if (!connected_ || (!signal.path.empty() && sd_bus_object_path_is_valid(signal.path.c_str()) <= 0))
    return {};
  std::string rule = "type='signal',sender='" + sender + "',interface='" + signal.interface + "',member='" +
                     signal.name + "'";
  if (!signal.path.empty()) rule += ",path='" + signal.path + "'";
  if (!firstArgument.empty()) rule += ",arg0='" + firstArgument + "'";
  auto owned = std::make_unique<BusHandler>(std::move(handler));
  sd_bus_slot* slot = nullptr;
  if (sd_bus_add_match_async(bus_.get(), &slot, rule.c_str(), &receive, nullptr, owned.get()) < 0) return {};
  own(slot, owned.release());
  watch();
  return endOf(slot);
}

Registration Bus::offer(const char* path, const char* interface, const sd_bus_vtable* members, void* object) {
  sd_bus_slot* slot = nullptr;
  if (!connected_ || sd_bus_add_object_vtable(bus_.get(), &slot, path, interface, members, object) < 0)
    return {};
  return endOf(slot);
}

void Bus::announceChanges(const char* path, const char* interface, std::vector<std::string> properties) {
  if (!connected_ || properties.empty()) return;
  std::vector<char*> names;
  names.reserve(properties.size() + 1);
  for (std::string& property : properties) names.push_back(property.data());
  names.push_back(nullptr);
  sd_bus_emit_properties_changed_strv(bus_.get(), path, interface, names.data());
  watch();
}

BusService::BusService(std::shared_ptr<Bus> bus, std::string name)
    : bus_(std::move(bus)), name_(std::move(name)) {
  connection_ = bus_->follow([this](bool connected) { connectionChanged(connected); });
}

void BusService::connectionChanged(bool connected) {
  lose();
  known_ = false;
  ownerChanges_.reset();
  if (!connected) return;
  ownerChanges_ = bus_->listen(
      busName, {"/org/freedesktop/DBus", busName, "NameOwnerChanged"},
      [this](const BusMessage& signal) {
        if (signal.signature == "sss") setOwner(signal.arguments.at(2).toString().toStdString());
      },
      name_);
  const auto answered = [this, alive = std::weak_ptr(alive_)](const BusMessage& reply) {
    if (alive.expired() || known_) return;
    setOwner(reply.only<QString>().value_or(QString()).toStdString());
    if (!isPresent()) absent();
  };
  bus_->call(busName, {"/org/freedesktop/DBus", busName, "GetNameOwner"}, {answered, BusReply::noTimeout},
             "s", name_.c_str());
}

void BusService::lose() {
  if (!owner_) return;
  owner_.reset();
  // As this is made there is no owner yet.
  gone();  // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall)
}

void BusService::setOwner(const std::string& owner) {
  known_ = true;
  if (owner_ && *owner_ == owner) return;
  lose();
  if (owner.empty()) return;
  owner_ = std::make_shared<const std::string>(owner);
  appeared();
}

/// An answer that was meant for an earlier owner, or comes after this has gone, is nobody's.
BusReply BusService::ofThisOwner(BusReply reply) const {
  if (reply.handler) {
    reply.handler = [owner = std::weak_ptr(owner_),
                     handler = std::move(reply.handler)](const BusMessage& message) {
      if (!owner.expired()) handler(message);
    };
  }
  return reply;
}

Registration BusService::listen(const BusMember& signal, BusHandler handler) const {
  return owner_ ? bus_->listen(*owner_, signal, std::move(handler)) : Registration();
}

Registration BusService::followProperties(const std::string& path, const std::string& interface,
                                          const PropertyFollower& follower) {
  if (!owner_) return {};
  const auto changed = [this, path, interface, follower](const BusMessage& signal) {
    if (signal.signature != "sa{sv}as") return;
    follower(signal.arguments.at(1).toMap(), true);
    if (!signal.arguments.at(2).toStringList().isEmpty()) readProperties(path, interface, follower);
  };
  Registration listening =
      bus_->listen(*owner_, {path, propertiesInterface, "PropertiesChanged"}, changed, interface);
  readProperties(path, interface, follower);
  return listening;
}

void BusService::readProperties(const std::string& path, const std::string& interface,
                                const PropertyFollower& follower) {
  const auto read = [follower](const BusMessage& reply) {
    follower(reply.only<QVariantMap>().value_or(QVariantMap()), false);
  };
  call({path, propertiesInterface, "GetAll"}, {read}, "s", interface.c_str());
}

void BusService::start(std::function<void()> failed) {
  if (!known_) return;
  const auto answered = [failed = std::move(failed), alive = std::weak_ptr(alive_)](const BusMessage& reply) {
    if (reply.isError && failed && !alive.expired()) failed();
  };
  bus_->call(busName, {"/org/freedesktop/DBus", busName, "StartServiceByName"}, {answered, startTimeoutMs},
             "su", name_.c_str(), 0U);
}

}  // namespace sentrel
