// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <systemd/sd-bus.h>

#include <QSocketNotifier>
#include <QString>
#include <QVariant>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/main_loop.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// What another program sent: a reply, an error, a signal, or a call. Any program can send anything, so
/// whoever uses a value says which type it must have.
struct BusMessage {
  explicit BusMessage(sd_bus_message* message);

  bool isError;
  std::string error;  ///< the error's name
  std::string member;
  std::string signature;  ///< of the arguments
  /// "b", "i", "u", "x", "d" and "s" have the types of Qt's that they are made of. An object path is a text,
  /// and a variant its content. "a{sv}" is a QVariantMap, "as" and "ao" are a QStringList, and other arrays
  /// and structures a QVariantList; "h" is a BusDescriptor. What nobody here reads is an invalid QVariant.
  QVariantList arguments;

  /// The only argument of a reply or signal, of exactly this type.
  template <class T>
  [[nodiscard]] std::optional<T> only() const;
  /// The object path in the only argument; an empty text where there is none.
  [[nodiscard]] std::string objectPath() const;
};

/// A file descriptor that came with a message; closed with its last copy.
using BusDescriptor = std::shared_ptr<const int>;

/// A value of exactly this type.
template <class T>
[[nodiscard]] std::optional<T> valueOf(const QVariant& value) {
  if (value.metaType() != QMetaType::fromType<T>()) return std::nullopt;
  return value.value<T>();
}
template <class T>
[[nodiscard]] std::optional<T> valueOf(const QVariantMap& values, const char* key) {
  return valueOf<T>(values.value(QString::fromLatin1(key)));
}

template <class T>
std::optional<T> BusMessage::only() const {
  return !isError && arguments.size() == 1 ? valueOf<T>(arguments.constFirst()) : std::nullopt;
}

/// A method or a signal.
struct BusMember {
  std::string path;  ///< of a signal, empty for every path
  std::string interface;
  std::string name;
};

using BusHandler = std::function<void(const BusMessage&)>;

/// What becomes of a call.
struct BusReply {
  static constexpr std::int64_t noTimeout = -1;

  BusHandler handler = {};  ///< gets the reply or an error; nothing where the connection breaks meanwhile
  std::int64_t timeoutMs = 5'000;
  bool startsService = false;  ///< whether the bus may start the service for this call
};

enum class BusKind { session, system };

/// Our connection to a bus, made when somebody first wants it and again after it was lost. Nothing here waits
/// for the bus, which may hang or break at any time: what is sent is queued, and the main loop reads what
/// comes. Main thread; every handler is called from the main loop.
class Bus {
 public:
  Bus(std::shared_ptr<MainLoop> mainLoop, BusKind kind);
  ~Bus();
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  /// Tells each connection (true), and each loss and each attempt that failed (false). Tells an existing
  /// connection at once.
  [[nodiscard]] Registration follow(const std::function<void(bool connected)>& follower);
  [[nodiscard]] bool isConnected() const { return connected_; }
  /// Our unique name; empty without a connection.
  [[nodiscard]] std::string ownName() const;
  /// Leaves the bus. Nobody is told, and nothing connects by itself any more.
  void close();

  /// Calls a method. `types` is the signature of `values` as sd_bus_message_append() has it: texts are
  /// `const char*`, truth values int, and an array has its length before it. Without a connection nothing
  /// happens.
  template <class... Values>
  void call(const std::string& destination, const BusMember& method, BusReply reply, const char* types,
            Values... values) {
    const Message message = newCall(destination, method);
    if (message && sd_bus_message_append(message.get(), types, values...) >= 0)
      send(message.get(), std::move(reply));
  }
  /// Hears one signal of `sender`, which is a unique name or the bus itself, until the registration ends or
  /// the connection is lost. A `firstArgument` that is not empty must be that of the signal.
  [[nodiscard]] Registration listen(const std::string& sender, const BusMember& signal, BusHandler handler,
                                    const std::string& firstArgument = {});
  /// Offers an interface to others, until the registration ends or the connection is lost.
  [[nodiscard]] Registration offer(const char* path, const char* interface, const sd_bus_vtable* members,
                                   void* object);
  /// Tells everybody the new values of properties that are offered, in one signal.
  void announceChanges(const char* path, const char* interface, std::vector<std::string> properties);

 private:
  struct Release {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
  };
  using Message = std::unique_ptr<sd_bus_message, Release>;

  [[nodiscard]] Message newCall(const std::string& destination, const BusMember& method);
  void send(sd_bus_message* message, BusReply reply);
  void attempt();
  void process();
  void watch();
  void lost();

  const std::shared_ptr<MainLoop> mainLoop_;
  const BusKind kind_;
  std::unique_ptr<sd_bus, Release> bus_;
  bool connected_ = false;  // and the bus has answered
  std::unique_ptr<QSocketNotifier> readable_;
  std::unique_ptr<QSocketNotifier> writable_;
  Registration due_;  // the next timeout of the connection
  Registration retry_;
  std::int64_t retryMs_;
  Signal<bool> changed_;
};

/// A service that others provide on a bus, under a well-known name. Follows whoever owns the name: calls and
/// signals go to and come from this owner alone, so that nobody else can speak for it. No call starts it.
/// Whoever uses a service derives from this, to be told what happens to it. Main thread.
class BusService {
 public:
  BusService(std::shared_ptr<Bus> bus, std::string name);
  virtual ~BusService() = default;
  BusService(const BusService&) = delete;
  BusService& operator=(const BusService&) = delete;

  [[nodiscard]] bool isPresent() const { return owner_ != nullptr; }
  /// Whether the bus says that nobody provides the service.
  [[nodiscard]] bool isAbsent() const { return known_ && !owner_; }
  [[nodiscard]] const Bus& bus() const { return *bus_; }

  /// Calls the present owner; nothing happens where there is none.
  template <class... Values>
  void call(const BusMember& method, BusReply reply, const char* types, Values... values) {
    if (owner_) bus_->call(*owner_, method, ofThisOwner(std::move(reply)), types, values...);
  }
  /// Hears one signal of the present owner, until the registration ends or the owner goes.
  [[nodiscard]] Registration listen(const BusMember& signal, BusHandler handler) const;

  /// Gets properties of an interface: all of them, `changed` being false, and then those that change. What a
  /// change does not name with its value is read again. What cannot be read is told as no properties.
  using PropertyFollower = std::function<void(const QVariantMap& properties, bool changed)>;
  [[nodiscard]] Registration followProperties(const std::string& path, const std::string& interface,
                                              const PropertyFollower& follower);

  /// Asks the bus to start the service, unless nobody knows yet whether it runs. `failed` is called when the
  /// bus cannot.
  void start(std::function<void()> failed = {});

 private:
  // Not called before the service is made.
  virtual void appeared() {}
  /// An owner has left, and the next one has not appeared yet. What was listened to and asked of it ends with
  /// it, silently.
  virtual void gone() {}
  /// The bus says, after we connected, that nobody provides the service.
  virtual void absent() {}

  void connectionChanged(bool connected);
  void setOwner(const std::string& owner);
  void lose();
  void readProperties(const std::string& path, const std::string& interface,
                      const PropertyFollower& follower);
  [[nodiscard]] BusReply ofThisOwner(BusReply reply) const;

  const std::shared_ptr<Bus> bus_;
  const std::string name_;
  bool known_ = false;                        // whether the bus has told who owns the name
  std::shared_ptr<const std::string> owner_;  // its unique name; null while there is none
  Registration ownerChanges_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  Registration connection_;
};

}  // namespace sentrel
