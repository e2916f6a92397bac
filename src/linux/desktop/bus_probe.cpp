// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/bus_probe.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QByteArray>
#include <QList>
#include <array>
#include <cstddef>
#include <cstring>
#include <utility>

namespace sentrel {

namespace {

constexpr std::int64_t patienceMs = 2'000;

/// Where the bus library looks, as a list of addresses separated by semicolons.
QByteArray addressOf(BusKind kind) {
  const char* variable = kind == BusKind::session ? "DBUS_SESSION_BUS_ADDRESS" : "DBUS_SYSTEM_BUS_ADDRESS";
  if (qEnvironmentVariableIsSet(variable)) return qgetenv(variable);
  if (kind == BusKind::system) return "unix:path=/run/dbus/system_bus_socket";
  const QByteArray runtimeFolder = qgetenv("XDG_RUNTIME_DIR");
  // Elsewhere the library would start a bus of its own, with nobody on it.
  return runtimeFolder.isEmpty() ? QByteArray() : "unix:path=" + runtimeFolder + "/bus";
}

/// A socket that has begun to connect to one address of the list; -1 where there is none.
int connectTo(const QByteArray& addresses) {
  for (const QByteArray& address : addresses.split(';')) {
    if (!address.startsWith("unix:")) continue;
    for (const QByteArray& pair : address.mid(5).split(',')) {
      const qsizetype equals = pair.indexOf('=');
      const QByteArray key = pair.left(equals);
      if (equals < 0 || (key != "path" && key != "abstract")) continue;
      QByteArray name = QByteArray::fromPercentEncoding(pair.mid(equals + 1));
      if (key == "abstract") name.prepend('\0');
      sockaddr_un place{};
      place.sun_family = AF_UNIX;
      if (name.isEmpty() || name.size() >= static_cast<qsizetype>(sizeof place.sun_path)) continue;
      std::memcpy(place.sun_path, name.constData(), static_cast<std::size_t>(name.size()));
      const auto size =
          static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + static_cast<std::size_t>(name.size()));
      const int made = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
      if (made < 0) continue;
      if (::connect(made, reinterpret_cast<const sockaddr*>(&place), size) == 0) return made;
      ::close(made);
    }
  }
  return -1;
}

}  // namespace

BusProbe::BusProbe(BusKind kind, MainLoop& loop, std::function<void(bool answers)> told)
    : told_(std::move(told)), loop_(loop) {
  socket_ = connectTo(addressOf(kind));
  // The first words of every connection; a bus that lives accepts or rejects them.
  const QByteArray words =
      QByteArray(1, '\0') + "AUTH EXTERNAL " + QByteArray::number(getuid()).toHex() + "\r\n";
  const bool asked =
      socket_ >= 0 && ::send(socket_, words.constData(), static_cast<std::size_t>(words.size()),
                             MSG_NOSIGNAL) == words.size();
  end_ = loop_.after(asked ? patienceMs : 0, [this] { settle(false); });
  if (!asked) return;
  notifier_ = std::make_unique<QSocketNotifier>(socket_, QSocketNotifier::Read);
  QObject::connect(notifier_.get(), &QSocketNotifier::activated, notifier_.get(), [this] { readable(); });
}

BusProbe::~BusProbe() {
  notifier_.reset();
  if (socket_ >= 0) ::close(socket_);
}

void BusProbe::readable() {
  std::array<char, 16> answer{};
  const bool answers = ::read(socket_, answer.data(), answer.size()) > 0;
  notifier_->setEnabled(false);
  end_ = loop_.after(0, [this, answers] { settle(answers); });
}

void BusProbe::settle(bool answers) {
  // Whoever is told may end this.
  if (const auto told = std::exchange(told_, nullptr)) told(answers);
}

}  // namespace sentrel
