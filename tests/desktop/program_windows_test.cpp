// SPDX-License-Identifier: Apache-2.0
//
// The program's windows and its icon as the panel and other programs bring them forward.
#include <QDBusArgument>
#include <QDBusVariant>
#include <numeric>
#include <sstream>

#include "desktop/program_desk.h"

namespace sentrel::test {
namespace {

class ProgramWindowsTest : public ProgramDesk {
 protected:
  ProgramWindowsTest() {
    completeOnboarding();
    tray.answer(registers, [](const QDBusMessage&) { return QVariantList(); });
    tray.answer(u"Introspect"_s, [](const QDBusMessage&) -> QVariantList {
      return {
          uR"(<node><interface name="org.kde.StatusNotifierWatcher">
                  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
                  </interface></node>)"_s};
    });
    tray.answer(u"Get"_s, [](const QDBusMessage&) -> QVariantList {
      return {QVariant::fromValue(QDBusVariant(true))};  // a panel shows what is registered
    });
    start();
    EXPECT_TRUE(eventually([&] { return !tray.calls(registers).empty(); }));
    for (const QDBusMessage& call : tray.calls(registers)) item = call.arguments().constFirst().toString();
    EXPECT_TRUE(eventually([&] { return isCovered(); }));  // the state that the icon shows
  }

  static bool eventually(const std::function<bool()>& condition,
                         std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    return waitUntil(
        [&] {
          QCoreApplication::processEvents();
          return condition();
        },
        limit, std::chrono::milliseconds(20));
  }
  /// The window with this title that can be seen, or nothing.
  [[nodiscard]] std::string window(const std::string& title) {
    return desktop.run("sh", {"-c", "xdotool search --onlyvisible --name '^" + title + "$' || true"});
  }
  [[nodiscard]] bool opens(const std::string& title) {
    return eventually([&] { return !window(title).empty(); });
  }
  /// False once it has gone; a second is enough for whatever would close it.
  [[nodiscard]] bool stays(const std::string& title) {
    return !eventually([&] { return window(title).empty(); }, std::chrono::seconds(1));
  }
  void clickIcon() {
    session.sessionBus().call(item, u"/StatusNotifierItem"_s, u"org.kde.StatusNotifierItem"_s, u"Activate"_s,
                              {900, 20});
  }
  /// A panel that draws the icon's menu itself says what was chosen in it.
  void chooseInMenu(const QString& words) {
    QList<int> ids(20);  // more than it has
    std::iota(ids.begin(), ids.end(), 1);
    const auto menu = u"com.canonical.dbusmenu"_s;
    const QDBusMessage reply =
        session.sessionBus().call(item, u"/MenuBar"_s, menu, u"GetGroupProperties"_s,
                                  {QVariant::fromValue(ids), QVariant::fromValue(QStringList{u"label"_s})});
    const auto entries = reply.arguments().constFirst().value<QDBusArgument>();
    int chosen = -1;
    entries.beginArray();
    while (!entries.atEnd()) {
      int id = 0;
      QVariantMap properties;
      entries.beginStructure();
      entries >> id >> properties;
      entries.endStructure();
      if (properties.value(u"label"_s).toString() == words) chosen = id;
    }
    ASSERT_GE(chosen, 0);
    session.sessionBus().call(item, u"/MenuBar"_s, menu, u"Event"_s,
                              {chosen, u"clicked"_s, QVariant::fromValue(QDBusVariant(0)), 0U});
  }
  /// The icon's first picture, byte by byte.
  [[nodiscard]] QByteArray icon() {
    const QDBusMessage reply =
        session.sessionBus().call(item, u"/StatusNotifierItem"_s, u"org.freedesktop.DBus.Properties"_s,
                                  u"Get"_s, {u"org.kde.StatusNotifierItem"_s, u"IconPixmap"_s});
    const auto pictures =
        reply.arguments().constFirst().value<QDBusVariant>().variant().value<QDBusArgument>();
    int width = 0;
    int height = 0;
    QByteArray pixels;
    pictures.beginArray();
    pictures.beginStructure();
    pictures >> width >> height >> pixels;
    return pixels;
  }

  const QString registers = u"RegisterStatusNotifierItem"_s;
  BusDouble portal{desktop, TestBus::session, u"org.freedesktop.portal.Desktop"_s};
  BusDouble tray{desktop, TestBus::session, u"org.kde.StatusNotifierWatcher"_s};
  QString item;  // the bus name of the program's icon
};

TEST_F(ProgramWindowsTest, TheIconOpensThePopoverAndNeverClosesAQuestion) {
  for (int i = 0; i < 2; ++i) {
    chooseInMenu(u"Ouvrir Sentrel"_s);
    ASSERT_TRUE(opens("Sentrel"));
    EXPECT_TRUE(stays("Sentrel")) << "chosen for the " << i + 1 << ". time";
  }
  perform("statistics");
  press("Tab");
  press("space");  // the question
  clickIcon();
  EXPECT_TRUE(stays("Sentrel"));
  press("Escape");
  EXPECT_TRUE(stays("Sentrel")) << "only the question has gone";
  clickIcon();
  EXPECT_TRUE(eventually([&] { return window("Sentrel").empty(); }));
}

TEST_F(ProgramWindowsTest, PreferencesOpenInTheMiddleAndComeBackWhenMinimised) {
  const std::string title = "Préférences Sentrel";
  perform("preferences");
  ASSERT_TRUE(opens(title));
  std::istringstream geometry(desktop.run("sh", {"-c", "xwininfo -id " + window(title)}));
  std::map<std::string, int> told;
  for (std::string line; std::getline(geometry, line);) {
    if (const auto colon = line.find(':'); colon != std::string::npos)
      told[line.substr(0, colon)] = std::atoi(line.c_str() + colon + 1);
  }
  EXPECT_NEAR(told["  Absolute upper-left X"] + told["  Width"] / 2, 960, 20);
  EXPECT_NEAR(told["  Absolute upper-left Y"] + told["  Height"] / 2, 540, 30);
  desktop.run("sh", {"-c", "xdotool windowminimize " + window(title)});
  ASSERT_TRUE(eventually([&] { return window(title).empty(); }));
  perform("preferences");
  EXPECT_TRUE(opens(title));
}

TEST_F(ProgramWindowsTest, ItEndsInGoodOrderWithWindowsOpenAfterOthersWereClosed) {
  perform("about");
  ASSERT_TRUE(opens("Sentrel"));
  perform("preferences");
  ASSERT_TRUE(opens("Préférences Sentrel"));
  EXPECT_TRUE(eventually([&] { return window("Sentrel").empty(); }));
  terminate();
}

TEST_F(ProgramWindowsTest, TheIconFollowsLightAndDarkAtOnce) {
  const QByteArray light = icon();
  ASSERT_FALSE(light.isEmpty());
  const auto tell = [&](uint scheme) {
    portal.emitSignal(u"/org/freedesktop/portal/desktop"_s, u"org.freedesktop.portal.Settings"_s,
                      u"SettingChanged"_s,
                      {u"org.freedesktop.appearance"_s, u"color-scheme"_s,
                       QVariant::fromValue(QDBusVariant(QVariant(scheme)))});
  };
  tell(1);
  EXPECT_TRUE(eventually([&] { return icon() != light; }));
  tell(2);
  EXPECT_TRUE(eventually([&] { return icon() == light; }));
}

}  // namespace
}  // namespace sentrel::test
