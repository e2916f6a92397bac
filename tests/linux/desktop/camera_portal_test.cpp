// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/camera_portal.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QDBusUnixFileDescriptor>
#include <algorithm>
#include <cstdlib>

#include "linux/camera/pipewire_capture_session.h"
#include "linux/desktop/event_desk.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {
namespace {

using namespace Qt::StringLiterals;

/// PipeWire starts before there is a portal: an ordinary user's asks that for priorities, and waits for the
/// answer of a test that waits for PipeWire.
HeadlessDesktop& desktopWithPipeWire() {
  HeadlessDesktop& desktop = desktopWithoutDisplay();
  desktop.startPipeWire();
  return desktop;
}

/// A program that finds no daemon by itself, and a portal that hands out connections to a real one.
struct CameraPortalTest : EventDesk {
  CameraPortalTest() : EventDesk(desktopWithPipeWire()) {
    ::setenv("PIPEWIRE_REMOTE", "hidden", 1);
    service.answer(u"Register"_s, [](const QDBusMessage&) { return QVariantList(); });
    service.answer(u"Get"_s, [this](const QDBusMessage&) { return QVariantList{boxed(isPresent)}; });
    service.answer(u"OpenPipeWireRemote"_s, [this](const QDBusMessage&) {
      sockaddr_un address{AF_UNIX, {}};
      (desktop.runtimeFolder() / "pipewire-0").string().copy(address.sun_path, sizeof address.sun_path - 1);
      const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      EXPECT_EQ(connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
      QDBusUnixFileDescriptor given(socket);
      ::close(socket);
      return QVariantList{QVariant::fromValue(given)};
    });
    service.keep(u"AccessCamera"_s);
  }
  ~CameraPortalTest() override { ::unsetenv("PIPEWIRE_REMOTE"); }

  [[nodiscard]] std::size_t calls(const char* member) const {
    return service.calls(QString::fromLatin1(member)).size();
  }
  void answerPerson(bool granted) {
    const QDBusMessage call = service.calls(u"AccessCamera"_s)[0];
    service.reply(call, portalAnswer(service, call, granted));
  }
  /// Runs until what was asked before is answered: what is asked after it is answered after it.
  [[nodiscard]] bool runUntilAnswered() {
    bool isAnswered = false;
    const Registration asked = desktopPortal->ask(
        {DesktopPortal::path, "org.freedesktop.DBus.Properties", "Get"},
        [&](const BusMessage&) { isAnswered = true; }, "ss", "org.freedesktop.portal.Desktop", "version");
    return runUntil([&] { return isAnswered; });
  }
  /// PipeWire asks the portal, too, for priorities.
  [[nodiscard]] std::size_t questionsForCameras() const {
    const auto questions = service.calls(u"Get"_s);
    return static_cast<std::size_t>(std::ranges::count_if(questions, [](const QDBusMessage& call) {
      return call.arguments().at(0) == u"org.freedesktop.portal.Camera"_s;
    }));
  }

  bool isPresent = true;
  BusDouble service{desktop, TestBus::session, u"org.freedesktop.portal.Desktop"_s};
  std::shared_ptr<DesktopPortal> desktopPortal = std::make_shared<DesktopPortal>(ownSessionBus);
  std::shared_ptr<CameraPortal> portal = std::make_shared<CameraPortal>(desktopPortal);
  std::shared_ptr<SerialQueue> queue = std::make_shared<SerialQueue>("camera");
};

TEST_F(CameraPortalTest, ShowsCamerasThatAreHiddenOtherwise) {
  VirtualCamera camera({.name = "guarded"});
  ::unsetenv("PIPEWIRE_REMOTE");
  camera.appear();
  ::setenv("PIPEWIRE_REMOTE", "hidden", 1);
  ASSERT_TRUE(runUntil([&] { return desktopPortal->isReady(); }));
  const auto make = [&] {
    return PipeWireCaptureSession::create(loop, queue, nullptr,
                                          [this](auto opened) { portal->open(std::move(opened)); });
  };
  auto session = make();
  isPresent = false;
  EXPECT_EQ(questionsForCameras(), 0U) << "nobody needs a camera";
  Registration observing = session->observeDevices();
  ASSERT_TRUE(runUntil([&] { return questionsForCameras() == 1; }));
  ASSERT_TRUE(runUntilAnswered());
  observing.reset();
  session = make();
  isPresent = true;
  std::atomic<int> frames = 0;
  observing = session->observeDevices();
  ASSERT_TRUE(runUntil([&] { return calls("AccessCamera") == 1; }));
  EXPECT_EQ(calls("OpenPipeWireRemote"), 0U) << "the person is still being asked";
  answerPerson(true);
  ASSERT_TRUE(runUntil([&] { return session->devices().size() == 1; }));
  EXPECT_EQ(session->devices()[0].uniqueID, "guarded");
  session->setFrameDemand({true, 0});
  queue->sync([&] {
    EXPECT_FALSE(session->configure({640, 480, std::nullopt, [&](const FrameRef&) { ++frames; }}));
    session->startRunning();
  });
  EXPECT_TRUE(runUntil([&] { return frames > 3; }));
  EXPECT_EQ(calls("Register"), 1U);
}

TEST_F(CameraPortalTest, WhoDeclinesIsNotAskedAgain) {
  bool isOpened = false;
  const auto ask = [&] { portal->open([&](const BusDescriptor&) { isOpened = true; }); };
  EXPECT_FALSE(desktopPortal->isReady()) << "it is asked once it is";
  ask();
  ASSERT_TRUE(runUntil([&] { return calls("AccessCamera") == 1; }));
  ask();
  answerPerson(false);
  for (int i = 0; i < 2; ++i) {
    ask();
    ASSERT_TRUE(runUntilAnswered());
  }
  EXPECT_EQ(calls("AccessCamera"), 1U);
  EXPECT_FALSE(isOpened);
}

}  // namespace
}  // namespace sentrel::test
