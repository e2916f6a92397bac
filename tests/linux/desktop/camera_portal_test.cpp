// SPDX-License-Identifier: Apache-2.0
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>

#include <algorithm>
#include <cstdlib>

#include "linux/camera/pipewire_capture_session.h"
#include "linux/desktop/camera_portal.h"
#include "linux/desktop/qt_main_loop.h"
#include "stage/bus_doubles.h"
#include "stage/virtual_camera.h"

namespace sentrel::test {
namespace {

using namespace Qt::StringLiterals;

/// A program that finds no daemon by itself, and a portal that hands out connections to a real one.
struct CameraPortalTest : testing::Test {
  CameraPortalTest() {
    desktop.exportToProcess();
    ::setenv("PIPEWIRE_REMOTE", "hidden", 1);
    const auto boxed = [](const QVariant& value) { return QVariant::fromValue(QDBusVariant(value)); };
    service.answer(u"Register"_s, [](const QDBusMessage&) { return QVariantList(); });
    service.answer(u"Get"_s, [this, boxed](const QDBusMessage&) { return QVariantList{boxed(isPresent)}; });
    service.answer(u"OpenPipeWireRemote"_s, [this](const QDBusMessage&) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
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

  void answerPerson(const QDBusMessage& call, bool granted) {
    QString sender = call.service().mid(1);
    sender.replace(u'.', u'_');
    const auto options = qdbus_cast<QVariantMap>(call.arguments().constLast());
    const QString path = u"/org/freedesktop/portal/desktop/request/%1/%2"_s.arg(
        sender, options.value(u"handle_token"_s).toString());
    service.reply(call, {QVariant::fromValue(QDBusObjectPath(path))});
    service.emitSignal(path, u"org.freedesktop.portal.Request"_s, u"Response"_s,
                       {granted ? 0U : 1U, QVariantMap()});
  }
  template <class Condition>
  [[nodiscard]] bool runUntil(Condition condition) {
    return waitUntil(
        [&] {
          QCoreApplication::processEvents();
          return condition();
        },
        std::chrono::seconds(20), std::chrono::milliseconds(2));
  }
  [[nodiscard]] std::size_t calls(const char* member) const {
    return service.calls(QString::fromLatin1(member)).size();
  }

  /// PipeWire asks the portal, too, for priorities.
  [[nodiscard]] std::size_t questionsForCameras() const {
    const auto questions = service.calls(u"Get"_s);
    return static_cast<std::size_t>(std::ranges::count_if(questions, [](const QDBusMessage& call) {
      return call.arguments().at(0) == u"org.freedesktop.portal.Camera"_s;
    }));
  }

  HeadlessDesktop desktop{{.pipeWire = true, .width = 640, .height = 480}};
  int argumentCount = 1;
  char program[5] = "test";
  char* arguments[2] = {program, nullptr};
  QCoreApplication application{argumentCount, arguments};
  bool isPresent = true;
  BusDouble service{desktop, TestBus::session, u"org.freedesktop.portal.Desktop"_s};
  std::shared_ptr<QtMainLoop> loop = std::make_shared<QtMainLoop>();
  std::shared_ptr<DesktopPortal> desktopPortal =
      std::make_shared<DesktopPortal>(std::make_shared<Bus>(loop, BusKind::session));
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
  observing.reset();
  session = make();
  isPresent = true;
  std::atomic<int> frames = 0;
  observing = session->observeDevices();
  ASSERT_TRUE(runUntil([&] { return calls("AccessCamera") == 1; }));
  EXPECT_EQ(calls("OpenPipeWireRemote"), 0U) << "the person is still being asked";
  answerPerson(service.calls(u"AccessCamera"_s)[0], true);
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
  ASSERT_TRUE(runUntil([&] { return desktopPortal->isReady(); }));
  bool isOpened = false;
  const auto ask = [&] { portal->open([&](const BusDescriptor&) { isOpened = true; }); };
  ask();
  ASSERT_TRUE(runUntil([&] { return calls("AccessCamera") == 1; }));
  ask();
  answerPerson(service.calls(u"AccessCamera"_s)[0], false);
  // What is asked after all of that is answered after it.
  bool isAnswered = false;
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(runUntil([&] { return true; }));
    ask();
    isAnswered = false;
    const Registration asked = desktopPortal->ask(
        {DesktopPortal::path, "org.freedesktop.DBus.Properties", "Get"},
        [&](const BusMessage&) { isAnswered = true; }, "ss", "org.freedesktop.portal.Camera", "version");
    ASSERT_TRUE(runUntil([&] { return isAnswered; }));
  }
  EXPECT_EQ(calls("AccessCamera"), 1U);
  EXPECT_FALSE(isOpened);
}

}  // namespace
}  // namespace sentrel::test
