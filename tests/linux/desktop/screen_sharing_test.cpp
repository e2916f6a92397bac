// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <QDBusConnectionInterface>
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "linux/camera/pipewire_capture_session.h"
#include "linux/camera/pipewire_headers.h"
#include "linux/camera/screen_links.h"
#include "linux/desktop/desktop_screen_sharing.h"
#include "linux/desktop/event_desk.h"
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
  bool client(std::uint32_t id, const std::string& serial, const std::string& pid,
              const std::string& name = "") {
    return add(id, PW_TYPE_INTERFACE_Client,
               {{"object.serial", serial}, {"pipewire.sec.pid", pid}, {"application.name", name}});
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
  EXPECT_TRUE(link(30, "11", "21"));
  EXPECT_TRUE(links.remove(10)) << "the maker goes before its node and its link are said to";
  EXPECT_FALSE(client(10, "40", "666")) << "a later client of the same id";
  EXPECT_THAT(links.reads(), IsEmpty());
}

TEST_F(ScreenLinksTest, WhatIsNotCertainIsNoPair) {
  const auto madeBy = [&](const char* pid) {
    client(10, "10", pid);
    node(11, "11", "10", "Video/Source");
  };
  const std::tuple<const char*, std::function<void()>> cases[] = {
      {"a camera", [&] { node(11, "11", "10", "Video/Source", "Camera"); }},
      {"sound", [&] { node(11, "11", "10", "Stream/Output/Audio"); }},
      {"a reader's node", [&] { node(11, "11", "10", "Stream/Input/Video"); }},
      {"made before its client", [&] { node(11, "9", "10", "Video/Source"); }},
      {"a client that is not there", [&] { node(11, "11", "99", "Video/Source"); }},
      {"no client", [&] { node(11, "11", "", "Video/Source"); }},
      {"garbage", [&] { node(11, "11x", "-10", "Video/Source"); }},
      {"nothing at all", [&] { (void)links.add(11, PW_TYPE_INTERFACE_Node, nullptr); }},
      {"a client without a process", [&] { madeBy("0"); }},
      {"a process below zero", [&] { madeBy("-5"); }},
      {"a reader of whom nothing is known", [&] { madeBy("100"), (void)links.remove(20); }},
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
  const std::string own = std::to_string(getpid());
  const struct {
    const char* what;
    std::string pid;
    std::string program;
    Properties stream;
    std::string expected;
  } cases[] = {
      {"a program and its stream", "200", "Meeting", {{"node.description", "stream"}}, "Meeting"},
      {"a stream", "200", "", {{"application.name", "meeting"}, {"node.name", "stream"}}, "meeting"},
      {"its description", "200", "", {{"node.description", "Meeting"}, {"node.name", "stream"}}, "Meeting"},
      {"its node", "200", "", {{"application.name", ""}, {"node.name", "stream"}}, "stream"},
      {"no name", "200", "", {}, ""},
      {"of an unknown process", "-1", "", {{"node.name", "stream"}}, "stream"},
      {"this program", own, "Meeting", {{"application.name", "meeting"}}, ""},
      {"10 kB", "200", endless, {}, endless.substr(0, CaptureSession::longestUserName)},
  };
  for (const auto& [what, pid, program, stream, expected] : cases) {
    SCOPED_TRACE(what);
    (void)links.clear();
    client(10, "10", "100");
    client(20, "20", pid, program);
    node(11, "11", "10", "Video/Source", "Camera");
    node(12, "12", "10", "Video/Source", "Camera");
    Properties reader{{"object.serial", "21"}, {"client.id", "20"}, {"media.class", "Stream/Input/Video"}};
    reader.insert(reader.end(), stream.begin(), stream.end());
    add(21, PW_TYPE_INTERFACE_Node, reader);
    EXPECT_FALSE(link(30, "11", "21")) << "no picture of the screen";
    EXPECT_EQ(links.otherReaderOf(11), expected);
    EXPECT_EQ(links.otherReaderOf(12), "") << "another camera";
    (void)links.remove(30);
    EXPECT_EQ(links.otherReaderOf(11), "");
  }
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

/// With PipeWire where a test starts it.
struct SharingTest : EventDesk {
  SharingTest() : EventDesk(desktopWithoutDisplay()) {}

  void follow(const std::shared_ptr<ScreenReads>& reads) {
    sharing = std::make_unique<DesktopScreenSharing>(manual, ownSessionBus, reads);
    observing = sharing->observe();
    EXPECT_FALSE(decided());
  }
  template <class Condition>
  [[nodiscard]] bool eventually(Condition condition) {
    return runUntil([&] {
      manual->runPosted();
      return condition();
    });
  }
  /// Runs until everything is answered; gives what is published then.
  [[nodiscard]] bool decided() {
    EXPECT_TRUE(eventually([&] { return ownSessionBus->isConnected() && manual->timerCount() == 0; }));
    return sharing->isShared();
  }
  /// It is held for a second.
  void expectEnd() {
    EXPECT_TRUE(sharing->isShared());
    manual->advance(999);
    EXPECT_TRUE(sharing->isShared());
    manual->advance(1);
    EXPECT_FALSE(sharing->isShared());
  }
  [[nodiscard]] std::unique_ptr<BusDouble> own(const char* owned) const {
    return std::make_unique<BusDouble>(desktop, TestBus::session, QString::fromLatin1(owned));
  }

  std::shared_ptr<ManualMainLoop> manual = std::make_shared<ManualMainLoop>();
  std::unique_ptr<DesktopScreenSharing> sharing;
  Registration observing;
  const pid_t own_ = getpid();
  const pid_t stranger = 1;
};

constexpr auto mutter = "org.gnome.Mutter.ScreenCast";
constexpr auto kwin = "org.kde.KWin";

struct OwnersTest : SharingTest {
  OwnersTest() { follow(reads); }

  std::shared_ptr<FakeReads> reads = std::make_shared<FakeReads>();
};

TEST_F(OwnersTest, OnlyTheDesktopSharesAndNotWithItself) {
  const auto plasma = u"org.kde.plasmashell"_s;
  const BusMock shell = BusMock::empty(desktop, sessionBus, plasma, u"/"_s);
  const auto bar = static_cast<pid_t>(sessionBus.handle().interface()->servicePid(plasma).value());
  // The name that this process owns, who makes, who reads.
  const std::tuple<const char*, pid_t, pid_t, bool> cases[] = {
      {mutter, own_, stranger, true},
      {kwin, own_, stranger, true},
      {"org.freedesktop.impl.portal.desktop.any", own_, stranger, true},
      {"org.freedesktop.impl.portal.desktop", own_, stranger, false},
      {"org.freedesktop.portal.Desktop", own_, stranger, false},
      {"org.kde.KWin2", own_, stranger, false},
      {mutter, stranger, own_, false},
      {mutter, own_, own_, false},
      {kwin, own_, bar, false},
      {kwin, bar, stranger, false},
  };
  for (const auto& [name, maker, reader, expected] : cases) {
    SCOPED_TRACE(testing::Message() << name << ": " << maker << " read by " << reader);
    const auto owner = own(name);
    // Another one changes nothing.
    for (const Reads& now : {Reads{{maker, reader}}, Reads{{1, 1}, {maker, reader}}}) {
      reads->current.assignIfChanged(now);
      EXPECT_EQ(manual->timerCount(), 1U) << "the question is under way";
      EXPECT_EQ(decided(), expected);
    }
    reads->current.assignIfChanged({});
    if (expected) expectEnd();
    EXPECT_FALSE(sharing->isShared());
  }
}

TEST_F(OwnersTest, IsHeldOverInterruptionsAndOnlyWhileItIsObserved) {
  const auto owner = own(kwin);
  const Reads one{{own_, stranger}};
  Registration second = sharing->observe();
  reads->current.assignIfChanged(one);
  EXPECT_TRUE(decided());
  reads->current.assignIfChanged({});
  manual->advance(999);
  reads->current.assignIfChanged(one);  // a window has changed its size
  EXPECT_TRUE(decided());
  observing.reset();
  EXPECT_TRUE(sharing->isShared());
  second.reset();
  EXPECT_FALSE(sharing->isShared());
  EXPECT_EQ(manual->timerCount(), 0U);
  observing = sharing->observe();
  EXPECT_TRUE(decided()) << "what there is when it begins";
  // An observer ends it at the very news.
  reads->current.assignIfChanged({});
  const Registration ends = sharing->isShared().subscribe([&](bool isShared) {
    if (!isShared) observing.reset();
  });
  manual->advance(1000);
  EXPECT_FALSE(sharing->isShared());
}

TEST_F(OwnersTest, WhereTheBusHangsOrGoesNothingIsShared) {
  auto owner = own(kwin);
  const Reads one{{own_, stranger}};
  desktop.sessionBus().signal(SIGSTOP);
  reads->current.assignIfChanged(one);
  manual->advance(4999);
  EXPECT_EQ(manual->timerCount(), 1U);
  manual->advance(1);
  EXPECT_EQ(manual->timerCount(), 0U);
  EXPECT_FALSE(sharing->isShared());
  desktop.sessionBus().signal(SIGCONT);
  reads->current.assignIfChanged({{stranger, own_}, {own_, stranger}});
  EXPECT_FALSE(decided()) << "the late answer came before this one";
  reads->current.assignIfChanged({});
  reads->current.assignIfChanged(one);
  EXPECT_TRUE(decided());

  owner.reset();
  desktop.replaceSessionBus();
  ASSERT_TRUE(eventually([&] { return manual->timerCount() == 1; }));
  manual->advance(1000);
  EXPECT_FALSE(sharing->isShared());
  owner = own(kwin);
  EXPECT_TRUE(eventually([&] { return sharing->isShared().get(); })) << "asked again on the new bus";
}

// Both, of real streams.

struct RealSharingTest : SharingTest {
  RealSharingTest() {
    desktop.startPipeWire();
    session = PipeWireCaptureSession::create(manual, queue);
    follow(session);
  }

  [[nodiscard]] ChildProcess read(const std::string& node) {
    return desktop.spawn("gst-launch-1.0",
                         {"-q", "pipewiresrc", node, "!", "video/x-raw", "!", "fakesink", "sync=false"});
  }
  [[nodiscard]] bool reads(const Reads& expected) {
    return eventually([&] { return session->screenReads().get() == expected; });
  }
  [[nodiscard]] bool isShared() {
    return eventually([&] { return sharing->isShared().get(); });
  }
  void expectItsEnd() {
    EXPECT_TRUE(reads({}));
    expectEnd();
  }

  std::shared_ptr<SerialQueue> queue = std::make_shared<SerialQueue>("camera");
  std::shared_ptr<PipeWireCaptureSession> session;
};

TEST_F(RealSharingTest, PicturesOfTheDesktopCountAndNothingElse) {
  // As sway and GNOME offer their screens; programs with a descriptor of the portal; a camera.
  const std::tuple<const char*, const char*, const char*, bool, bool> cases[] = {
      {"org.freedesktop.impl.portal.desktop.wlr", "Video/Source", "", true, true},
      {mutter, "Stream/Output/Video", "", true, true},
      {"org.freedesktop.portal.Desktop", "Video/Source", "", true, false},
      {mutter, "Video/Source", "Camera", false, false},
  };
  for (const auto& [name, mediaClass, role, isSeen, expected] : cases) {
    SCOPED_TRACE(testing::Message() << name << " " << mediaClass << " " << role);
    const auto owner = own(name);
    VirtualCamera screen({.name = "screen", .mediaClass = mediaClass, .role = role});
    screen.appear();
    ASSERT_TRUE(reads({})) << "nobody reads";
    auto reader = read("target-object=screen");
    ASSERT_TRUE(eventually([&] { return screen.isOpen(); })) << reader.output();
    ASSERT_TRUE(reads(isSeen ? Reads{{own_, reader.pid()}} : Reads{})) << reader.output();
    EXPECT_EQ(decided(), expected);
    reader.kill();
    ASSERT_TRUE(reads({}));
    manual->advance(1000);
  }
}

TEST_F(RealSharingTest, AForgedScreenIsKnownByItsMaker) {
  const auto owner = own(mutter);
  const std::string me = std::to_string(own_);
  auto forger = desktop.spawn(
      "gst-launch-1.0",
      {"-q", "videotestsrc", "is-live=true", "!", "video/x-raw,format=YUY2,width=640,height=480", "!",
       "pipewiresink", "mode=provide", "client-properties=p,pipewire.sec.pid=(string)" + me,
       "stream-properties=p,media.class=Video/Source,node.name=forged,media.name=meta-screen-cast-src,"
       "object.serial=(string)1,client.id=(string)1,pipewire.sec.pid=(string)" +
           me});
  desktop.waitForNode("forged");
  auto reader = read("target-object=forged");
  ASSERT_TRUE(reads({{forger.pid(), reader.pid()}})) << forger.output() << reader.output();
  EXPECT_FALSE(decided());
}

TEST_F(RealSharingTest, EndsWithTheLastReaderTheMakerOrTheService) {
  const auto owner = own(mutter);
  VirtualCamera screen({.name = "screen", .role = ""});
  const auto beRead = [&] {
    screen.appear();
    auto reader = read("target-object=screen");
    EXPECT_TRUE(isShared()) << reader.output();
    return reader;
  };
  auto one = beRead();
  {
    auto other = read("target-object=screen");
    Reads both{{own_, one.pid()}, {own_, other.pid()}};
    std::ranges::sort(both);
    ASSERT_TRUE(reads(both));
  }
  ASSERT_TRUE(reads({{own_, one.pid()}}));
  manual->advance(1000);
  EXPECT_TRUE(sharing->isShared()) << "one is left";
  one.kill();
  expectItsEnd();
  one = beRead();
  screen.vanish();
  expectItsEnd();
  one = beRead();
  desktop.killPipeWire();
  expectItsEnd();
  desktop.startPipeWire();
  screen.vanish();
  one = beRead();
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
  const auto path = u"/org/freedesktop/portal/desktop"_s;
  const auto call = [&](const char* method, const QVariantList& values) {
    return sessionBus.call(service, path, u"org.freedesktop.impl.portal.ScreenCast"_s,
                           QString::fromLatin1(method), values);
  };
  const auto object = [&](const char* leaf) {
    return QVariant::fromValue(QDBusObjectPath(path + QString::fromLatin1(leaf)));
  };
  // It has its name before it is ready, and then it may hang or crash.
  ChildProcess maker;
  QDBusMessage started;
  for (int attempt = 0; attempt < 5 && started.arguments().isEmpty(); ++attempt) {
    maker.terminate();
    maker = desktop.spawn(portal);
    sessionBus.waitForName(service);
    try {
      call("CreateSession", {object("/request/t/1"), object("/session/t/1"), QString(), QVariantMap()});
      call("SelectSources",
           {object("/request/t/2"), object("/session/t/1"), QString(), QVariantMap{{u"types"_s, 1U}}});
      started = call("Start",
                     {object("/request/t/3"), object("/session/t/1"), QString(), QString(), QVariantMap()});
    } catch (const std::exception&) {
      continue;  // once more
    }
  }
  desktop.setVariable("LD_PRELOAD", "");
  ASSERT_FALSE(started.arguments().isEmpty()) << maker.output();
  ASSERT_EQ(started.arguments().at(0).toUInt(), 0U) << maker.output();
  const auto results = qdbus_cast<QVariantMap>(started.arguments().at(1));
  const auto streams = qdbus_cast<QList<std::pair<uint, QVariantMap>>>(results[u"streams"_s]);
  EXPECT_THAT(session->screenReads().get(), IsEmpty()) << "nobody reads yet";
  auto reader = read("path=" + std::to_string(streams.at(0).first));
  ASSERT_TRUE(isShared()) << maker.output() << reader.output();
  EXPECT_THAT(session->screenReads().get(), ElementsAre(ScreenRead{maker.pid(), reader.pid()}));
  reader.terminate();
  expectItsEnd();
}

}  // namespace
}  // namespace sentrel::test
