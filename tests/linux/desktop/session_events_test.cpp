// SPDX-License-Identifier: Apache-2.0
//
// What happens to a session, told by mock services, by a real Wayland compositor, and by an X server that is
// played here: no server without a screen has the extension for the power of displays.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <vector>

#include "linux/desktop/desktop_notifications.h"
#include "linux/desktop/desktop_session_events.h"
#include "linux/desktop/event_desk.h"
#include "linux/desktop/upower_power_source.h"

namespace sentrel::test {
namespace {

using namespace Qt::StringLiterals;
using enum SessionEvent;
using testing::ElementsAre;
using testing::IsEmpty;

struct SessionEventsTest : EventDesk {
  // What the login manager says of this process goes before it.
  SessionEventsTest() { ::setenv("XDG_SESSION_ID", "c9", 1); }

  void install() {
    registration = events.install([this](SessionEvent event) { delivered.push_back(event); });
  }
  [[nodiscard]] bool runUntilDelivered(std::size_t count) {
    return runUntil([&] { return delivered.size() >= count; });
  }

  DesktopSessionEvents events{{loop, clock, ownSessionBus, ownSystemBus, displays}};
  std::vector<SessionEvent> delivered;
  Registration registration;
};

TEST_F(SessionEventsTest, ASleepWaitsUntilTheCameraIsClosed) {
  const MockSession session(desktop);
  const auto delaysAre = [&](std::size_t count) {
    return runUntil([&] { return session.sleepDelays() == count; });
  };
  install();
  ASSERT_TRUE(delaysAre(1));
  session.prepareForSleep(true);
  ASSERT_TRUE(runUntilDelivered(1));
  EXPECT_EQ(session.sleepDelays(), 1U) << "the camera is still open";
  events.cameraIsClosed();
  ASSERT_TRUE(delaysAre(0));
  session.prepareForSleep(false);
  ASSERT_TRUE(delaysAre(1)) << "the next sleep is delayed again";
  events.cameraIsClosed();  // of no sleep
  session.setLockedHint(true);
  ASSERT_TRUE(runUntilDelivered(3));
  EXPECT_TRUE(events.isLocked());
  EXPECT_EQ(session.sleepDelays(), 1U);
  registration.reset();
  EXPECT_TRUE(delaysAre(0)) << "nobody observes any more";
  EXPECT_THAT(delivered, ElementsAre(screensDidSleep, screensDidWake, screenIsLocked));
}

TEST_F(SessionEventsTest, TheLockIsFollowedAlsoWhereNobodyObserves) {
  const MockSession session(desktop);
  session.setLockedHint(true);
  std::vector<bool> told;
  Registration following = events.followLock([&](bool locked) { told.push_back(locked); });
  EXPECT_THAT(told, IsEmpty()) << "never before it returns";
  ASSERT_TRUE(runUntil([&] { return told.size() == 1; }));
  EXPECT_TRUE(events.isLocked());
  // A sleep does not wait for a camera that nobody uses.
  ASSERT_TRUE(runUntil([&] { return session.sleepDelays() == 1; }));
  session.prepareForSleep(true);
  ASSERT_TRUE(runUntil([&] { return session.sleepDelays() == 0; }));
  session.prepareForSleep(false);
  // One who observes comes and goes beside it.
  install();
  ASSERT_TRUE(runUntilDelivered(1));
  registration.reset();
  session.setLockedHint(false);
  ASSERT_TRUE(runUntil([&] { return told.size() == 2; }));
  following.reset();
  EXPECT_TRUE(runUntil([&] { return session.sleepDelays() == 0; })) << "nobody listens any more";
  // Where nobody answers it counts as not locked.
  desktop.systemBus().signal(SIGSTOP);
  following = events.followLock([&](bool locked) { told.push_back(locked); });
  EXPECT_TRUE(runUntil([&] { return told.size() == 3; }));
  EXPECT_THAT(told, ElementsAre(true, false, false));
  desktop.systemBus().signal(SIGCONT);
}

TEST_F(SessionEventsTest, FindsItsSessionByTheEnvironment) {
  const BusMock logind(desktop, systemBus, u"org.freedesktop.login1"_s, u"logind"_s);
  const auto lock = [&](const char* session, bool locked) {
    logind.call(u"/org/freedesktop/login1/session/"_s + QString::fromLatin1(session),
                u"org.freedesktop.login1.Session"_s, u"SetLockedHint"_s, {locked});
  };
  for (const char* session : {"c2", "c9"}) {
    logind.control(u"/org/freedesktop/login1"_s, u"AddSession"_s,
                   {QString::fromLatin1(session), u"seat0"_s, 1000U, u"user"_s, true});
    lock(session, true);
  }
  install();
  EXPECT_TRUE(runUntilDelivered(1));
  lock("c9", false);
  EXPECT_TRUE(runUntilDelivered(2));
  EXPECT_THAT(delivered, ElementsAre(screenIsLocked, screenIsUnlocked));
}

TEST_F(SessionEventsTest, FoundLockedAndInactiveIsOneEvent) {
  const MockSession session(desktop);
  session.setLockedHint(true);
  session.setActive(false);
  session.setLockerActive(true);
  install();
  std::optional<std::size_t> deliveredWhenKnown;
  events.whenKnown([&] { deliveredWhenKnown = delivered.size(); });
  EXPECT_THAT(delivered, IsEmpty()) << "never before install returns";
  ASSERT_TRUE(runUntil([&] { return deliveredWhenKnown.has_value(); }));
  EXPECT_EQ(deliveredWhenKnown, 1U) << "who waited for the answers has heard it";
  // A second observer, as a second start has it, hears it too, and then it alone.
  std::vector<SessionEvent> second;
  const Registration replacing = events.install([&](SessionEvent event) { second.push_back(event); });
  registration.reset();
  ASSERT_TRUE(runUntil([&] { return !second.empty(); }));
  session.setActive(true);
  session.setLockedHint(false);
  session.setLockerActive(false);
  ASSERT_TRUE(runUntil([&] { return second.size() == 2; }));
  EXPECT_THAT(second, ElementsAre(screenIsLocked, screenIsUnlocked));
  EXPECT_THAT(delivered, ElementsAre(screenIsLocked));
}

TEST_F(SessionEventsTest, FollowsTheScreenSaverOfEachDesktopThroughItsRestart) {
  const std::pair<QString, QString> savers[] = {
      {u"org.freedesktop.ScreenSaver"_s, u"/ScreenSaver"_s},  // not where another desktop has it
      {u"org.gnome.ScreenSaver"_s, u"/org/gnome/ScreenSaver"_s},
      {u"org.xfce.ScreenSaver"_s, u"/org/xfce/ScreenSaver"_s},
      {u"org.mate.ScreenSaver"_s, u"/"_s},
  };
  BusDouble stranger(desktop, TestBus::session, u"org.example.Stranger"_s);
  install();
  for (const auto& [name, path] : savers) {
    SCOPED_TRACE(name.toStdString());
    delivered.clear();
    for (const bool isFirst : {true, false}) {
      BusDouble saver(desktop, TestBus::session, name);
      saver.answer(u"GetActive"_s, [&](const QDBusMessage& call) {
        return QVariantList{call.path() == path ? QVariant(isFirst) : u"what?"_s};
      });
      ASSERT_TRUE(runUntilDelivered(isFirst ? 1 : 4)) << "found covering, and back without its cover";
      if (!isFirst) continue;
      const auto tell = [&](BusDouble& teller, const QVariantList& values) {
        teller.emitSignal(path, name, u"ActiveChanged"_s, values);
      };
      tell(saver, {false});
      ASSERT_TRUE(runUntilDelivered(2));
      tell(stranger, {true});
      for (const QVariantList& told : {QVariantList{7, u"true"_s}, {false}, {true}}) tell(saver, told);
      ASSERT_TRUE(runUntilDelivered(3));
    }
    EXPECT_THAT(delivered, ElementsAre(screenIsLocked, screenIsUnlocked, screenIsLocked, screenIsUnlocked));
  }
}

/// Programs that do nothing, with the names of lockers.
TEST_F(SessionEventsTest, ALockerThatTellsNobodyIsKnownByItsProgram) {
  const auto folder = desktop.home() / "lockers";
  std::filesystem::create_directories(folder);
  for (const char* name : {"i3lock", "swaylock"})
    std::filesystem::copy_file("/bin/sh", folder / name, std::filesystem::copy_options::overwrite_existing);
  const std::string path = qgetenv("PATH").toStdString();
  ::setenv("PATH", (folder.string() + ':' + path).c_str(), 1);
  const auto start = [&](const char* name, const std::string& script) {
    return desktop.spawn(folder / name, {"-c", script});
  };
  const std::string waits = "while :; do sleep 0.05; done";
  ChildProcess locker = start("i3lock", waits);
  install();
  EXPECT_TRUE(runUntilDelivered(1)) << "it ran before";
  locker.kill();
  EXPECT_TRUE(runUntilDelivered(2));
  // Goes into the background once it covers the screen.
  locker = start("swaylock", "(" + waits + ") & echo $!");
  EXPECT_TRUE(runUntilDelivered(3));
  ASSERT_TRUE(locker.waitForExit(std::chrono::seconds(20)));
  const ChildProcess again = start("swaylock", "exit");  // a second one beside it
  bool isOver = false;
  const Registration pause = loop->after(500, [&] { isOver = true; });
  ASSERT_TRUE(runUntil([&] { return isOver; }));
  EXPECT_TRUE(events.isLocked());
  ASSERT_EQ(::kill(std::stoi(locker.output()), SIGTERM), 0);
  EXPECT_TRUE(runUntilDelivered(4));
  // One on another display is none of ours; the next one on ours is heard all the same.
  const std::string display = desktop.environment().at("DISPLAY");
  desktop.setVariable("DISPLAY", ":99999");
  const ChildProcess elsewhere = start("i3lock", waits);
  desktop.setVariable("DISPLAY", display);
  locker = start("swaylock", waits);
  EXPECT_TRUE(runUntilDelivered(5));
  locker.kill();
  EXPECT_TRUE(runUntilDelivered(6));
  ::setenv("PATH", path.c_str(), 1);
  EXPECT_THAT(delivered, ElementsAre(screenIsLocked, screenIsUnlocked, screenIsLocked, screenIsUnlocked,
                                     screenIsLocked, screenIsUnlocked));
}

TEST_F(SessionEventsTest, FollowsGnomesDisplays) {
  const auto display = u"org.gnome.Mutter.DisplayConfig"_s;
  const auto displayPath = u"/org/gnome/Mutter/DisplayConfig"_s;
  BusMock mutter = BusMock::empty(desktop, sessionBus, display, displayPath);
  mutter.control(displayPath, u"AddProperty"_s, {display, u"PowerSaveMode"_s, boxed(3)});
  install();
  ASSERT_TRUE(runUntilDelivered(1));
  for (const int mode : {0, 1, 3, 99, 0}) {
    mutter.setProperty(displayPath, display, u"PowerSaveMode"_s, mode);
  }
  ASSERT_TRUE(runUntilDelivered(4));
  EXPECT_THAT(delivered, ElementsAre(screensDidSleep, screensDidWake, screensDidSleep, screensDidWake));
}

/// A display server with one client, which it answers from the event loop.
class PlayedServer {
 public:
  explicit PlayedServer(std::string path) : path_(std::move(path)) {
    sockaddr_un address{AF_UNIX, {}};
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(listening_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::listen(listening_, 1);
    QObject::connect(&called_, &QSocketNotifier::activated, &called_, [this] {
      client_ = ::accept(listening_, nullptr, nullptr);
      welcome();
      asked_ = std::make_unique<QSocketNotifier>(client_, QSocketNotifier::Read);
      QObject::connect(asked_.get(), &QSocketNotifier::activated, asked_.get(), [this] { answer(); });
    });
  }
  virtual ~PlayedServer() {
    ::close(client_);
    ::close(listening_);
    ::unlink(path_.c_str());
  }
  PlayedServer(const PlayedServer&) = delete;
  PlayedServer& operator=(const PlayedServer&) = delete;

  int questions = 0;

 protected:
  virtual void welcome() {}
  /// Reads one message.
  virtual void answer() = 0;

  template <class Word>
  void send(const std::vector<Word>& words) const {
    ::send(client_, words.data(), words.size() * sizeof(Word), MSG_NOSIGNAL);
  }
  template <class Word>
  [[nodiscard]] std::vector<Word> receive(std::size_t count) const {
    std::vector<Word> words(count);
    if (count > 0 && ::recv(client_, words.data(), count * sizeof(Word), MSG_WAITALL) <= 0) {
      asked_->setEnabled(false);
      words.clear();
    }
    return words;
  }

 private:
  const std::string path_;
  const int listening_ = ::socket(AF_UNIX, SOCK_STREAM, 0);
  int client_ = -1;
  QSocketNotifier called_{listening_, QSocketNotifier::Read};
  std::unique_ptr<QSocketNotifier> asked_;
};

/// An X server that knows one extension, DPMS.
class PowerOnlyServer final : public PlayedServer {
 public:
  PowerOnlyServer(const std::string& path, std::uint16_t minorVersion)
      : PlayedServer(path), minorVersion_(minorVersion) {}

  /// Sets how far the displays sleep, 0 for on, and tells it to whoever asked to be told.
  void setLevel(std::uint16_t level) {
    level_ = level;
    constexpr std::uint16_t genericEvent = 35;
    if (isListenedTo) send(packet({genericEvent | opcode << 8, sequence_, 0, 0, 0, 0, 0, 0, level, 1}));
  }

  bool isListenedTo = false;

 private:
  using Packet = std::vector<std::uint16_t>;
  static constexpr std::uint8_t opcode = 140;
  enum Request { version, capable, info = 7, select, presence };

  static Packet packet(Packet words, std::size_t size = 16) {
    words.resize(size);
    return words;
  }
  void welcome() override {
    (void)receive<char>(12);
    // One screen, without depths.
    send(packet({1, 11, 0, 18, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xffff, 1}, 40));
  }
  void answer() override {
    const auto head = receive<std::uint8_t>(4);
    if (head.empty()) return;
    (void)receive<char>((head[2] - 1U) * 4U);
    const int request = head[0] == opcode ? head[1] : int{presence};
    Packet reply = packet({1, ++sequence_, 0, 0, 1, request == version ? minorVersion_ : std::uint16_t{1}});
    if (request == presence) reply[4] = 1 | opcode << 8;
    if (request == info) reply[4] = level_;
    questions += request == info ? 1 : 0;
    isListenedTo |= request == select;
    if (request != select) send(reply);
  }

  const std::uint16_t minorVersion_;
  std::uint16_t sequence_ = 0;
  std::uint16_t level_ = 0;
};

/// A compositor that has one output, and tells of its power as KWin does.
class KwinPowerServer final : public PlayedServer {
 public:
  KwinPowerServer(const std::string& path, bool canSwitchOff)
      : PlayedServer(path), canSwitchOff_(canSwitchOff) {}

  void setLevel(std::uint16_t level) {
    level_ = level;
    if (isAsked()) tell();
  }
  [[nodiscard]] bool isAsked() const { return power_ != 0; }
  void removeOutput() const { sendEvent(registry_, 1, {outputName}); }
  void addOutput() const { offer(outputName, "wl_output"); }

 private:
  static constexpr std::uint32_t outputName = 1;
  static constexpr std::uint32_t managerName = 2;
  using Words = std::vector<std::uint32_t>;

  void sendEvent(std::uint32_t object, std::uint32_t event, const Words& arguments) const {
    Words message{object, static_cast<std::uint32_t>((arguments.size() + 2) * 4) << 16U | event};
    message.insert(message.end(), arguments.begin(), arguments.end());
    send(message);
  }
  void offer(std::uint32_t name, std::string_view interface) const {
    Words arguments(2 + interface.size() / 4 + 1 + 1);
    arguments.front() = name;
    arguments[1] = static_cast<std::uint32_t>(interface.size()) + 1;
    interface.copy(reinterpret_cast<char*>(&arguments[2]), interface.size());
    arguments.back() = 1;  // the version
    sendEvent(registry_, 0, arguments);
  }
  void tell() const {
    sendEvent(power_, 0, {canSwitchOff_ ? 1U : 0U});
    if (canSwitchOff_) sendEvent(power_, 1, {level_});
    sendEvent(power_, 2, {});
  }
  void answer() override {
    const auto head = receive<std::uint32_t>(2);
    if (head.empty()) return;
    const Words body = receive<std::uint32_t>((head[1] >> 16U) / 4 - 2);
    constexpr std::uint32_t display = 1;
    constexpr std::uint32_t getRegistry = 1;
    if (head[0] == display && (head[1] & 0xffffU) == getRegistry) {
      registry_ = body[0];
      addOutput();
      offer(managerName, "org_kde_kwin_dpms_manager");
    } else if (head[0] == display) {
      sendEvent(body[0], 0, {0});  // everything before is answered
    } else if (head[0] == registry_ && body[0] == managerName) {
      manager_ = body.back();
    } else if (head[0] == manager_) {
      power_ = body[0];
      tell();
    }
  }

  const bool canSwitchOff_;
  std::uint32_t registry_ = 0;
  std::uint32_t manager_ = 0;
  std::uint32_t power_ = 0;
  std::uint32_t level_ = 0;
};

TEST_F(SessionEventsTest, AServerTellsOfItsDisplaysOrIsAsked) {
  const auto follow = [this](auto& server) {
    server->setLevel(3);
    install();
    ASSERT_TRUE(runUntilDelivered(1)) << "found off";
    for (const auto level : std::initializer_list<std::uint16_t>{0, 1, 2, 3, 0, 3}) server->setLevel(level);
    ASSERT_TRUE(runUntilDelivered(5));
    EXPECT_LE(server->questions, 1) << "nothing is polled";
    server.reset();
    ASSERT_TRUE(runUntilDelivered(6)) << "a server that has gone keeps nobody away";
    EXPECT_THAT(delivered, ElementsAre(screensDidSleep, screensDidWake, screensDidSleep, screensDidWake,
                                       screensDidSleep, screensDidWake));
    registration.reset();
    delivered.clear();
  };
  const std::string number = std::to_string(2000 + ::getpid() % 20000);
  const std::string path = "/tmp/.X11-unix/X" + number;
  ::setenv("DISPLAY", (":" + number).c_str(), 1);
  auto server = std::make_unique<PowerOnlyServer>(path, 2);
  follow(server);
  PowerOnlyServer older(path, 1);
  install();
  ASSERT_TRUE(runUntil([&] { return older.questions >= 2; }));
  EXPECT_FALSE(older.isListenedTo);
  older.setLevel(3);
  // Resting ends the polling, and what follows asks at once.
  events.setResting(true);
  events.setResting(false);
  ASSERT_TRUE(runUntilDelivered(1));
  EXPECT_THAT(delivered, ElementsAre(screensDidSleep));
  registration.reset();
  delivered.clear();

  const std::string wayland = (desktop.runtimeFolder() / "kwin").string();
  ::setenv("WAYLAND_DISPLAY", wayland.c_str(), 1);
  ::unsetenv("DISPLAY");
  auto kwin = std::make_unique<KwinPowerServer>(wayland, true);
  follow(kwin);
  KwinPowerServer noPower(wayland, false);
  install();
  ASSERT_TRUE(runUntil([&] { return noPower.isAsked(); }));
  bool known = false;
  events.whenKnown([&] { known = true; });
  ASSERT_TRUE(runUntil([&] { return known; }));
  EXPECT_THAT(delivered, IsEmpty()) << "what cannot be switched off is on";
  noPower.removeOutput();
  ASSERT_TRUE(runUntilDelivered(1)) << "as when a lid is closed";
  noPower.addOutput();
  ASSERT_TRUE(runUntilDelivered(2));
  EXPECT_THAT(delivered, ElementsAre(screensDidSleep, screensDidWake));
}

/// Everything that speaks with a bus is in use while one hangs: whatever waited for an answer would wait
/// until the bus library gives up, 25 s.
TEST_F(SessionEventsTest, ABusThatHangsHoldsUpNeitherTheMainLoopNorTheOther) {
  const MockSession session(desktop);
  const struct {
    const ChildProcess& hangs;
    std::function<void(bool)> lock;  // told on the other bus
  } cases[] = {
      {desktop.sessionBus(), [&](bool on) { session.setLockedHint(on); }},
      {desktop.systemBus(), [&](bool on) { session.setLockerActive(on); }},
  };
  for (const auto& [hangs, lock] : cases) {
    // Buses that are new to all: they also have to connect while one of them hangs.
    const auto freshSession = std::make_shared<Bus>(loop, BusKind::session);
    const auto freshSystem = std::make_shared<Bus>(loop, BusKind::system);
    DesktopSessionEvents freshEvents({loop, clock, freshSession, freshSystem, displays});
    DesktopNotifications centre(loop, freshSession);
    FeedbackdHaptics haptics(freshSession);
    UPowerPowerSource power(freshSystem);
    std::vector<SessionEvent> heard;
    bool isKnown = false;
    hangs.signal(SIGSTOP);
    lock(true);
    const auto begin = std::chrono::steady_clock::now();
    const Registration observing = freshEvents.install([&](SessionEvent event) { heard.push_back(event); });
    freshEvents.whenKnown([&] { isKnown = true; });
    EXPECT_FALSE(isKnown) << "in a later turn";
    const Registration battery = power.observe();
    for (const std::size_t wanted : {1U, 2U}) {
      EXPECT_TRUE(runUntil([&] {
        centre.requestAuthorization([](bool) {});
        centre.add("a", {"Titre", "Texte"});
        centre.remove("a");
        haptics.perform();
        freshEvents.cameraIsClosed();
        return heard.size() == wanted && isKnown;
      }));
      lock(false);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    hangs.signal(SIGCONT);
    EXPECT_TRUE(runUntil([&] { return power.first().has_value() && session.sleepDelays() == 1; }))
        << "the bus that has come to itself is heard again";
  }
}

}  // namespace
}  // namespace sentrel::test
