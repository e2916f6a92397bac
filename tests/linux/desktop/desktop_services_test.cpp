// SPDX-License-Identifier: Apache-2.0
#include <xcb/xcb.h>

#include <QByteArray>
#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "linux/desktop/dconf_file.h"
#include "linux/desktop/desktop_appearance.h"
#include "linux/desktop/desktop_key_monitor.h"
#include "linux/desktop/desktop_notifications.h"
#include "linux/desktop/event_desk.h"
#include "linux/desktop/private_files.h"
#include "linux/desktop/upower_power_source.h"
#include "support/fake_desktop.h"

namespace sentrel::test {
namespace {

using namespace Qt::StringLiterals;

const auto notifications = u"org.freedesktop.Notifications"_s;
const auto notificationsPath = u"/org/freedesktop/Notifications"_s;
const NotificationContent content{"Titre", "Texte"};

using HapticsTest = EventDesk;
using AppearanceTest = EventDesk;

/// As the portal tells what was bound.
struct BoundShortcut {
  QString id;
  QVariantMap properties;
};
[[maybe_unused]] QDBusArgument& operator<<(QDBusArgument& to, const BoundShortcut& shortcut) {
  to.beginStructure();
  to << shortcut.id << shortcut.properties;
  to.endStructure();
  return to;
}
[[maybe_unused]] const QDBusArgument& operator>>(const QDBusArgument& from, BoundShortcut& shortcut) {
  from.beginStructure();
  from >> shortcut.id >> shortcut.properties;
  from.endStructure();
  return from;
}

struct NotificationsTest : EventDesk {
  /// A server that numbers what it shows from `first` on.
  std::unique_ptr<BusDouble> serve(uint first) {
    auto server = std::make_unique<BusDouble>(desktop, TestBus::session, notifications);
    server->answer(u"Notify"_s, [next = first](const QDBusMessage& call) mutable {
      const uint replaced = call.arguments().at(1).toUInt();
      return QVariantList{replaced != 0 ? replaced : next++};
    });
    for (const auto& member : {u"GetServerInformation"_s, u"CloseNotification"_s})
      server->answer(member, [](const QDBusMessage&) { return QVariantList(); });
    return server;
  }
  DesktopNotifications centre{loop, ownSessionBus};
};

TEST_F(NotificationsTest, AreReplacedWithdrawnAndChosen) {
  std::vector<bool> answers;
  const auto ask = [&] { centre.requestAuthorization([&](bool granted) { answers.push_back(granted); }); };
  ask();
  EXPECT_TRUE(answers.empty()) << "in a later turn";
  ASSERT_TRUE(runUntil([&] { return !answers.empty(); }));
  EXPECT_FALSE(answers[0]) << "nobody serves";
  auto server = serve(7);
  ASSERT_TRUE(runUntil([&] {
    ask();
    return answers.back();
  }));
  centre.add("a", content);
  ASSERT_TRUE(runUntilCalls(*server, "Notify", 1));
  const auto hints = qdbus_cast<QVariantMap>(server->calls(u"Notify"_s)[0].arguments().at(6));
  EXPECT_EQ(hints.value(u"urgency"_s).toInt(), 2);
  EXPECT_TRUE(hints.contains(u"sound-name"_s));
  centre.add("a", content);
  centre.remove("a");
  centre.add("a", content);
  ASSERT_TRUE(runUntilCalls(*server, "Notify", 2));

  std::vector<std::string> chosen;
  const auto watch = centre.chosen.connect([&](const std::string& id) { chosen.push_back(id); });
  // Sent until the last one is known to be shown.
  ASSERT_TRUE(runUntil([&] {
    for (const uint number : {99U, 0U, 7U, 8U})
      server->emitSignal(notificationsPath, notifications, u"ActionInvoked"_s, {number, u"default"_s});
    return !chosen.empty();
  }));
  EXPECT_THAT(chosen, testing::Each("a"));
  centre.remove("a");
  ASSERT_TRUE(runUntilCalls(*server, "CloseNotification", 1));

  // Withdrawn while the server still thinks about its number; then another server.
  server.reset();
  auto slow = std::make_unique<BusDouble>(desktop, TestBus::session, notifications);
  slow->keep(u"Notify"_s);
  centre.add("a", content);
  ASSERT_TRUE(runUntilCalls(*slow, "Notify", 1));
  centre.remove("a");
  slow->reply(slow->calls(u"Notify"_s)[0], {40U});
  ASSERT_TRUE(runUntilCalls(*slow, "CloseNotification", 1));
  EXPECT_EQ(slow->calls(u"CloseNotification"_s)[0].arguments().at(0).toUInt(), 40U);
  centre.add("a", content);
  ASSERT_TRUE(runUntilCalls(*slow, "Notify", 2));
  slow->reply(slow->calls(u"Notify"_s)[1], {u"garbage"_s});
  slow.reset();
  server = serve(1);
  centre.add("a", content);
  ASSERT_TRUE(runUntilCalls(*server, "Notify", 1));
  EXPECT_EQ(server->calls(u"Notify"_s)[0].arguments().at(1).toUInt(), 0U)
      << "another server's numbers mean nothing";
}

TEST_F(NotificationsTest, OnlyTheServersAnswersToWhatWasOfferedCount) {
  auto server = serve(7);
  ASSERT_TRUE(runUntil([&] { return centre.isHeard().get(); }));
  centre.add("a", {.title = "Titre", .body = "Texte", .actions = {{"one", "Un"}, {"two", "Deux"}}});
  ASSERT_TRUE(runUntilCalls(*server, "Notify", 1));
  std::vector<std::string> answers;
  const auto watch = centre.answered.connect(
      [&](const std::string& id, const std::string& action) { answers.push_back(id + ' ' + action); });
  // Another process speaks as the server, which has the name; then the server makes actions up.
  BusDouble stranger(desktop, TestBus::session, u"org.example.Stranger"_s);
  ASSERT_TRUE(runUntil([&] {
    stranger.emitSignal(notificationsPath, notifications, u"ActionInvoked"_s, {7U, u"one"_s});
    for (const auto& action : {u"three"_s, u""_s, u"one "_s})
      server->emitSignal(notificationsPath, notifications, u"ActionInvoked"_s, {7U, action});
    server->emitSignal(notificationsPath, notifications, u"ActionInvoked"_s, {u"7"_s, u"one"_s});
    server->emitSignal(notificationsPath, notifications, u"ActionInvoked"_s, {7U, u"two"_s});
    return !answers.empty();
  }));
  EXPECT_THAT(answers, testing::Each("a two"));
}

TEST_F(NotificationsTest, AServerThatIsQuietHangsOrGoesIsNotHeard) {
  const auto becomes = [&](bool heard) { return runUntil([&] { return centre.isHeard() == heard; }); };
  EXPECT_FALSE(centre.isHeard()) << "nobody serves";
  auto server = serve(7);
  EXPECT_TRUE(becomes(true));
  const auto tell = [&](bool inhibited) {
    server->emitSignal(notificationsPath, u"org.freedesktop.DBus.Properties"_s, u"PropertiesChanged"_s,
                       {notifications, QVariantMap{{u"Inhibited"_s, inhibited}}, QStringList()});
  };
  tell(true);
  EXPECT_TRUE(becomes(false));
  tell(false);
  EXPECT_TRUE(becomes(true));
  server->keep(u"Notify"_s);
  centre.add("a", content);
  EXPECT_TRUE(becomes(false)) << "it hangs";
  server->reply(server->calls(u"Notify"_s)[0], {7U});
  EXPECT_TRUE(becomes(true)) << "late, but there";
  server.reset();
  EXPECT_TRUE(becomes(false));
}

/// Others are hidden by an inhibition of ours, and only where ours stays.
TEST_F(NotificationsTest, OthersAreHiddenOnlyWhereOursAreStillShown) {
  const struct {
    const char* what;
    QStringList abilities;
    QVariantList answer;  // to the inhibition
    uint closedFor;       // why ours is closed meanwhile; 0 is not at all
    bool hides, stillCan;
    std::size_t ended;  // inhibitions that we have ended
  } cases[] = {
      {"hidden for as long as wanted", {u"body"_s, u"inhibitions"_s}, {5U}, 0, true, true, 1},
      {"the person has read ours", {u"inhibitions"_s}, {5U}, 2, true, true, 1},
      {"ours was hidden as well", {u"inhibitions"_s}, {5U}, 1, true, false, 1},
      {"refused in the end", {u"inhibitions"_s}, {u"garbage"_s}, 0, true, false, 0},
      {"a server that cannot", {u"body"_s}, {5U}, 0, false, false, 0},
  };
  for (const auto& [what, abilities, answer, closedFor, hides, stillCan, ended] : cases) {
    SCOPED_TRACE(what);
    auto server = serve(7);
    server->answer(u"GetCapabilities"_s, [&](const QDBusMessage&) { return QVariantList{abilities}; });
    server->answer(u"Inhibit"_s, [&](const QDBusMessage&) { return answer; });
    server->answer(u"UnInhibit"_s, [](const QDBusMessage&) { return QVariantList(); });
    ASSERT_TRUE(runUntilCalls(*server, "GetCapabilities", 1));
    centre.add("alert", content);
    ASSERT_TRUE(runUntilCalls(*server, "Notify", 1));
    ASSERT_TRUE(runUntil([&] { return centre.canHideOthers() == hides; }));

    Registration hidden = centre.hideOthers();
    EXPECT_EQ(static_cast<bool>(hidden), hides);
    if (hides) {
      ASSERT_TRUE(runUntilCalls(*server, "Inhibit", 1));
      const auto told = server->calls(u"Inhibit"_s)[0].arguments();
      EXPECT_EQ(told.at(0).toString(), u"expert.mardeck.sentrel"_s);
      EXPECT_FALSE(centre.hideOthers()) << "once at a time";
      EXPECT_TRUE(centre.isHeard());
    }
    if (closedFor != 0)
      server->emitSignal(notificationsPath, notifications, u"NotificationClosed"_s, {7U, closedFor});
    // The second is asked for once the first was answered, which was after all that was told before.
    for (const std::size_t count : {2U, 3U}) {
      centre.add("other", content);
      ASSERT_TRUE(runUntilCalls(*server, "Notify", count));
    }
    EXPECT_EQ(centre.canHideOthers(), stillCan);
    hidden.reset();
    ASSERT_TRUE(runUntilCalls(*server, "UnInhibit", ended));
    for (const QDBusMessage& call : server->calls(u"UnInhibit"_s))
      EXPECT_EQ(call.arguments().at(0).toUInt(), 5U);
    server.reset();
    ASSERT_TRUE(runUntil([&] { return !centre.isHeard(); }));
    EXPECT_FALSE(centre.canHideOthers()) << "nobody serves";
    for (const char* shown : {"alert", "other"}) centre.remove(shown);
  }
}

struct PowerTest : EventDesk {
  UPowerPowerSource power{ownSystemBus};
};

TEST_F(PowerTest, TheFirstBatteryIsTheOneThatSuppliesThisMachine) {
  Registration observing = power.observe();
  EXPECT_EQ(power.first(), std::nullopt);
  const auto upower = u"org.freedesktop.UPower"_s;
  const auto upowerPath = u"/org/freedesktop/UPower"_s;
  const auto device = upower + u".Device"_s;
  const auto display = upowerPath + u"/devices/DisplayDevice"_s;
  const auto mouse = upowerPath + u"/devices/mouse"_s;
  const auto battery = upowerPath + u"/devices/BAT0"_s;
  using Source = std::optional<PowerSourceDescription>;
  const auto becomes = [&](const Source& expected) {
    return runUntil([&] { return power.first() == expected; });
  };
  std::optional<BusMock> mock(std::in_place, desktop, systemBus, upower, u"upower"_s);
  const auto add = [&](const char* unit, double percent) {
    mock->control(upowerPath, u"AddDischargingBattery"_s,
                  {QString::fromLatin1(unit), u"B"_s, percent, qlonglong{60}});
  };
  add("mouse", 99);
  mock->setProperty(mouse, device, u"PowerSupply"_s, false);
  add("BAT0", 80.5);
  EXPECT_TRUE(becomes(PowerSourceDescription{80, false}));
  const std::tuple<const char*, QVariant, Source> changes[] = {
      {"State", 1U, {{80, true}}},
      {"State", 6U, {{80, false}}},
      {"Percentage", 9.99, {{9, false}}},
      {"Percentage", -1.0, {{std::nullopt, false}}},
      {"State", u"?"_s, {{std::nullopt, std::nullopt}}},
      {"IsPresent", false, std::nullopt}};
  for (const auto& [property, value, expected] : changes) {
    mock->setProperty(battery, device, QString::fromLatin1(property), value);
    EXPECT_TRUE(becomes(expected)) << property << " " << value.toString().toStdString();
  }
  mock->setProperty(display, device, u"Type"_s, 2U);
  mock->setProperty(display, device, u"IsPresent"_s, true);
  mock->setProperty(display, device, u"Percentage"_s, 55.0);
  EXPECT_TRUE(becomes(PowerSourceDescription{55, true})) << "all batteries as one";
  mock->kill();
  EXPECT_TRUE(becomes(std::nullopt));
  mock.emplace(desktop, systemBus, upower, u"upower"_s);
  add("BAT1", 20);
  EXPECT_TRUE(becomes(PowerSourceDescription{20, false})) << "served again";
  observing.reset();
  EXPECT_EQ(power.first(), std::nullopt);
}

TEST_F(HapticsTest, AreAskedOfWhoeverServesThem) {
  FeedbackdHaptics haptics(ownSessionBus);
  haptics.perform();  // nobody there
  const auto feedback = u"org.sigxcpu.Feedback"_s;
  BusDouble server(desktop, TestBus::session, feedback);
  server.answer(u"TriggerFeedback"_s, [](const QDBusMessage&) { return QVariantList{1U}; });
  ASSERT_TRUE(runUntil([&] {
    haptics.perform();
    return !server.calls(u"TriggerFeedback"_s).empty();
  }));
  EXPECT_EQ(server.calls(u"TriggerFeedback"_s)[0].signature(), u"ssa{sv}i"_s);
}

TEST_F(AppearanceTest, FollowsWhatThePersonAskedOfTheDesktop) {
  BusDouble portal(desktop, TestBus::session, u"org.freedesktop.portal.Desktop"_s);
  const auto boxed = [](const QVariant& value) { return QVariant::fromValue(QDBusVariant(value)); };
  // A text where only one desktop has one.
  portal.answer(u"Read"_s,
                [boxed](const QDBusMessage&) { return QVariantList{boxed(boxed(QVariant(u"0"_s)))}; });
  const DesktopAppearance desktopAppearance(ownSessionBus, std::make_shared<DesktopPortal>(ownSessionBus),
                                            {});
  const auto looks = [&] { return desktopAppearance.appearance().get(); };
  EXPECT_EQ(looks(), Appearance{});
  ASSERT_TRUE(runUntil([&] { return looks().reducedMotion; }));
  const char* gnome = "org.gnome.desktop.interface";
  const char* free = "org.freedesktop.appearance";
  constexpr auto none = std::nullopt;
  // The setting, its value, and dark, high contrast, reduced motion, scale of texts.
  const std::tuple<const char*, const char*, QVariant, std::optional<Appearance>> changes[] = {
      {gnome, "AnimationDurationFactor", 3, {}},  // not its word
      {"org.kde.kdeglobals.KDE", "AnimationDurationFactor", 0.5, {{none, false, false, none}}},
      {gnome, "enable-animations", false, {{none, false, true, none}}},
      {gnome, "enable-animations", true, {{none, false, false, none}}},
      {free, "reduced-motion", 1U, {{none, false, true, none}}},
      {free, "contrast", 1U, {{none, true, true, none}}},
      {gnome, "text-scaling-factor", 1.5, {}},
      {free, "color-scheme", 1U, {{true, true, true, 1.5}}},
      {gnome, "text-scaling-factor", -1.0, {}},
      {free, "color-scheme", 7U, {{none, true, true, 1.5}}},
      {free, "contrast", 0U, {{none, false, true, 1.5}}},
      {gnome, "gtk-theme", u"HighContrast"_s, {{none, true, true, 1.5}}},
      {gnome, "gtk-theme", u"HighContrastInverse"_s, {{true, true, true, 1.5}}},
      {gnome, "gtk-theme", u"Adwaita"_s, {{none, false, true, 1.5}}},
      {"org.gnome.desktop.a11y.interface", "high-contrast", true, {{none, true, true, 1.5}}}};
  for (const auto& [space, key, value, expected] : changes) {
    portal.emitSignal(u"/org/freedesktop/portal/desktop"_s, u"org.freedesktop.portal.Settings"_s,
                      u"SettingChanged"_s,
                      {QString::fromLatin1(space), QString::fromLatin1(key), boxed(value)});
    EXPECT_TRUE(!expected || runUntil([&, &wanted = expected] { return looks() == *wanted; })) << key;
  }
}

// As dconf wrote it. Under /org/gnome/desktop are interface/color-scheme 'prefer-dark', gtk-theme 'Arc-Dark',
// text-scaling-factor 1.5 and enable-animations false, a11y/interface/high-contrast true, and input sources.
const QByteArray gnomeSettings = QByteArray::fromBase64(
    "R1ZhcmlhbnQAAAAAAAAAABgAAACoAQAAAAAAKA4AAAAAAAAAAwAAAAQAAAAGAAAABgAAAAcAAAAIAAAACQAAAAkA"
    "AAAJAAAACgAAAAoAAAAMAAAADAAAAMB/Xz4NAAAAqAEAABEAdgDAAQAAwwEAAEQCM1EGAAAAwwEAAAoATADQAQAA"
    "1AEAAPi7cr4NAAAA1AEAABMAdgDoAQAA8gEAAEtQkAsEAAAA8gEAAAQATAD4AQAA/AEAANS1AgD//////AEAAAEA"
    "TAAAAgAABAIAAJpHt5YNAAAABAIAAAwAdgAQAgAAHgIAAATsMzUKAAAAHgIAAAUATAAkAgAAKAIAAJ8JhzMNAAAA"
    "KAIAAAkAdgA4AgAAQwIAALC3JDADAAAAQwIAAAYATABMAgAAUAIAAE1FxbMMAAAAUAIAAAcAdgBYAgAAZwIAALmI"
    "/doIAAAAZwIAAAgATABwAgAAfAIAAB/jeokBAAAAfAIAAA0AdgCQAgAAkwIAAClcnnIKAAAAkwIAAA4ATACkAgAA"
    "qAIAADnFO08KAAAAqAIAAAoATAC0AgAAxAIAAGVuYWJsZS1hbmltYXRpb25zAAAAAAAAAAAAYmludGVyZmFjZS8A"
    "AAALAAAAdGV4dC1zY2FsaW5nLWZhY3RvcgAAAAAAAAD4PwBkb3JnLwAACAAAAC8AAAADAAAAY29sb3Itc2NoZW1l"
    "cHJlZmVyLWRhcmsAAHNhMTF5LwABAAAAZ3RrLXRoZW1lAAAAAAAAAEFyYy1EYXJrAABzZ25vbWUvAAAACgAAAHNv"
    "dXJjZXMAeGtiAGZyAAQIAGEoc3MpZGVza3RvcC8ABgAAAAwAAAANAAAAaGlnaC1jb250cmFzdAAAAAAAAAABAGJp"
    "bnB1dC1zb3VyY2VzLwAAAAkAAABpbnRlcmZhY2UvAAAFAAAAAAAAAAcAAAACAAAA");

TEST(DconfFile, IsReadWholeOrDamaged) {
  const QString interface = u"/org/gnome/desktop/interface/"_s;
  const QVariantMap expected{{u"/org/gnome/desktop/a11y/interface/high-contrast"_s, true},
                             {interface + u"color-scheme"_s, u"prefer-dark"_s},
                             {interface + u"enable-animations"_s, false},
                             {interface + u"gtk-theme"_s, u"Arc-Dark"_s},
                             {interface + u"text-scaling-factor"_s, 1.5}};
  EXPECT_EQ(readDconf(gnomeSettings), expected);
  for (qsizetype size = 0; size < gnomeSettings.size(); ++size) {
    EXPECT_LE(readDconf(gnomeSettings.first(size)).size(), 5);
    for (const char damage : {'\0', '\x01', '\x7f', '\xff'}) {
      QByteArray damaged = gnomeSettings;
      damaged[size] = damage;
      EXPECT_LE(readDconf(damaged).size(), 14) << size;
    }
  }
}

TEST_F(AppearanceTest, IsReadFromTheSettingsWhileNoPortalTells) {
  const std::filesystem::path file = desktop.runtimeFolder() / "config" / "dconf" / "user";
  const DesktopAppearance desktopAppearance(ownSessionBus, std::make_shared<DesktopPortal>(ownSessionBus),
                                            file);
  const auto looks = [&] { return desktopAppearance.appearance().get(); };
  const auto write = [&](const QByteArray& bytes) {
    std::filesystem::create_directories(file.parent_path());
    EXPECT_EQ(replaceFile(file, bytes), std::nullopt);
  };
  EXPECT_EQ(looks(), Appearance{});
  write(gnomeSettings);
  EXPECT_TRUE(runUntil([&] { return looks() == Appearance{true, true, true, 1.5}; })) << "a new folder";
  // Of the same length: everything else stays where it is.
  QByteArray changed = gnomeSettings;
  write(changed.replace("Arc-Dark", "Arc-Grey"));
  EXPECT_TRUE(runUntil([&] { return looks().dark == true; })) << "by the wish alone";
  write(changed.replace("prefer-dark", "noprefer..."));
  EXPECT_TRUE(runUntil([&] { return looks().dark == std::nullopt; }));
  write(changed.replace("Arc-Grey", "Arc-Dark"));
  EXPECT_TRUE(runUntil([&] { return looks().dark == true; })) << "by the theme alone";
  BusDouble portal(desktop, TestBus::session, u"org.freedesktop.portal.Desktop"_s);
  portal.answer(u"Read"_s, [](const QDBusMessage&) {
    const QVariant value = QVariant::fromValue(QDBusVariant(1U));
    return QVariantList{QVariant::fromValue(QDBusVariant(value))};
  });
  EXPECT_TRUE(runUntil([&] { return looks() == Appearance{true, true, true, 1.5}; }));
}

TEST_F(AppearanceTest, XfceTellsTheThemeAlone) {
  ::setenv("XDG_CURRENT_DESKTOP", "XFCE", 1);
  BusDouble xfconf(desktop, TestBus::session, u"org.xfce.Xfconf"_s);
  const auto boxed = [](const char* value) {
    return QVariant::fromValue(QDBusVariant(QString::fromUtf8(value)));
  };
  xfconf.answer(u"GetProperty"_s, [boxed](const QDBusMessage& call) {
    EXPECT_EQ(call.arguments(), (QVariantList{u"xsettings"_s, u"/Net/ThemeName"_s}));
    return QVariantList{boxed("Greybird-dark")};
  });
  const DesktopAppearance desktopAppearance(ownSessionBus, std::make_shared<DesktopPortal>(ownSessionBus),
                                            {});
  ::unsetenv("XDG_CURRENT_DESKTOP");
  const auto looks = [&] { return desktopAppearance.appearance().get(); };
  EXPECT_TRUE(runUntil([&] { return looks().dark == true; }));
  const std::tuple<const char*, const char*, std::optional<bool>, bool> changes[] = {
      {"/Net/ThemeName", "Greybird", {}, false},
      {"/Net/IconThemeName", "elementary-dark", {}, false},
      {"/Net/ThemeName", "HighContrastInverse", true, true},
      {"/Net/ThemeName", "Arc-Darker", {}, false},
      {"/Net/ThemeName", "Adwaita-dark", true, false}};
  for (const auto& [property, theme, dark, contrast] : changes) {
    xfconf.emitSignal(u"/org/xfce/Xfconf"_s, u"org.xfce.Xfconf"_s, u"PropertyChanged"_s,
                      {u"xsettings"_s, QString::fromUtf8(property), boxed(theme)});
    EXPECT_TRUE(runUntil([&, &wanted = dark, &high = contrast] {
      return looks().dark == wanted && looks().highContrast == high;
    })) << theme;
  }
}

struct KeyMonitorTest : EventDesk {
  std::unique_ptr<DesktopKeyMonitor> monitor() {
    return std::make_unique<DesktopKeyMonitor>(
        DesktopKeyMonitor::Parts{loop,
                                 std::make_shared<DesktopPortal>(ownSessionBus),
                                 defaults,
                                 displays,
                                 session,
                                 {"Désactiver la protection", "Couvrir"}});
  }
  void press(const char* keys) { desktop.run("xdotool", {"key", keys}); }

  std::shared_ptr<FakeSessionEvents> session = std::make_shared<FakeSessionEvents>(loop);
  std::shared_ptr<MemoryUserDefaults> defaults = std::make_shared<MemoryUserDefaults>();
  int presses = 0;
};

TEST_F(KeyMonitorTest, ObservesTheShortcutOnX11) {
  const auto keys = monitor();
  ASSERT_TRUE(runUntil([&] { return keys->canObserve(Shortcut::toggle); }));
  Registration observing = keys->observe(Shortcut::toggle, [&] { ++presses; });
  // The observer begins on another thread: pressed again until it is heard.
  ASSERT_TRUE(runUntil([&] {
    if (presses == 0) press("super+shift+c");
    return presses > 0;
  }));
  for (const char* other : {"c", "shift+c", "super+c", "super+shift+x", "ctrl+shift+c"}) press(other);
  int covers = 0;
  Registration covering = keys->observe(Shortcut::cover, [&] { ++covers; });
  press("super+shift+v");
  EXPECT_TRUE(runUntil([&] { return covers == 1; }));
  covering.reset();
  press("super+shift+v");
  session->isAway = true;
  press("super+shift+c");
  ASSERT_TRUE(runUntil([&] { return true; }));
  const int before = presses;
  desktop.run("setxkbmap", {"us", "-variant", "dvorak"});
  session->isAway = false;
  press("super+shift+alt+c");
  EXPECT_TRUE(runUntil([&] { return presses > before; })) << "further modifiers do not matter";
  press("super+shift+i");  // where C is on another keyboard
  press("super+shift+c");
  EXPECT_TRUE(runUntil([&] { return presses >= before + 2; }));
  EXPECT_EQ(presses, before + 2);
  desktop.run("setxkbmap", {"us"});
}

/// What reaches the program that has the focus.
TEST_F(KeyMonitorTest, TakesItsKeysFromOthersUnlessTheyHaveGrabbedThem) {
  const auto other = desktop.spawn("stdbuf", {"-oL", "xev", "-event", "keyboard", "-name", "other"});
  desktop.run("xdotool", {"search", "--sync", "--onlyvisible", "--name", "other", "windowfocus", "--sync"});
  const auto typed = [&](const char* letter) {
    const auto lines = QByteArray::fromStdString(other.output()).split('\n');
    return std::ranges::count_if(lines, [&](const QByteArray& line) {
      return line.contains(QByteArray(", ") + letter + "), same_screen");
    });
  };
  // By its press; Shift is let go before the letter. A last key shows that all before have arrived.
  int markers = 0;
  const auto typedAfter = [&](const char* keys, const char* letter) {
    const auto before = typed(letter);
    press(keys);
    press("F5");
    ++markers;
    EXPECT_TRUE(runUntil([&] { return typed("F5") == 2 * markers; }));
    return typed(letter) - before;
  };
  const auto keys = monitor();
  EXPECT_EQ(typedAfter("super+shift+c", "C"), 1) << "nobody observes";
  Registration observing = keys->observe(Shortcut::toggle, [&] { ++presses; });
  ASSERT_TRUE(runUntil([&] { return typedAfter("super+shift+c", "C") == 0; }));
  for (const char* lock : {"Caps_Lock", "Num_Lock"}) {
    press(lock);
    const int before = presses;
    EXPECT_EQ(typedAfter("super+shift+c", "C") + typedAfter("super+shift+c", "c"), 0) << lock;
    EXPECT_TRUE(runUntil([&] { return presses == before + 2; })) << lock;
    press(lock);
  }
  EXPECT_EQ(typedAfter("shift+c", "C"), 1) << "another key";
  EXPECT_EQ(typedAfter("super+shift+v", "V"), 1) << "the shortcut that nobody observes";
  desktop.run("setxkbmap", {"us", "-variant", "dvorak"});
  ASSERT_TRUE(runUntil([&] { return typedAfter("super+shift+c", "C") == 0; }));
  desktop.run("setxkbmap", {"us"});
  observing.reset();
  ASSERT_TRUE(runUntil([&] { return typedAfter("super+shift+c", "C") == 1; })) << "given back";

  // Somebody has the keys already: both hear of a press.
  const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> rival(xcb_connect(nullptr, nullptr),
                                                                           &xcb_disconnect);
  const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(rival.get())).data->root;
  constexpr xcb_keycode_t keyOfC = 54;
  xcb_grab_key(rival.get(), 1, root, XCB_MOD_MASK_ANY, keyOfC, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
  std::free(xcb_get_input_focus_reply(rival.get(), xcb_get_input_focus(rival.get()), nullptr));
  observing = keys->observe(Shortcut::toggle, [&] { ++presses; });
  presses = 0;
  int rivalPresses = 0;
  ASSERT_TRUE(runUntil([&] {
    if (presses == 0) press("super+shift+c");
    while (xcb_generic_event_t* event = xcb_poll_for_event(rival.get())) {
      if ((event->response_type & 0x7FU) == XCB_KEY_PRESS) ++rivalPresses;
      std::free(event);
    }
    return presses > 0 && rivalPresses > 0;
  }));
}

/// A desktop whose portal binds shortcuts; it keeps what the person has given.
class ShortcutsPortal {
 public:
  /// How desktops differ.
  struct Ways {
    const char* name;
    bool listsUnbound;      ///< what was bound in an earlier session
    bool bindTells = true;  ///< what it has bound, in the answer
    bool bindsAlways;       ///< and nothing is heard of what was not bound in this session
    unsigned version;
    const char* words = "Meta+Shift+%1";
    const char* shown = "⌘⇧C";
  };

  ShortcutsPortal(const HeadlessDesktop& desktop, Ways ways)
      : service(desktop, TestBus::session, u"org.freedesktop.portal.Desktop"_s), ways_(ways) {
    qDBusRegisterMetaType<BoundShortcut>();
    qDBusRegisterMetaType<QList<BoundShortcut>>();
    service.answer(u"Register"_s, [](const QDBusMessage&) { return QVariantList(); });
    service.answer(u"Close"_s, [](const QDBusMessage&) { return QVariantList(); });
    service.answer(u"Get"_s, [this](const QDBusMessage&) {
      return QVariantList{QVariant::fromValue(QDBusVariant(ways_.version))};
    });
    service.answer(u"CreateSession"_s, [this](const QDBusMessage& call) {
      bound.clear();
      session = QDBusObjectPath(path + u"/session/1/"_s + option(call, u"session_handle_token"_s));
      return respond(call, {{u"session_handle"_s, session.path()}});
    });
    service.answer(u"ListShortcuts"_s, [this](const QDBusMessage& call) {
      return respond(call, {{u"shortcuts"_s, listed(ways_.listsUnbound ? given : bound)}});
    });
    service.answer(u"BindShortcuts"_s, [this](const QDBusMessage& call) {
      bound.clear();
      for (const auto& shortcut : qdbus_cast<QList<BoundShortcut>>(call.arguments().at(1))) {
        if (!given.contains(shortcut.id)) {
          ++questions;
          if (!grants) continue;
          given[shortcut.id] =
              QString::fromUtf8(ways_.words).arg(QChar(shortcut.id == u"toggle"_s ? u'C' : u'V'));
        }
        bound[shortcut.id] = given[shortcut.id];
      }
      const QVariantMap told{{u"shortcuts"_s, listed(bound)}};
      return respond(call, ways_.bindTells ? told : QVariantMap(), bound.isEmpty() ? 1U : 0U);
    });
  }

  void activate(const QDBusObjectPath& handle, const QString& id) {
    service.emitSignal(path, u"org.freedesktop.portal.GlobalShortcuts"_s, u"Activated"_s,
                       {QVariant::fromValue(handle), id, qulonglong{1}, QVariantMap()});
  }
  void change(const QString& id, const QString& words) {
    given[id] = words;
    service.emitSignal(path, u"org.freedesktop.portal.GlobalShortcuts"_s, u"ShortcutsChanged"_s,
                       {QVariant::fromValue(session), listed(given)});
  }
  [[nodiscard]] std::size_t calls(const char* member) const {
    return service.calls(QString::fromLatin1(member)).size();
  }

  const QString path = u"/org/freedesktop/portal/desktop"_s;
  BusDouble service;
  QDBusObjectPath session;
  QMap<QString, QString> given;  ///< by the person, with their keys
  QMap<QString, QString> bound;  ///< in the session
  bool grants = true;
  int questions = 0;  ///< to the person

 private:
  static QString option(const QDBusMessage& call, const QString& name) {
    return qdbus_cast<QVariantMap>(call.arguments().constLast()).value(name).toString();
  }
  static QVariant listed(const QMap<QString, QString>& shortcuts) {
    QList<BoundShortcut> list;
    for (const auto& [id, words] : shortcuts.asKeyValueRange())
      list.push_back({id, {{u"trigger_description"_s, words}}});
    return QVariant::fromValue(list);
  }
  /// Each request is answered by a signal of its own object, as the portal does.
  QVariantList respond(const QDBusMessage& call, const QVariantMap& results, uint refused = 0) {
    QString sender = call.service().mid(1);
    sender.replace(u'.', u'_');
    const QString request = u"%1/request/%2/%3"_s.arg(path, sender, option(call, u"handle_token"_s));
    service.emitSignal(request, u"org.freedesktop.portal.Request"_s, u"Response"_s, {refused, results});
    return {QVariant::fromValue(QDBusObjectPath(request))};
  }

  const Ways ways_;
};

TEST_F(KeyMonitorTest, AsksThePersonOnceAndIsBoundAtEveryStart) {
  ::setenv("WAYLAND_DISPLAY", "wayland-none", 1);
  const ShortcutsPortal::Ways desktops[] = {
      {.name = "Plasma", .listsUnbound = true, .bindsAlways = false, .version = 1},
      {.name = "newer Plasma", .listsUnbound = true, .bindTells = false, .bindsAlways = true, .version = 2},
      {.name = "GNOME",
       .listsUnbound = false,
       .bindsAlways = true,
       .version = 1,
       .words = "Press <Shift><Super>%1"},
      {.name = "others",
       .listsUnbound = true,
       .bindsAlways = false,
       .version = 1,
       .words = "Ctrl+Alt+%1",
       .shown = "Ctrl+Alt+C"},
  };
  for (const auto& ways : desktops) {
    SCOPED_TRACE(ways.name);
    defaults = std::make_shared<MemoryUserDefaults>();
    ShortcutsPortal portal(desktop, ways);
    presses = 0;
    for (unsigned start = 0; start < 3; ++start) {
      const auto keys = monitor();
      const Registration observing = keys->observe(Shortcut::toggle, [&] { ++presses; });
      ASSERT_TRUE(runUntil([&] { return keys->canObserve(Shortcut::toggle); })) << start;
      EXPECT_EQ(keys->grant(Shortcut::toggle).keys, ways.shown);
      portal.activate(QDBusObjectPath(u"/somebody/else"_s), u"toggle"_s);
      portal.activate(portal.session, u"cover"_s);
      portal.activate(portal.session, u"toggle"_s);
      ASSERT_TRUE(runUntil([&] { return presses == static_cast<int>(start) + 1; }));
      EXPECT_EQ(portal.questions, 1);
      EXPECT_EQ(portal.calls("BindShortcuts"), ways.bindsAlways ? start + 1U : 1U) << "a window may open";
      EXPECT_EQ(portal.calls("Register"), start + 1U);
    }
    // The other one comes to it, and both are heard.
    const auto keys = monitor();
    const Registration observing = keys->observe(Shortcut::toggle, [&] { ++presses; });
    ASSERT_TRUE(runUntil([&] { return keys->canObserve(Shortcut::toggle); }));
    int covers = 0;
    const Registration covering = keys->observe(Shortcut::cover, [&] { ++covers; });
    ASSERT_TRUE(
        runUntil([&] { return keys->canObserve(Shortcut::cover) && keys->canObserve(Shortcut::toggle); }));
    EXPECT_EQ(portal.bound.size(), 2);
    portal.activate(portal.session, u"toggle"_s);
    portal.activate(portal.session, u"cover"_s);
    EXPECT_TRUE(runUntil([&] { return covers == 1 && presses == 4; }));
    portal.change(u"toggle"_s, u"F8"_s);
    EXPECT_TRUE(runUntil([&] { return keys->grant(Shortcut::toggle).keys == "F8"; }));
    portal.change(u"toggle"_s, QString());
    EXPECT_TRUE(runUntil([&] { return !keys->canObserve(Shortcut::toggle); })) << "no key is left";
  }
}

TEST_F(KeyMonitorTest, WhoDeclinesAShortcutIsAskedAgainOnlyAfterSwitchingItOff) {
  ::setenv("WAYLAND_DISPLAY", "wayland-none", 1);
  ShortcutsPortal portal(desktop, {.name = "", .listsUnbound = true, .bindsAlways = false, .version = 1});
  portal.grants = false;
  const auto isRefused = [](const DesktopKeyMonitor& keys) {
    return keys.grant(Shortcut::toggle).kind == ShortcutGrant::Kind::refused;
  };
  for (int start = 0; start < 2; ++start) {
    const auto keys = monitor();
    const Registration observing = keys->observe(Shortcut::toggle, [] {});
    ASSERT_TRUE(runUntil([&] { return isRefused(*keys); }));
    EXPECT_EQ(portal.questions, 1);
  }
  portal.grants = true;
  const auto keys = monitor();
  Registration observing = keys->observe(Shortcut::toggle, [] {});
  ASSERT_TRUE(runUntil([&] { return isRefused(*keys); }));
  observing.reset();
  keys->forget(Shortcut::toggle);
  observing = keys->observe(Shortcut::toggle, [] {});
  EXPECT_TRUE(runUntil([&] { return keys->canObserve(Shortcut::toggle); }));
}

/// Who asks it anything before it knows the program is nobody to it.
TEST_F(KeyMonitorTest, ThePortalHearsFirstWhoAsks) {
  ::setenv("WAYLAND_DISPLAY", "wayland-none", 1);
  ShortcutsPortal portal(desktop, {.name = "", .listsUnbound = true, .bindsAlways = false, .version = 1});
  portal.service.keep(u"Register"_s);
  portal.service.answer(u"Read"_s, [](const QDBusMessage&) { return QVariantList(); });
  const auto shared = std::make_shared<DesktopPortal>(ownSessionBus);
  const DesktopAppearance appearance(ownSessionBus, shared, {});
  DesktopKeyMonitor keys({loop, shared, defaults, displays, session, {"", ""}});
  const Registration observing = keys.observe(Shortcut::toggle, [] {});
  ASSERT_TRUE(runUntilCalls(portal.service, "Register", 1));
  EXPECT_EQ(portal.calls("Read") + portal.calls("CreateSession"), 0U);
  const QDBusMessage call = portal.service.calls(u"Register"_s)[0];
  EXPECT_EQ(call.arguments().at(0).toString(), u"expert.mardeck.sentrel"_s);
  portal.service.reply(call, {});
  EXPECT_TRUE(runUntilCalls(portal.service, "Read", 1));
  EXPECT_TRUE(runUntilCalls(portal.service, "CreateSession", 1));
  EXPECT_EQ(portal.calls("Register"), 1U);
}

}  // namespace
}  // namespace sentrel::test
