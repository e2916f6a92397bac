// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusObjectPath>
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "linux/camera/capture_stream.h"
#include "linux/camera/pipewire_capture_session.h"
#include "linux/camera/pipewire_headers.h"
#include "linux/camera/screen_links.h"
#include "linux/desktop/desktop_screen_sharing.h"
#include "linux/desktop/qt_main_loop.h"
#include "stage/bus_doubles.h"
#include "stage/headless_desktop.h"
#include "stage/virtual_camera.h"
#include "support/manual_main_loop.h"

namespace sentrel::test {
namespace {

using namespace Qt::StringLiterals;
namespace fs = std::filesystem;
using Reads = std::vector<ScreenRead>;
using testing::ElementsAre;
using testing::IsEmpty;

// What the registry says.

class ScreenLinksTest : public testing::Test {
 protected:
  using Properties = std::vector<std::pair<const char*, std::string>>;

  bool add(std::uint32_t id, const char* type, const Properties& properties) {
    std::vector<spa_dict_item> items;
    for (const auto& [key, value] : properties) items.push_back({key, value.c_str()});
    const spa_dict dict{0, static_cast<std::uint32_t>(items.size()), items.data()};
    return links.add(id, type, &dict);
  }
  bool client(std::uint32_t id, const std::string& serial, const std::string& pid) {
    return add(id, PW_TYPE_INTERFACE_Client, {{"object.serial", serial}, {"pipewire.sec.pid", pid}});
  }
  bool node(std::uint32_t id, const std::string& serial, const std::string& owner, const char* kind,
            const char* role = "") {
    return add(
        id, PW_TYPE_INTERFACE_Node,
        {{"object.serial", serial}, {"client.id", owner}, {"media.class", kind}, {"media.role", role}});
  }
  bool link(std::uint32_t id, const std::string& output, const std::string& input) {
    return add(id, PW_TYPE_INTERFACE_Link,
               {{"object.serial", "900"}, {"link.output.node", output}, {"link.input.node", input}});
  }
  /// The programs 100 and 200, and a node of the latter that reads.
  void makePrograms() {
    EXPECT_FALSE(client(10, "10", "100") || client(20, "20", "200"));
    EXPECT_FALSE(node(21, "21", "20", "Stream/Input/Video"));
  }

  ScreenLinks links;
};

TEST_F(ScreenLinksTest, APairIsWhoMakesAndWhoReads) {
  makePrograms();
  EXPECT_FALSE(node(11, "11", "10", "Video/Source"));
  EXPECT_FALSE(node(12, "12", "10", "Stream/Output/Video", "Screen"));
  EXPECT_TRUE(link(30, "11", "21"));
  EXPECT_FALSE(link(31, "12", "21")) << "the same two";
  EXPECT_THAT(links.reads(), ElementsAre(ScreenRead{100, 200}));
  EXPECT_FALSE(links.remove(30));
  EXPECT_TRUE(links.remove(31));
  EXPECT_THAT(links.reads(), IsEmpty());
  EXPECT_TRUE(link(30, "11", "21"));
  EXPECT_TRUE(links.remove(10)) << "the maker goes before its node and its link are said to";
  EXPECT_FALSE(client(10, "40", "666")) << "a later client of the same id";
  EXPECT_THAT(links.reads(), IsEmpty());
  EXPECT_FALSE(links.clear());
}

TEST_F(ScreenLinksTest, WhatIsNotCertainIsNoPair) {
  const std::tuple<const char*, std::function<void()>> cases[] = {
      {"a camera", [&] { node(11, "11", "10", "Video/Source", "Camera"); }},
      {"sound", [&] { node(11, "11", "10", "Stream/Output/Audio"); }},
      {"a reader's node", [&] { node(11, "11", "10", "Stream/Input/Video"); }},
      {"made before its client", [&] { node(11, "9", "10", "Video/Source"); }},
      {"a client that is not there", [&] { node(11, "11", "99", "Video/Source"); }},
      {"no client", [&] { node(11, "11", "", "Video/Source"); }},
      {"no serial", [&] { node(11, "", "10", "Video/Source"); }},
      {"garbage", [&] { node(11, "11x", "-10", "Video/Source"); }},
      {"nothing at all", [&] { (void)links.add(11, PW_TYPE_INTERFACE_Node, nullptr); }},
      {"a client without a process",
       [&] {
         client(10, "10", "0");
         node(11, "11", "10", "Video/Source");
       }},
      {"a process below zero",
       [&] {
         client(10, "10", "-5");
         node(11, "11", "10", "Video/Source");
       }},
      {"a reader of whom nothing is known",
       [&] {
         node(11, "11", "10", "Video/Source");
         (void)links.remove(20);
       }},
  };
  for (const auto& [what, make] : cases) {
    SCOPED_TRACE(what);
    (void)links.clear();
    makePrograms();
    make();
    EXPECT_FALSE(link(30, "11", "21") || link(31, "11", "") || link(32, "", "21") || link(33, "7", "21"));
    EXPECT_THAT(links.reads(), IsEmpty());
  }
}

TEST_F(ScreenLinksTest, WhoElseUsesACameraIsKnownByTheNameThatItGives) {
  const std::string endless(10'000, 'x');
  const struct {
    const char* what;
    Properties names;
    std::string pid;
    std::string expected;
  } cases[] = {
      {"a program", {{"application.name", "meeting"}, {"node.name", "stream"}}, "200", "meeting"},
      {"a node's description", {{"node.description", "Meeting"}, {"node.name", "stream"}}, "200", "Meeting"},
      {"a node", {{"application.name", ""}, {"node.name", "stream"}}, "200", "stream"},
      {"no name", {}, "200", ""},
      {"of an unknown process", {{"node.name", "stream"}}, "-1", "stream"},
      {"this program", {{"application.name", "meeting"}}, std::to_string(getpid()), ""},
      {"10 kB", {{"application.name", endless}}, "200", endless.substr(0, CaptureSession::longestUserName)},
      {"control characters", {{"application.name", "a\n\x1b[2Jb"}}, "200", "a\n\x1b[2Jb"},
  };
  for (const auto& [what, names, pid, expected] : cases) {
    SCOPED_TRACE(what);
    (void)links.clear();
    client(10, "10", "100");
    client(20, "20", pid);
    node(11, "11", "10", "Video/Source", "Camera");
    node(12, "12", "10", "Video/Source", "Camera");
    Properties reader{{"object.serial", "21"}, {"client.id", "20"}, {"media.class", "Stream/Input/Video"}};
    reader.insert(reader.end(), names.begin(), names.end());
    add(21, PW_TYPE_INTERFACE_Node, reader);
    EXPECT_EQ(links.otherReaderOf(11), "");
    EXPECT_FALSE(link(30, "11", "21")) << "no picture of the screen";
    EXPECT_EQ(links.otherReaderOf(11), expected);
    EXPECT_EQ(links.otherReaderOf(12), "") << "another camera";
    (void)links.remove(30);
    EXPECT_EQ(links.otherReaderOf(11), "");
  }
  (void)links.clear();
  add(20, PW_TYPE_INTERFACE_Client,
      {{"object.serial", "20"}, {"pipewire.sec.pid", "200"}, {"application.name", "Meeting"}});
  node(11, "11", "10", "Video/Source", "Camera");
  add(21, PW_TYPE_INTERFACE_Node,
      {{"object.serial", "21"}, {"client.id", "20"}, {"node.description", "stream"}});
  link(30, "11", "21");
  EXPECT_EQ(links.otherReaderOf(11), "Meeting") << "a program is better known than its streams";
}

TEST_F(ScreenLinksTest, ObjectsWithoutEndAreNotKept) {
  for (std::uint32_t id = 1000; id < 1000 + ScreenLinks::mostObjects; ++id) client(id, "1", "300");
  makePrograms();
  node(11, "11", "10", "Video/Source");
  EXPECT_FALSE(link(30, "11", "21"));
  for (const std::uint32_t id : {30U, 1000U, 1001U}) (void)links.remove(id);
  makePrograms();
  EXPECT_TRUE(link(30, "11", "21"));
}

// What the bus says.

struct FakeReads final : ScreenReads {
  Published<Reads> current;
  [[nodiscard]] Registration observe() override { return {}; }
  [[nodiscard]] const Published<Reads>& screenReads() const override { return current; }
};

/// A private desktop with the bus, and PipeWire where a test starts it.
class SharingTest : public testing::Test {
 protected:
  SharingTest() { desktop.exportToProcess(); }

  static HeadlessDesktop& sharedDesktop() {
    static HeadlessDesktop desktop({.width = 640, .height = 480});
    return desktop;
  }
  template <class Condition>
  [[nodiscard]] bool runUntil(Condition condition) {
    return waitUntil(
        [&] {
          QCoreApplication::processEvents();
          manual->runPosted();
          return condition();
        },
        std::chrono::seconds(20), std::chrono::milliseconds(2));
  }
  /// Runs until everything is answered; gives what is published then.
  [[nodiscard]] bool decided(const DesktopScreenSharing& sharing) {
    EXPECT_TRUE(runUntil([&] { return bus->isConnected() && manual->timerCount() == 0; }));
    return sharing.isShared();
  }
  [[nodiscard]] std::unique_ptr<BusDouble> own(const QString& owned) const {
    return std::make_unique<BusDouble>(desktop, TestBus::session, owned);
  }

  HeadlessDesktop& desktop = sharedDesktop();
  int argumentCount = 1;
  char program[5] = "test";
  char* arguments[2] = {program, nullptr};
  QCoreApplication application{argumentCount, arguments};
  std::shared_ptr<ManualMainLoop> manual = std::make_shared<ManualMainLoop>();
  std::shared_ptr<Bus> bus = std::make_shared<Bus>(std::make_shared<QtMainLoop>(), BusKind::session);
  const pid_t own_ = getpid();
  const pid_t stranger = 1;
};

struct OwnersTest : SharingTest {
  std::shared_ptr<FakeReads> reads = std::make_shared<FakeReads>();
  DesktopScreenSharing sharing{manual, bus, reads};
  Registration observing = sharing.observe();
};

TEST_F(OwnersTest, OnlyTheDesktopSharesAndNotWithItself) {
  const BusClient client(desktop, TestBus::session);
  const auto plasma = u"org.kde.plasmashell"_s;
  const BusMock shell = BusMock::empty(desktop, client, plasma, u"/"_s);
  const auto bar =
      static_cast<pid_t>(client
                             .call(u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s,
                                   u"org.freedesktop.DBus"_s, u"GetConnectionUnixProcessID"_s, {plasma})
                             .arguments()
                             .at(0)
                             .toUInt());
  const char* mutter = "org.gnome.Mutter.ScreenCast";
  const char* kwin = "org.kde.KWin";
  // The name that this process owns, who makes, who reads.
  const std::tuple<const char*, pid_t, pid_t, bool> cases[] = {
      {mutter, own_, stranger, true},
      {kwin, own_, stranger, true},
      {"org.freedesktop.impl.portal.desktop.any", own_, stranger, true},
      {"org.freedesktop.impl.portal.desktop", own_, stranger, false},
      {"org.freedesktop.portal.Desktop", own_, stranger, false},
      {"org.kde.KWin2", own_, stranger, false},
      {mutter, stranger, own_, false},
      {mutter, stranger, bar, false},
      {mutter, own_, own_, false},
      {kwin, own_, bar, false},
      {kwin, bar, stranger, false},
  };
  EXPECT_FALSE(decided(sharing));
  for (const auto& [name, maker, reader, expected] : cases) {
    SCOPED_TRACE(testing::Message() << name << ": " << maker << " read by " << reader);
    const auto owner = own(QString::fromLatin1(name));
    reads->current.assignIfChanged({{maker, reader}});
    EXPECT_EQ(manual->timerCount(), 1U) << "the question is under way";
    EXPECT_EQ(decided(sharing), expected);
    // Another one changes nothing.
    reads->current.assignIfChanged({{1, 1}, {maker, reader}});
    EXPECT_EQ(decided(sharing), expected);
    reads->current.assignIfChanged({});
    EXPECT_EQ(sharing.isShared(), expected) << "for a moment more";
    manual->advance(1000);
    EXPECT_FALSE(sharing.isShared());
  }
}

TEST_F(OwnersTest, IsHeldForASecondAndOnlyWhileItIsObserved) {
  const auto owner = own(u"org.kde.KWin"_s);
  const Reads one{{own_, stranger}};
  Registration second = sharing.observe();
  EXPECT_FALSE(decided(sharing));
  reads->current.assignIfChanged(one);
  EXPECT_TRUE(decided(sharing));
  reads->current.assignIfChanged({});
  manual->advance(999);
  EXPECT_TRUE(sharing.isShared());
  reads->current.assignIfChanged(one);  // a window has changed its size
  ASSERT_TRUE(runUntil([&] { return manual->timerCount() == 0; }));
  manual->advance(5000);
  EXPECT_TRUE(sharing.isShared());
  observing.reset();
  EXPECT_TRUE(sharing.isShared());
  second.reset();
  EXPECT_FALSE(sharing.isShared());
  EXPECT_EQ(manual->timerCount(), 0U);
  observing = sharing.observe();
  EXPECT_TRUE(decided(sharing)) << "what there is when it begins";
  // An observer ends it at the very news.
  reads->current.assignIfChanged({});
  const Registration ends = sharing.isShared().subscribe([&](bool isShared) {
    if (!isShared) observing.reset();
  });
  manual->advance(1000);
  EXPECT_FALSE(sharing.isShared());
}

TEST_F(OwnersTest, WhereTheBusHangsOrGoesNothingIsShared) {
  auto owner = own(u"org.kde.KWin"_s);
  const Reads one{{own_, stranger}};
  EXPECT_FALSE(decided(sharing));
  desktop.sessionBus().signal(SIGSTOP);
  reads->current.assignIfChanged(one);
  manual->advance(4999);
  EXPECT_EQ(manual->timerCount(), 1U);
  manual->advance(1);
  EXPECT_EQ(manual->timerCount(), 0U);
  EXPECT_FALSE(sharing.isShared());
  desktop.sessionBus().signal(SIGCONT);
  reads->current.assignIfChanged({{stranger, own_}, {own_, stranger}});
  EXPECT_FALSE(decided(sharing)) << "the late answer came before this one";
  reads->current.assignIfChanged({});
  reads->current.assignIfChanged(one);
  EXPECT_TRUE(decided(sharing));

  owner.reset();
  desktop.replaceSessionBus();
  ASSERT_TRUE(runUntil([&] { return manual->timerCount() == 1; }));
  manual->advance(1000);
  EXPECT_FALSE(sharing.isShared());
  owner = own(u"org.kde.KWin"_s);
  EXPECT_TRUE(runUntil([&] { return sharing.isShared().get(); })) << "asked again on the new bus";
}

// Both, of real streams.

/// Gets pictures in this process, as a desktop does for its own previews.
class OwnReader {
 public:
  explicit OwnReader(const std::string& node)
      : connection_(loop_, {.connected =
                                [this, node](pw_core*) {
                                  stream_.emplace(connection_.context(), nullptr, node, 640, 480,
                                                  Pixels::asWanted, newest_, broken_,
                                                  CaptureStream::Events{[](PixelFormat) {}, [] {}});
                                },
                            .lost = [this] { stream_.reset(); },
                            .absent = [] {}}) {
    connection_.open();
    loop_.start();
  }
  ~OwnReader() {
    loop_.call([this] { connection_.close(); });
    loop_.stop();
  }
  OwnReader(const OwnReader&) = delete;
  OwnReader& operator=(const OwnReader&) = delete;

 private:
  PipeWireLoop loop_{"reader"};
  NewestFrame newest_;
  std::atomic<std::int64_t> broken_{0};
  std::optional<CaptureStream> stream_;
  PipeWireConnection connection_;
};

class RealSharingTest : public SharingTest {
 protected:
  RealSharingTest() {
    desktop.startPipeWire();
    session = PipeWireCaptureSession::create(manual, queue);
    sharing = std::make_unique<DesktopScreenSharing>(manual, bus, session);
    observing = sharing->observe();
    EXPECT_FALSE(decided(*sharing));
  }

  [[nodiscard]] ChildProcess read(const std::string& node) {
    return desktop.spawn("gst-launch-1.0", {"-q", "pipewiresrc", "target-object=" + node, "!", "video/x-raw",
                                            "!", "fakesink", "sync=false"});
  }
  [[nodiscard]] bool reads(const Reads& expected) {
    return runUntil([&] { return session->screenReads().get() == expected; });
  }

  std::shared_ptr<SerialQueue> queue = std::make_shared<SerialQueue>("camera");
  std::shared_ptr<PipeWireCaptureSession> session;
  std::unique_ptr<DesktopScreenSharing> sharing;
  Registration observing;
};

TEST_F(RealSharingTest, PicturesOfTheDesktopCountAndNothingElse) {
  const char* mutter = "org.gnome.Mutter.ScreenCast";
  const char* wlr = "org.freedesktop.impl.portal.desktop.wlr";
  // As sway and GNOME offer their screens; programs with a descriptor of the portal; a camera.
  const std::tuple<const char*, const char*, const char*, bool, bool> cases[] = {
      {wlr, "Video/Source", "", true, true},
      {mutter, "Stream/Output/Video", "", true, true},
      {"org.freedesktop.portal.Desktop", "Video/Source", "", true, false},
      {mutter, "Video/Source", "Camera", false, false},
  };
  for (const auto& [name, mediaClass, role, isSeen, expected] : cases) {
    SCOPED_TRACE(testing::Message() << name << " " << mediaClass << " " << role);
    const auto owner = own(QString::fromLatin1(name));
    VirtualCamera screen({.name = "screen", .mediaClass = mediaClass, .role = role});
    screen.appear();
    ASSERT_TRUE(reads({})) << "nobody reads";
    auto reader = read("screen");
    ASSERT_TRUE(runUntil([&] { return screen.isOpen(); })) << reader.output();
    ASSERT_TRUE(reads(isSeen ? Reads{{own_, reader.pid()}} : Reads{})) << reader.output();
    EXPECT_EQ(decided(*sharing), expected);
    // Only the desktop itself.
    reader.kill();
    ASSERT_TRUE(reads({}));
    manual->advance(1000);
    EXPECT_FALSE(sharing->isShared());
    if (!expected) continue;
    const OwnReader preview("screen");
    ASSERT_TRUE(reads({{own_, own_}}));
    EXPECT_FALSE(decided(*sharing));
  }
}

TEST_F(RealSharingTest, AForgedScreenIsKnownByItsMaker) {
  const auto owner = own(u"org.gnome.Mutter.ScreenCast"_s);
  const std::string me = std::to_string(own_);
  auto forger = desktop.spawn(
      "gst-launch-1.0",
      {"-q", "videotestsrc", "is-live=true", "!", "video/x-raw,format=YUY2,width=640,height=480", "!",
       "pipewiresink", "mode=provide", "client-properties=p,pipewire.sec.pid=(string)" + me,
       "stream-properties=p,media.class=Video/Source,node.name=forged,media.name=meta-screen-cast-src,"
       "object.serial=(string)1,client.id=(string)1,pipewire.sec.pid=(string)" +
           me});
  desktop.waitForNode("forged");
  auto reader = read("forged");
  ASSERT_TRUE(reads({{forger.pid(), reader.pid()}})) << forger.output() << reader.output();
  EXPECT_FALSE(decided(*sharing));
}

TEST_F(RealSharingTest, EndsWithTheLastReaderTheMakerOrTheService) {
  const auto owner = own(u"org.gnome.Mutter.ScreenCast"_s);
  VirtualCamera screen({.name = "screen", .role = ""});
  const auto isRead = [&] {
    screen.appear();
    auto reader = read("screen");
    EXPECT_TRUE(runUntil([&] { return sharing->isShared().get(); })) << reader.output();
    return reader;
  };
  const auto ends = [&] {
    EXPECT_TRUE(reads({}));
    EXPECT_TRUE(sharing->isShared());
    manual->advance(1000);
    EXPECT_FALSE(sharing->isShared());
  };
  auto one = isRead();
  {
    auto other = read("screen");
    Reads both{{own_, one.pid()}, {own_, other.pid()}};
    std::ranges::sort(both);
    ASSERT_TRUE(reads(both));
  }
  ASSERT_TRUE(reads({{own_, one.pid()}}));
  manual->advance(1000);
  EXPECT_TRUE(sharing->isShared()) << "one is left";
  one.kill();
  ends();
  one = isRead();
  screen.vanish();
  ends();
  one = isRead();
  desktop.killPipeWire();
  ends();
  desktop.startPipeWire();
  screen.vanish();
  one = isRead();
}

// What sway really gives, where its program for that is installed: scripts/try-sharing.
TEST_F(RealSharingTest, SwayGivesAwayItsScreen) {
  const fs::path portal = "/usr/libexec/xdg-desktop-portal-wlr";
  if (!fs::exists(portal)) GTEST_SKIP() << "xdg-desktop-portal-wlr is not installed";
  desktop.startSway();
  const fs::path configuration = desktop.configFolder() / "xdg-desktop-portal-wlr";
  fs::create_directories(configuration);
  std::ofstream(configuration / "config") << "[screencast]\noutput_name=HEADLESS-1\nchooser_type=none\n";
  desktop.setVariable("LD_PRELOAD", SENTREL_SCREENCOPY_SHIM);
  const auto service = u"org.freedesktop.impl.portal.desktop.wlr"_s;
  BusClient client(desktop, TestBus::session);
  const auto path = u"/org/freedesktop/portal/desktop"_s;
  const auto call = [&](const char* method, const QVariantList& values) {
    return client.call(service, path, u"org.freedesktop.impl.portal.ScreenCast"_s,
                       QString::fromLatin1(method), values);
  };
  const auto object = [&](const char* leaf) {
    return QVariant::fromValue(QDBusObjectPath(path + QString::fromLatin1(leaf)));
  };
  const QVariantMap none;
  // It has its name before it is ready, and then it may hang or crash.
  ChildProcess maker;
  QDBusMessage started;
  for (int attempt = 0; attempt < 5 && started.arguments().isEmpty(); ++attempt) {
    maker.terminate();
    maker = desktop.spawn(portal);
    client.waitForName(service);
    try {
      call("CreateSession", {object("/request/t/1"), object("/session/t/1"), QString(), none});
      call("SelectSources",
           {object("/request/t/2"), object("/session/t/1"), QString(), QVariantMap{{u"types"_s, 1U}}});
      started = call("Start", {object("/request/t/3"), object("/session/t/1"), QString(), QString(), none});
    } catch (const std::exception&) {
      continue;  // once more
    }
  }
  desktop.setVariable("LD_PRELOAD", "");
  ASSERT_FALSE(started.arguments().isEmpty()) << maker.output();
  ASSERT_EQ(started.arguments().at(0).toUInt(), 0U) << maker.output();
  const auto streams =
      qdbus_cast<QVariantMap>(started.arguments().at(1)).value(u"streams"_s).value<QDBusArgument>();
  uint node = 0;
  streams.beginArray();
  streams.beginStructure();
  streams >> node;
  EXPECT_THAT(session->screenReads().get(), IsEmpty()) << "nobody reads yet";
  auto reader = desktop.spawn("gst-launch-1.0", {"-q", "pipewiresrc", "path=" + std::to_string(node), "!",
                                                 "video/x-raw", "!", "fakesink", "sync=false"});
  ASSERT_TRUE(runUntil([&] { return sharing->isShared().get(); })) << maker.output() << reader.output();
  EXPECT_THAT(session->screenReads().get(), ElementsAre(ScreenRead{maker.pid(), reader.pid()}));
  reader.terminate();
  EXPECT_TRUE(reads({}));
  EXPECT_TRUE(sharing->isShared());
  manual->advance(1000);
  EXPECT_FALSE(sharing->isShared());
}

}  // namespace
}  // namespace sentrel::test
