// SPDX-License-Identifier: Apache-2.0
//
// The power of the displays, told by a real Wayland compositor and by an X server that is played here: no
// server without a screen has the extension.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <memory>
#include <mutex>
#include <thread>

#include "linux/desktop/desktop_session_events.h"
#include "linux/desktop/event_desk.h"
#include "stage/wait_until.h"

namespace sentrel::test {
namespace {

using enum SessionEvent;
using testing::ElementsAre;

/// An X server that knows one extension, DPMS, and one client.
class PowerOnlyServer {
 public:
  PowerOnlyServer(std::filesystem::path path, std::uint16_t minorVersion)
      : path_(std::move(path)), minorVersion_(minorVersion), listening_(::socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
    ::unlink(path_.c_str());
    EXPECT_EQ(::bind(listening_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::listen(listening_, 8);
    thread_ = std::thread([this] { serve(); });
  }
  ~PowerOnlyServer() {
    over_ = true;
    thread_.join();
    if (client_ >= 0) ::close(client_);
    ::close(listening_);
    ::unlink(path_.c_str());
  }
  PowerOnlyServer(const PowerOnlyServer&) = delete;
  PowerOnlyServer& operator=(const PowerOnlyServer&) = delete;

  /// Sets the level, 0 for on, and tells it to whoever asked to be told.
  void setLevel(std::uint16_t level) {
    const std::lock_guard lock(mutex_);
    level_ = level;
    if (!told_) return;
    Packet event{};
    event[0] = 35;  // generic event
    event[1] = opcode;
    put(event, 2, sequence_);
    put(event, 16, level);
    event[18] = 1;
    send(event);
  }
  [[nodiscard]] bool isListenedTo() {
    const std::lock_guard lock(mutex_);
    return told_;
  }
  [[nodiscard]] int questions() {
    const std::lock_guard lock(mutex_);
    return questions_;
  }

 private:
  using Packet = std::array<std::uint8_t, 32>;
  static constexpr std::uint8_t opcode = 140;

  template <class Bytes>
  static void put(Bytes& bytes, std::size_t at, std::uint16_t value) {
    std::memcpy(bytes.data() + at, &value, sizeof value);
  }
  void send(const Packet& packet) const {
    EXPECT_EQ(::write(client_, packet.data(), packet.size()), static_cast<ssize_t>(packet.size()));
  }
  bool read(void* into, std::size_t size) const {
    auto* at = static_cast<std::uint8_t*>(into);
    while (size > 0) {
      pollfd readable{client_, POLLIN, 0};
      if (over_) return false;
      if (::poll(&readable, 1, 20) != 1) continue;
      const ssize_t count = ::read(client_, at, size);
      if (count <= 0) return false;
      at += count;
      size -= static_cast<std::size_t>(count);
    }
    return true;
  }
  void serve() {
    while (!over_) {
      pollfd readable{listening_, POLLIN, 0};
      if (::poll(&readable, 1, 20) != 1) continue;
      if (client_ >= 0) ::close(client_);
      client_ = ::accept(listening_, nullptr, nullptr);
      welcome();
      for (std::array<std::uint8_t, 4> head{}; read(head.data(), head.size());) answer(head);
      const std::lock_guard lock(mutex_);
      told_ = false;
    }
  }
  void welcome() {
    std::array<std::uint8_t, 12> hello{};
    if (!read(hello.data(), hello.size())) return;
    std::array<std::uint16_t, 2> authorization{};
    std::memcpy(authorization.data(), hello.data() + 6, sizeof authorization);
    std::vector<std::uint8_t> skipped((authorization[0] + 3U) / 4 * 4 + (authorization[1] + 3U) / 4 * 4);
    (void)read(skipped.data(), skipped.size());
    // No formats and one screen without depths.
    std::array<std::uint8_t, 8 + 32 + 40> setup{};
    setup[0] = 1;
    put(setup, 2, 11);
    put(setup, 6, (setup.size() - 8) / 4);
    put(setup, 8 + 18, 0xffff);
    setup[8 + 20] = 1;
    setup[8 + 26] = 8;
    setup[8 + 27] = 255;
    EXPECT_EQ(::write(client_, setup.data(), setup.size()), static_cast<ssize_t>(setup.size()));
    const std::lock_guard lock(mutex_);
    sequence_ = 0;
  }
  void answer(const std::array<std::uint8_t, 4>& head) {
    std::uint16_t units = 0;
    std::memcpy(&units, head.data() + 2, sizeof units);
    std::vector<char> body((units - 1U) * 4U);
    (void)read(body.data(), body.size());
    const std::lock_guard lock(mutex_);
    ++sequence_;
    Packet reply{};
    reply[0] = 1;
    put(reply, 2, sequence_);
    if (head[0] == 98) {  // is there this extension?
      reply[8] = std::string_view(body.data() + 4, 4) == "DPMS" ? 1 : 0;
      reply[9] = opcode;
    } else if (head[0] == opcode && head[1] == 0) {
      put(reply, 8, 1);
      put(reply, 10, minorVersion_);
    } else if (head[0] == opcode && head[1] == 1) {
      reply[8] = 1;
    } else if (head[0] == opcode && head[1] == 7) {
      ++questions_;
      put(reply, 8, level_);
      reply[10] = 1;
    } else if (head[0] == opcode && head[1] == 8) {
      told_ = true;
      return;
    }
    send(reply);
  }

  const std::filesystem::path path_;
  const std::uint16_t minorVersion_;
  const int listening_;
  int client_ = -1;
  std::atomic<bool> over_ = false;
  std::mutex mutex_;
  std::uint16_t sequence_ = 0;
  std::uint16_t level_ = 0;
  bool told_ = false;
  int questions_ = 0;
  std::thread thread_;
};

class DisplayPowerTest : public EventDesk {
 protected:
  ~DisplayPowerTest() override { desktop.exportToProcess(); }

  void install() {
    registration = events.install([this](SessionEvent event) { delivered.push_back(event); });
  }
  [[nodiscard]] bool runUntilDelivered(std::size_t count) {
    return runUntil([&] { return delivered.size() >= count; });
  }

  DesktopSessionEvents events{loop, clock, buses, displays};
  std::vector<SessionEvent> delivered;
  Registration registration;
};

TEST_F(DisplayPowerTest, AnXServerTellsOrIsAsked) {
  const std::string number = std::to_string(2000 + ::getpid() % 20000);
  const std::filesystem::path path = "/tmp/.X11-unix/X" + number;
  ::setenv("DISPLAY", (":" + number).c_str(), 1);
  {
    PowerOnlyServer server(path, 2);
    server.setLevel(3);
    install();
    ASSERT_TRUE(runUntilDelivered(1)) << "found off";
    ASSERT_TRUE(server.isListenedTo());
    for (const auto level : std::initializer_list<std::uint16_t>{0, 1, 2, 3, 0}) server.setLevel(level);
    ASSERT_TRUE(runUntilDelivered(4));
    EXPECT_THAT(delivered, ElementsAre(screensDidSleep, screensDidWake, screensDidSleep, screensDidWake));
    EXPECT_EQ(server.questions(), 1) << "nothing is polled";
    server.setLevel(3);
    ASSERT_TRUE(runUntilDelivered(5));
  }
  ASSERT_TRUE(runUntilDelivered(6)) << "a server that has gone keeps nobody away";
  EXPECT_EQ(delivered.back(), screensDidWake);
  registration.reset();

  PowerOnlyServer older(path, 1);
  delivered.clear();
  install();
  ASSERT_TRUE(runUntil([&] { return older.questions() >= 2; }));
  EXPECT_FALSE(older.isListenedTo());
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
