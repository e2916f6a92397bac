// SPDX-License-Identifier: Apache-2.0
//
// The program's windows and its icon as the panel and other programs bring them forward.
#include "app/program_desk.h"

namespace sentrel::test {
namespace {

struct ProgramWindowsTest : ProgramDesk {
  ProgramWindowsTest() {
    panel.answer(registers, [](const QDBusMessage&) { return QVariantList(); });
    panel.answer(u"Introspect"_s, [](const QDBusMessage&) -> QVariantList {
      return {
          uR"(<node><interface name="org.kde.StatusNotifierWatcher">
                  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
                  </interface></node>)"_s};
    });
    panel.answer(u"Get"_s, [](const QDBusMessage&) -> QVariantList {
      return {QVariant::fromValue(QDBusVariant(true))};  // it shows what is registered
    });
    start();
    EXPECT_TRUE(eventually([&] { return !panel.calls(registers).empty() && isCovered(); }));
    icon = panel.calls(registers).back().arguments().constFirst().toString();
  }

  /// The window with this title that can be seen, or nothing.
  [[nodiscard]] std::string window(const std::string& title) {
    return desktop.run("sh", {"-c", "xdotool search --onlyvisible --name '^" + title + "$' || true"});
  }
  [[nodiscard]] bool opens(const std::string& title) {
    return eventually([&] { return !window(title).empty(); });
  }
  [[nodiscard]] bool closes(const std::string& title, seconds limit = seconds(20)) {
    return eventually([&] { return window(title).empty(); }, limit);
  }
  /// A second is enough for whatever would close it.
  [[nodiscard]] bool stays(const std::string& title) { return !closes(title, seconds(1)); }

  void clickIcon() {
    bus->call(icon, u"/StatusNotifierItem"_s, u"org.kde.StatusNotifierItem"_s, u"Activate"_s, {900, 20});
  }
  /// A panel that draws the icon's menu itself says what was chosen in it.
  void chooseInMenu(const QString& words) {
    const auto ask = [this](const QString& member, const QVariantList& values) {
      return bus->call(icon, u"/MenuBar"_s, u"com.canonical.dbusmenu"_s, member, values).arguments().value(0);
    };
    const auto entries = ask(u"GetGroupProperties"_s, {QVariant::fromValue(QList{1, 2, 3, 4, 5, 6, 7, 8, 9}),
                                                       QStringList(u"label"_s)});
    for (const auto& [id, properties] : qdbus_cast<QList<std::pair<int, QVariantMap>>>(entries)) {
      if (properties[u"label"_s] == words)
        ask(u"Event"_s, {id, u"clicked"_s, QVariant::fromValue(QDBusVariant(0)), 0U});
    }
  }

  const QString registers = u"RegisterStatusNotifierItem"_s;
  BusDouble panel{desktop, TestBus::session, u"org.kde.StatusNotifierWatcher"_s};
  QString icon;  // its bus name
};

TEST_F(ProgramWindowsTest, TheIconOpensThePopoverAndNeverClosesAQuestion) {
  for (int i = 0; i < 2; ++i) {
    chooseInMenu(u"Ouvrir Sentrel"_s);
    ASSERT_TRUE(opens("Sentrel"));
    EXPECT_TRUE(stays("Sentrel")) << "chosen for the " << i + 1 << ". time";
  }
  perform("statistics");
  for (int i = 0; i < 3; ++i) press("Tab");  // past the offer of the journal
  press("space");                            // the question
  clickIcon();
  EXPECT_TRUE(stays("Sentrel"));
  press("Escape");
  EXPECT_TRUE(stays("Sentrel")) << "only the question has gone";
  clickIcon();
  EXPECT_TRUE(closes("Sentrel"));
  perform("about");
  ASSERT_TRUE(opens("Sentrel"));
  perform("preferences");
  ASSERT_TRUE(opens("Préférences Sentrel"));
  EXPECT_TRUE(closes("Sentrel"));
  terminate();  // with a window open
}

}  // namespace
}  // namespace sentrel::test
