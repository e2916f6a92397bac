// SPDX-License-Identifier: Apache-2.0
//
// The power of the displays, told by a real Wayland compositor and by an X server that is played here: no
// server without a screen has the extension.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <string_view>

#include "linux/desktop/event_desk.h"

namespace sentrel::test {
namespace {

using enum SessionEvent;
using testing::ElementsAre;

/// An X server that knows one extension, DPMS, and one client at a time. It answers from the event loop.
class PowerOnlyServer {
 public:
  PowerOnlyServer(std::filesystem::path path, std::uint16_t minorVersion)
      : path_(std::move(path)), minorVersion_(minorVersion) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(listening_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::listen(listening_, 8);
    QObject::connect(&called_, &QSocketNotifier::activated, &called_, [this] { welcome(); });
  }
  ~PowerOnlyServer() {
    ::close(client_);
    ::close(listening_);
    ::unlink(path_.c_str());
  }
  PowerOnlyServer(const PowerOnlyServer&) = delete;
  PowerOnlyServer& operator=(const PowerOnlyServer&) = delete;

  /// Sets the level, 0 for on, and tells it to whoever asked to be told.
  void setLevel(std::uint16_t level) {
    level_ = level;
    constexpr std::uint16_t genericEvent = 35;
    if (isListenedTo) send(Packet{genericEvent | opcode << 8, sequence_, 0, 0, 0, 0, 0, 0, level, 1});
  }

  bool isListenedTo = false;
  int questions = 0;

 private:
  using Packet = std::array<std::uint16_t, 16>;
  static constexpr std::uint8_t opcode = 140;

  template <class Data>
  void send(const Data& data) const {
    ::send(client_, data.data(), sizeof data, MSG_NOSIGNAL);
  }
  bool read(void* into, std::size_t size) const {
    return size == 0 || ::recv(client_, into, size, MSG_WAITALL) == static_cast<ssize_t>(size);
  }
  void welcome() {
    client_ = ::accept(listening_, nullptr, nullptr);
    std::array<std::uint16_t, 6> hello{};
    read(hello.data(), sizeof hello);
    std::vector<char> authorization((hello[3] + 3U) / 4 * 4 + (hello[4] + 3U) / 4 * 4);
    read(authorization.data(), authorization.size());
    // No formats and one screen without depths.
    std::array<std::uint16_t, 40> setup{1, 11};
    setup[3] = (sizeof setup - 8) / 4;
    setup[13] = 0xffff;
    setup[14] = 1;
    setup[17] = 8 | 255 << 8;
    send(setup);
    asked_ = std::make_unique<QSocketNotifier>(client_, QSocketNotifier::Read);
    QObject::connect(asked_.get(), &QSocketNotifier::activated, asked_.get(), [this] { answer(); });
  }
  void answer() {
    std::array<std::uint8_t, 4> head{};
    if (!read(head.data(), head.size())) return asked_->setEnabled(false);
    std::uint16_t units = 0;
    std::memcpy(&units, head.data() + 2, sizeof units);
    std::vector<char> body((units - 1U) * 4U);
    read(body.data(), body.size());
    const int request = head[0] == opcode ? head[1] : -1;
    Packet reply{1, ++sequence_};
    if (head[0] == 98) {  // is there this extension?
      reply[4] = (std::string_view(body.data() + 4, 4) == "DPMS" ? 1 : 0) | opcode << 8;
    } else if (request == 0) {  // its version
      reply[4] = 1;
      reply[5] = minorVersion_;
    } else if (request == 1) {  // can the displays do it?
      reply[4] = 1;
    } else if (request == 7) {  // how are they?
      ++questions;
      reply[4] = level_;
      reply[5] = 1;
    } else if (request == 8) {  // tell from now on
      isListenedTo = true;
      return;
    }
    send(reply);
  }

  const std::filesystem::path path_;
  const std::uint16_t minorVersion_;
  const int listening_ = ::socket(AF_UNIX, SOCK_STREAM, 0);
  int client_ = -1;
  std::uint16_t sequence_ = 0;
  std::uint16_t level_ = 0;
  QSocketNotifier called_{listening_, QSocketNotifier::Read};
  std::unique_ptr<QSocketNotifier> asked_;
};

using DisplayPowerTest = SessionEventsDesk;

TEST_F(DisplayPowerTest, AnXServerTellsOrIsAsked) {
  const std::string number = std::to_string(2000 + ::getpid() % 20000);
  const std::filesystem::path path = "/tmp/.X11-unix/X" + number;
  ::setenv("DISPLAY", (":" + number).c_str(), 1);
  {
    PowerOnlyServer server(path, 2);
    server.setLevel(3);
    install();
    ASSERT_TRUE(runUntilDelivered(1)) << "found off";
    ASSERT_TRUE(server.isListenedTo);
    for (const auto level : std::initializer_list<std::uint16_t>{0, 1, 2, 3, 0}) server.setLevel(level);
    ASSERT_TRUE(runUntilDelivered(4));
    EXPECT_THAT(delivered, ElementsAre(screensDidSleep, screensDidWake, screensDidSleep, screensDidWake));
    EXPECT_EQ(server.questions, 1) << "nothing is polled";
    server.setLevel(3);
    ASSERT_TRUE(runUntilDelivered(5));
  }
  ASSERT_TRUE(runUntilDelivered(6)) << "a server that has gone keeps nobody away";
  EXPECT_EQ(delivered.back(), screensDidWake);
  registration.reset();

  PowerOnlyServer older(path, 1);
  delivered.clear();
  install();
  ASSERT_TRUE(runUntil([&] { return older.questions >= 2; }));
  EXPECT_FALSE(older.isListenedTo);
  older.setLevel(3);
  // Resting ends the polling, and what follows asks at once.
  events.setResting(true);
  events.setResting(false);
  ASSERT_TRUE(runUntilDelivered(1));
  EXPECT_THAT(delivered, ElementsAre(screensDidSleep));
}

/// Sway cannot switch off an output that is no real one, but it can lose it, as when a lid is closed.
TEST_F(DisplayPowerTest, AWaylandCompositorTellsWhenItsLastOutputGoes) {
  HeadlessDesktop wayland({.x11 = true, .windowManager = false, .compositor = false, .sway = true});
  ::setenv("XDG_RUNTIME_DIR", wayland.environment().at("XDG_RUNTIME_DIR").c_str(), 1);
  ::setenv("WAYLAND_DISPLAY", wayland.environment().at("WAYLAND_DISPLAY").c_str(), 1);
  ::unsetenv("DISPLAY");
  wayland.run("swaymsg", {"create_output"});
  install();
  std::promise<void> asked;
  displays->post([&] { asked.set_value(); });
  asked.get_future().wait();
  wayland.run("swaymsg", {"-t", "get_version"});  // it has heard the question by now
  wayland.removeOutput("X11-1");
  wayland.removeOutput("X11-2");
  ASSERT_TRUE(runUntilDelivered(1));
  wayland.run("swaymsg", {"create_output"});
  ASSERT_TRUE(runUntilDelivered(2));
  EXPECT_THAT(delivered, ElementsAre(screensDidSleep, screensDidWake)) << "one output is enough to be seen";
}

}  // namespace
}  // namespace sentrel::test
