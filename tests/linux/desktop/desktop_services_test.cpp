// SPDX-License-Identifier: Apache-2.0
#include <QByteArray>
#include <QDBusMetaType>
#include <algorithm>
#include <array>
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
const auto portalName = u"org.freedesktop.portal.Desktop"_s;
const auto portalPath = u"/org/freedesktop/portal/desktop"_s;
const NotificationContent content{"Titre", "Texte"};

struct NotificationsTest : EventDesk {
  /// A server that numbers what it shows from `first` on.
  std::unique_ptr<BusDouble> serve(uint first) {
    auto server = std::make_unique<BusDouble>(desktop, TestBus::session, notifications);
    server->answer(u"Notify"_s, [next = first](const QDBusMessage& call) mutable {
      const uint replaced = call.arguments().at(1).toUInt();
      return QVariantList{replaced != 0 ? replaced : next++};
    });
    for (const auto& member : {u"GetServerInformation"_s, u"CloseNotification"_s, u"UnInhibit"_s})
      server->answer(member, always({}));
    return server;
  }
  static void setInhibited(BusDouble& server, bool inhibited) {
    server.emitSignal(notificationsPath, u"org.freedesktop.DBus.Properties"_s, u"PropertiesChanged"_s,
                      {notifications, QVariantMap{{u"Inhibited"_s, inhibited}}, QStringList()});
  }
  DesktopNotifications centre{loop, ownSessionBus};
};

TEST_F(NotificationsTest, AreReplacedWithdrawnAndChosen) {
  std::vector<bool> granted;
  const auto ask = [&] { centre.requestAuthorization([&](bool given) { granted.push_back(given); }); };
  ask();
  EXPECT_TRUE(granted.empty()) << "in a later turn";
  ASSERT_TRUE(runUntil([&] { return !granted.empty(); }));
  EXPECT_FALSE(granted[0]) << "nobody serves";
  auto server = serve(7);
  ASSERT_TRUE(runUntil([&] {
    ask();
    return granted.back();
  }));
  centre.add("a", content);
  ASSERT_TRUE(runUntilCalls(*server, "Notify", 1));
  const auto hints = qdbus_cast<QVariantMap>(server->calls(u"Notify"_s)[0].arguments().at(6));
  EXPECT_EQ(hints.value(u"urgency"_s).toInt(), 2);
  EXPECT_TRUE(hints.contains(u"sound-name"_s));
  centre.add("a", content);
  centre.remove("a");
  centre.add("a", {.title = "Titre", .body = "Texte", .actions = {{"one", "Un"}, {"two", "Deux"}}});
  ASSERT_TRUE(runUntilCalls(*server, "Notify", 2));

  std::vector<std::string> chosen;
  std::vector<std::string> answers;
  const auto watch = centre.chosen.connect([&](const std::string& id) { chosen.push_back(id); });
  const auto hear = centre.answered.connect(
      [&](const std::string& id, const std::string& action) { answers.push_back(id + ' ' + action); });
  // Another process speaks as the server, which has the name; then the server makes actions up. All of it is
  // sent until the last one is known to be shown.
  BusDouble stranger(desktop, TestBus::session, u"org.example.Stranger"_s);
  const auto tell = [](BusDouble& teller, const QVariant& number, const QString& action) {
    teller.emitSignal(notificationsPath, notifications, u"ActionInvoked"_s, {number, action});
  };
  ASSERT_TRUE(runUntil([&] {
    for (const uint number : {99U, 0U, 7U, 8U}) {
      tell(stranger, number, u"one"_s);
      for (const auto& action : {u"three"_s, u""_s, u"one "_s, u"two"_s, u"default"_s})
        tell(*server, number, action);
    }
    tell(*server, u"7"_s, u"one"_s);
    return !chosen.empty() && !answers.empty();
  }));
  EXPECT_THAT(chosen, testing::Each("a"));
  EXPECT_THAT(answers, testing::Each("a two"));
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

TEST_F(NotificationsTest, AServerThatIsQuietHangsOrGoesIsNotHeard) {
  const auto becomes = [&](bool heard) { return runUntil([&] { return centre.isHeard() == heard; }); };
  EXPECT_FALSE(centre.isHeard()) << "nobody serves";
  auto server = serve(7);
  EXPECT_TRUE(becomes(true));
  for (const bool inhibited : {true, false}) {
    setInhibited(*server, inhibited);
    EXPECT_TRUE(becomes(!inhibited));
  }
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
    bool closesFirst;     // before the answer
    bool hides, stillCan;
    std::size_t ended;  // inhibitions that we have ended
  } cases[] = {
      {"hidden for as long as wanted", {u"body"_s, u"inhibitions"_s}, {5U}, 0, false, true, true, 1},
      {"the person has read ours", {u"inhibitions"_s}, {5U}, 2, false, true, true, 1},
      {"ours was hidden as well", {u"inhibitions"_s}, {5U}, 1, false, true, false, 1},
      {"and that before it answered", {u"inhibitions"_s}, {5U}, 1, true, true, false, 1},
      {"refused in the end", {u"inhibitions"_s}, {u"garbage"_s}, 0, false, true, false, 0},
      {"a server that cannot", {u"body"_s}, {5U}, 0, false, false, false, 0},
  };
  for (const auto& [what, abilities, answer, closedFor, closesFirst, hides, stillCan, ended] : cases) {
    SCOPED_TRACE(what);
    auto server = serve(7);
    server->answer(u"GetCapabilities"_s, always({abilities}));
    const auto closeOurs = [&] {
      server->emitSignal(notificationsPath, notifications, u"NotificationClosed"_s, {7U, closedFor});
    };
    server->answer(u"Inhibit"_s, [&](const QDBusMessage&) {
      if (closesFirst) closeOurs();
      return answer;
    });
    ASSERT_TRUE(runUntilCalls(*server, "GetCapabilities", 1));
    centre.add("alert", content);
    ASSERT_TRUE(runUntilCalls(*server, "Notify", 1));
    ASSERT_TRUE(runUntil([&] { return centre.canHideOthers() == hides; }));

    Registration hidden = centre.hideOthers();
    EXPECT_EQ(static_cast<bool>(hidden), hides);
    if (hides) {
      ASSERT_TRUE(runUntilCalls(*server, "Inhibit", 1));
      EXPECT_EQ(server->calls(u"Inhibit"_s)[0].arguments().at(0), u"expert.mardeck.sentrel"_s);
      EXPECT_FALSE(centre.hideOthers()) << "once at a time";
      EXPECT_TRUE(centre.isHeard());
    }
    if (closedFor != 0 && !closesFirst) closeOurs();
    // The second is asked for once the first was answered, which was after all that was told before.
    for (const std::size_t count : {2U, 3U}) {
      centre.add("other", content);
      ASSERT_TRUE(runUntilCalls(*server, "Notify", count));
    }
    EXPECT_EQ(centre.canHideOthers(), stillCan);
    hidden.reset();
    ASSERT_TRUE(runUntilCalls(*server, "UnInhibit", ended));
    for (const QDBusMessage& call : server->calls(u"UnInhibit"_s)) EXPECT_EQ(call.arguments().at(0), 5U);
    server.reset();
    ASSERT_TRUE(runUntil([&] { return !centre.isHeard(); }));
    EXPECT_FALSE(centre.canHideOthers()) << "nobody serves";
    for (const char* shown : {"alert", "other"}) centre.remove(shown);
  }
}

TEST_F(NotificationsTest, ARefusalThatComesLateLeavesNoQuietOfOurs) {
  auto server = serve(7);
  server->answer(u"GetCapabilities"_s, always({QStringList{u"inhibitions"_s}}));
  server->keep(u"Inhibit"_s);
  ASSERT_TRUE(runUntil([&] { return centre.canHideOthers().get(); }));
  centre.hideOthers().reset();
  ASSERT_TRUE(runUntilCalls(*server, "Inhibit", 1));
  server->reply(server->calls(u"Inhibit"_s)[0], {u"garbage"_s});
  ASSERT_TRUE(runUntil([&] { return !centre.canHideOthers(); }));
  setInhibited(*server, true);
  EXPECT_TRUE(runUntil([&] { return !centre.isHeard(); })) << "the person wants it quiet";
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

using HapticsTest = EventDesk;

TEST_F(HapticsTest, AreAskedOfWhoeverServesThem) {
  FeedbackdHaptics haptics(ownSessionBus);
  haptics.perform();  // nobody there
  const auto feedback = u"org.sigxcpu.Feedback"_s;
  BusDouble server(desktop, TestBus::session, feedback);
  server.answer(u"TriggerFeedback"_s, always({1U}));
  ASSERT_TRUE(runUntil([&] {
    haptics.perform();
    return !server.calls(u"TriggerFeedback"_s).empty();
  }));
  EXPECT_EQ(server.calls(u"TriggerFeedback"_s)[0].signature(), u"ssa{sv}i"_s);
}

struct AppearanceTest : EventDesk {
  [[nodiscard]] DesktopAppearance follow(const std::filesystem::path& settings = {}) {
    return DesktopAppearance(ownSessionBus, std::make_shared<DesktopPortal>(ownSessionBus), settings);
  }
  /// Waits until the desktop is dark, of high contrast, with less movement, and with texts of this size.
  [[nodiscard]] bool becomes(const DesktopAppearance& look, const Appearance& wanted) {
    return runUntil([&] { return look.appearance() == wanted; });
  }
  static constexpr auto none = std::nullopt;
};

TEST_F(AppearanceTest, FollowsWhatThePersonAskedOfTheDesktop) {
  BusDouble portal(desktop, TestBus::session, portalName);
  portal.answer(u"Read"_s, always({boxed(boxed(u"0"_s))}));  // a text where only one desktop has one
  const DesktopAppearance look = follow();
  EXPECT_EQ(look.appearance(), Appearance{});
  ASSERT_TRUE(runUntil([&] { return look.appearance().get().reducedMotion; }));
  const char* gnome = "org.gnome.desktop.interface";
  const char* free = "org.freedesktop.appearance";
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
      {gnome, "gtk-theme", u"HighContrastInverse"_s, {{true, true, true, 1.5}}},
      {gnome, "gtk-theme", u"Arc-Darker"_s, {{none, false, true, 1.5}}},
      {"org.gnome.desktop.a11y.interface", "high-contrast", true, {{none, true, true, 1.5}}}};
  for (const auto& [space, key, value, expected] : changes) {
    portal.emitSignal(portalPath, u"org.freedesktop.portal.Settings"_s, u"SettingChanged"_s,
                      {QString::fromLatin1(space), QString::fromLatin1(key), boxed(value)});
    EXPECT_TRUE(!expected || becomes(look, *expected)) << key;
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

TEST(DconfFile, OutlivesAnyDamage) {
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
  const DesktopAppearance look = follow(file);
  const auto write = [&](const QByteArray& bytes) {
    std::filesystem::create_directories(file.parent_path());
    EXPECT_EQ(replaceFile(file, bytes), std::nullopt);
  };
  EXPECT_EQ(look.appearance(), Appearance{});
  // Changed to something of the same length: everything else stays where it is.
  QByteArray settings = gnomeSettings;
  const std::tuple<const char*, const char*, std::optional<bool>> changes[] = {
      {"", "", true},
      {"Arc-Dark", "Arc-Grey", true},  // by the wish alone
      {"prefer-dark", "noprefer...", none},
      {"Arc-Grey", "Arc-Dark", true}};  // by the theme alone
  for (const auto& [former, next, dark] : changes) {
    write(*former == '\0' ? settings : settings.replace(former, next));
    EXPECT_TRUE(becomes(look, {dark, true, true, 1.5})) << next;
  }
  settings.replace("Arc-Dark", "Arc-Grey");
  write(settings);
  ASSERT_TRUE(becomes(look, {none, true, true, 1.5}));
  BusDouble portal(desktop, TestBus::session, portalName);
  portal.answer(u"Read"_s, always({boxed(boxed(1U))}));
  EXPECT_TRUE(becomes(look, {true, true, true, 1.5}));
}

TEST_F(AppearanceTest, XfceTellsTheThemeAlone) {
  ::setenv("XDG_CURRENT_DESKTOP", "XFCE", 1);
  BusDouble xfconf(desktop, TestBus::session, u"org.xfce.Xfconf"_s);
  xfconf.answer(u"GetProperty"_s, [](const QDBusMessage& call) {
    EXPECT_EQ(call.arguments(), (QVariantList{u"xsettings"_s, u"/Net/ThemeName"_s}));
    return QVariantList{boxed(u"Greybird-dark"_s)};
  });
  const DesktopAppearance look = follow();
  ::unsetenv("XDG_CURRENT_DESKTOP");
  EXPECT_TRUE(becomes(look, {true, false, false, none}));
  const std::tuple<QString, QString, Appearance> changes[] = {
      {u"ThemeName"_s, u"Greybird"_s, {none, false, false, none}},
      {u"IconThemeName"_s, u"elementary-dark"_s, {none, false, false, none}},
      {u"ThemeName"_s, u"HighContrastInverse"_s, {true, true, false, none}}};
  for (const auto& [property, theme, wanted] : changes) {
    xfconf.emitSignal(u"/org/xfce/Xfconf"_s, u"org.xfce.Xfconf"_s, u"PropertyChanged"_s,
                      {u"xsettings"_s, u"/Net/"_s + property, boxed(theme)});
    EXPECT_TRUE(becomes(look, wanted)) << theme.toStdString();
  }
}

struct KeyMonitorTest : EventDesk {
  std::unique_ptr<DesktopKeyMonitor> monitor() {
    return monitorOn(std::make_shared<DesktopPortal>(ownSessionBus));
  }
  std::unique_ptr<DesktopKeyMonitor> monitorOn(const std::shared_ptr<DesktopPortal>& portal) {
    const std::array<std::string, 2> texts{"Désactiver la protection", "Couvrir"};
    return std::make_unique<DesktopKeyMonitor>(
        DesktopKeyMonitor::Parts{loop, ownSessionBus, portal, defaults, displays, session, texts});
  }
  [[nodiscard]] Registration observe(DesktopKeyMonitor& keys) {
    return keys.observe(Shortcut::toggle, [this] { ++presses; });
  }
  void press(const char* keys) { desktop.run("xdotool", {"key", keys}); }

  std::shared_ptr<FakeSessionEvents> session = std::make_shared<FakeSessionEvents>(loop);
  std::shared_ptr<MemoryUserDefaults> defaults = std::make_shared<MemoryUserDefaults>();
  int presses = 0;
};

/// What reaches the program that has the focus.
TEST_F(KeyMonitorTest, TakesItsKeysFromOthersOnX11UnlessTheyHaveGrabbedThem) {
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
  const auto isHeard = [&](const char* keys) {
    const int before = presses;
    press(keys);
    return runUntil([&] { return presses == before + 1; });
  };
  const auto keys = monitor();
  ASSERT_TRUE(runUntil([&] { return keys->canObserve(Shortcut::toggle); }));
  EXPECT_EQ(typedAfter("super+shift+c", "C"), 1) << "nobody observes";
  Registration observing = observe(*keys);
  ASSERT_TRUE(runUntil([&] { return typedAfter("super+shift+c", "C") == 0 && presses > 0; }));
  for (const char* lock : {"Caps_Lock", "Num_Lock"}) {
    press(lock);
    EXPECT_EQ(typedAfter("super+shift+c", "C") + typedAfter("super+shift+c", "c"), 0) << lock;
    EXPECT_TRUE(isHeard("super+shift+c")) << lock;
    press(lock);
  }
  for (const char* another : {"c", "shift+c", "super+c", "super+shift+x", "ctrl+shift+c"}) press(another);
  EXPECT_EQ(typedAfter("shift+c", "C"), 1) << "another key";
  EXPECT_EQ(typedAfter("super+shift+v", "V"), 1) << "the shortcut that nobody observes";
  session->isAway = true;
  EXPECT_EQ(typedAfter("super+shift+c", "C"), 0);
  ASSERT_TRUE(runUntil([&] { return true; }));
  session->isAway = false;
  EXPECT_TRUE(isHeard("super+shift+alt+c")) << "nothing of all that, and further modifiers do not matter";
  int covers = 0;
  Registration covering = keys->observe(Shortcut::cover, [&] { ++covers; });
  EXPECT_TRUE(runUntil([&] { return typedAfter("super+shift+v", "V") == 0 && covers > 0; }));
  covering.reset();
  desktop.run("setxkbmap", {"us", "-variant", "dvorak"});
  ASSERT_TRUE(runUntil([&] { return typedAfter("super+shift+c", "C") == 0; }));
  press("super+shift+i");  // where C is on another keyboard
  EXPECT_TRUE(isHeard("super+shift+c"));
  desktop.run("setxkbmap", {"us"});
  observing.reset();
  ASSERT_TRUE(runUntil([&] { return typedAfter("super+shift+c", "C") == 1; })) << "given back";

  // Somebody has the keys already: both hear of a press.
  const auto first = monitor();
  int firstPresses = 0;
  const Registration grabbing = first->observe(Shortcut::toggle, [&] { ++firstPresses; });
  ASSERT_TRUE(runUntil([&] { return typedAfter("super+shift+c", "C") == 0 && firstPresses > 0; }));
  observing = observe(*keys);
  presses = firstPresses = 0;
  EXPECT_TRUE(runUntil([&] {
    if (presses == 0) press("super+shift+c");
    return presses > 0 && firstPresses > 0;
  }));
}

/// As the portal tells what was bound: an identity and its properties.
using BoundShortcut = std::pair<QString, QVariantMap>;

/// How desktops differ in binding shortcuts.
struct ShortcutWays {
  const char* name = "";
  bool listsUnbound = true;  ///< what was bound in an earlier session
  bool bindTells = true;     ///< what it has bound, in the answer
  bool bindsAlways = false;  ///< and nothing is heard of what was not bound in this session
  unsigned version = 1;
  const char* words = "Meta+Shift+%1";
  const char* shown = "⌘⇧C";
};

/// A desktop whose portal binds shortcuts; it keeps what the person has given.
class ShortcutsPortal {
 public:
  explicit ShortcutsPortal(const HeadlessDesktop& desktop, ShortcutWays ways = {})
      : service(desktop, TestBus::session, portalName), ways_(ways) {
    ::setenv("WAYLAND_DISPLAY", "wayland-none", 1);
    qDBusRegisterMetaType<BoundShortcut>();
    qDBusRegisterMetaType<QList<BoundShortcut>>();
    for (const auto& member : {u"Register"_s, u"Close"_s}) service.answer(member, always({}));
    service.answer(u"Get"_s, always({boxed(ways_.version)}));
    service.answer(u"CreateSession"_s, [this](const QDBusMessage& call) {
      bound.clear();
      const auto options = qdbus_cast<QVariantMap>(call.arguments().constLast());
      session =
          QDBusObjectPath(portalPath + u"/session/1/"_s + options[u"session_handle_token"_s].toString());
      return portalAnswer(service, call, true, {{u"session_handle"_s, session.path()}});
    });
    service.answer(u"ListShortcuts"_s, [this](const QDBusMessage& call) {
      return portalAnswer(service, call, true, listed(ways_.listsUnbound ? given : bound));
    });
    service.answer(u"BindShortcuts"_s, [this](const QDBusMessage& call) {
      bound.clear();
      for (const auto& [id, properties] : qdbus_cast<QList<BoundShortcut>>(call.arguments().at(1))) {
        if (!given.contains(id)) {
          ++questions;
          if (!grants) continue;
          given[id] = QString::fromUtf8(ways_.words).arg(QChar(id == u"toggle"_s ? u'C' : u'V'));
        }
        bound[id] = given[id];
      }
      return portalAnswer(service, call, !bound.isEmpty(), ways_.bindTells ? listed(bound) : QVariantMap());
    });
  }

  void activate(const QDBusObjectPath& handle, const QString& id) {
    service.emitSignal(portalPath, u"org.freedesktop.portal.GlobalShortcuts"_s, u"Activated"_s,
                       {QVariant::fromValue(handle), id, qulonglong{1}, QVariantMap()});
  }
  void change(const QString& id, const QString& words) {
    given[id] = words;
    service.emitSignal(portalPath, u"org.freedesktop.portal.GlobalShortcuts"_s, u"ShortcutsChanged"_s,
                       {QVariant::fromValue(session), listed(given)[u"shortcuts"_s]});
  }
  [[nodiscard]] std::size_t calls(const char* member) const {
    return service.calls(QString::fromLatin1(member)).size();
  }

  BusDouble service;
  QDBusObjectPath session;
  QMap<QString, QString> given;  ///< by the person, with their keys
  QMap<QString, QString> bound;  ///< in the session
  bool grants = true;
  int questions = 0;  ///< to the person

 private:
  static QVariantMap listed(const QMap<QString, QString>& shortcuts) {
    QList<BoundShortcut> list;
    for (const auto& [id, words] : shortcuts.asKeyValueRange())
      list.emplace_back(id, QVariantMap{{u"trigger_description"_s, words}});
    return {{u"shortcuts"_s, QVariant::fromValue(list)}};
  }

  const ShortcutWays ways_;
};

TEST_F(KeyMonitorTest, AsksThePersonOnceAndIsBoundAtEveryStart) {
  const ShortcutWays desktops[] = {
      {"Plasma", true, true, false, 1},
      {"newer Plasma", true, false, true, 2},
      {"GNOME", false, true, true, 1, "Press <Shift><Super>%1"},
      {"others", true, true, false, 1, "Ctrl+Alt+%1", "Ctrl+Alt+C"},
  };
  for (const auto& ways : desktops) {
    SCOPED_TRACE(ways.name);
    defaults = std::make_shared<MemoryUserDefaults>();
    ShortcutsPortal portal(desktop, ways);
    presses = 0;
    for (unsigned start = 0; start < 3; ++start) {
      const auto keys = monitor();
      const Registration observing = observe(*keys);
      ASSERT_TRUE(runUntil([&] { return keys->canObserve(Shortcut::toggle); })) << start;
      EXPECT_EQ(keys->grant(Shortcut::toggle).keys, ways.shown);
      portal.activate(QDBusObjectPath(u"/somebody/else"_s), u"toggle"_s);
      portal.activate(portal.session, u"cover"_s);
      portal.activate(portal.session, u"toggle"_s);
      ASSERT_TRUE(runUntil([&] { return presses == static_cast<int>(start) + 1; }));
      EXPECT_EQ(portal.questions, 1);
      EXPECT_EQ(portal.calls("BindShortcuts"), ways.bindsAlways ? start + 1U : 1U) << "a window may open";
      if (start < 2) continue;
      // The other one comes to it, and both are heard.
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
}

TEST_F(KeyMonitorTest, WhoDeclinesAShortcutIsAskedAgainOnlyAfterSwitchingItOff) {
  ShortcutsPortal portal(desktop);
  for (int start = 0; start < 3; ++start) {
    portal.grants = start == 2;
    const auto keys = monitor();
    Registration observing = observe(*keys);
    ASSERT_TRUE(runUntil([&] { return keys->grant(Shortcut::toggle).kind == ShortcutGrant::Kind::refused; }));
    EXPECT_EQ(portal.questions, 1);
    if (!portal.grants) continue;
    observing.reset();
    keys->forget(Shortcut::toggle);
    observing = observe(*keys);
    EXPECT_TRUE(runUntil([&] { return keys->canObserve(Shortcut::toggle); }));
  }
}

/// Who asks it anything before it knows the program is nobody to it.
TEST_F(KeyMonitorTest, ThePortalHearsFirstWhoAsks) {
  const auto shared = std::make_shared<DesktopPortal>(ownSessionBus);
  std::vector<bool> told;
  const auto await = [&] { shared->whenReady([&](bool ready) { told.push_back(ready); }); };
  ASSERT_TRUE(runUntil([&] { return ownSessionBus->isConnected(); }));
  await();
  ASSERT_TRUE(runUntil([&] { return told == std::vector{false}; })) << "nobody could start one";
  ShortcutsPortal portal(desktop);
  portal.service.keep(u"Register"_s);
  portal.service.answer(u"Read"_s, always({}));
  const DesktopAppearance appearance(ownSessionBus, shared, {});
  const auto keys = monitorOn(shared);
  const Registration observing = observe(*keys);
  ASSERT_TRUE(runUntilCalls(portal.service, "Register", 1));
  await();
  EXPECT_EQ(portal.calls("Read") + portal.calls("CreateSession"), 0U);
  EXPECT_EQ(told.size(), 1U) << "it does not know yet who we are";
  const QDBusMessage call = portal.service.calls(u"Register"_s)[0];
  EXPECT_EQ(call.arguments().at(0), u"expert.mardeck.sentrel"_s);
  portal.service.reply(call, {});
  for (const char* next : {"Read", "CreateSession"}) EXPECT_TRUE(runUntilCalls(portal.service, next, 1));
  EXPECT_EQ(told, (std::vector{false, true}));
  EXPECT_EQ(portal.calls("Register"), 1U);
}

/// As KDE tells keys: up to four, pressed one after the other.
struct KeyTurns {
  QList<int> keys;
};
[[maybe_unused]] QDBusArgument& operator<<(QDBusArgument& to, const KeyTurns& turns) {
  to.beginStructure();
  to << turns.keys;
  to.endStructure();
  return to;
}
[[maybe_unused]] const QDBusArgument& operator>>(const QDBusArgument& from, KeyTurns& turns) {
  from.beginStructure();
  from >> turns.keys;
  from.endStructure();
  return from;
}

/// What KDE's service has of a shortcut, and what becomes of it.
struct KdeWays {
  const char* name = "";
  std::optional<QList<KeyTurns>> kept = {};  ///< from before
  QStringList first = {};                    ///< who is told of a press
  ShortcutGrant grant = {ShortcutGrant::Kind::refused, ""};
};

class KdeService {
 public:
  explicit KdeService(const HeadlessDesktop& desktop, KdeWays ways = {})
      : service(desktop, TestBus::session, u"org.kde.kglobalaccel"_s) {
    qDBusRegisterMetaType<KeyTurns>();
    qDBusRegisterMetaType<QList<KeyTurns>>();
    for (const auto& member : {u"doRegister"_s, u"setInactive"_s}) service.answer(member, always({}));
    service.answer(u"setShortcutKeys"_s, [kept = ways.kept](const QDBusMessage& call) mutable {
      const auto asked = qdbus_cast<QList<KeyTurns>>(call.arguments().at(1));
      const bool isDefault = call.arguments().at(2).toUInt() == 8;
      if (!isDefault && !kept) kept = asked;
      return QVariantList{QVariant::fromValue(isDefault ? asked : *kept)};
    });
    service.answer(u"actionList"_s, always({ways.first}));
  }

  void press(const QString& path, const QString& id) {
    service.emitSignal(u"/component/"_s + path, u"org.kde.kglobalaccel.Component"_s,
                       u"globalShortcutPressed"_s, {u"expert.mardeck.sentrel"_s, id, qlonglong{0}});
  }
  void change(const QString& component, int key) {
    service.emitSignal(u"/kglobalaccel"_s, u"org.kde.KGlobalAccel"_s, u"yourShortcutsChanged"_s,
                       {QStringList{component, u"toggle"_s, {}, {}},
                        QVariant::fromValue(QList<KeyTurns>{{{key, 0, 0, 0}}})});
  }

  BusDouble service;
};

struct KdeKeysTest : KeyMonitorTest {
  KdeKeysTest() { ::setenv("XDG_CURRENT_DESKTOP", "KDE", 1); }
  ~KdeKeysTest() override { ::unsetenv("XDG_CURRENT_DESKTOP"); }
  [[nodiscard]] bool becomes(const DesktopKeyMonitor& keys, const ShortcutGrant& grant) {
    return runUntil([&] { return keys.grant(Shortcut::toggle) == grant; });
  }

  ShortcutsPortal portal{desktop};
  const ShortcutGrant usual{ShortcutGrant::Kind::granted, "⌘⇧C"};
};

TEST_F(KdeKeysTest, AreThoseThatThePersonLeftToIt) {
  const QStringList ours{u"expert.mardeck.sentrel"_s, u"toggle"_s, {}, {}};
  const QList<KeyTurns> usualKeys{{{(Qt::META | Qt::SHIFT | Qt::Key_C).toCombined(), 0, 0, 0}}};
  const KdeWays all[] = {
      {"never asked", std::nullopt, ours, usual},
      {"nobody says who is told", std::nullopt, {}, usual},
      {"others", {{{{0, 0, 0, 0}}, {{Qt::Key_F8, 0, 0, 0}}}}, ours, {ShortcutGrant::Kind::granted, "F8"}},
      {"none", QList<KeyTurns>{}, ours},
      {"taken", {{{{0, 0, 0, 0}}}}, ours},
      {"shared with an older one", usualKeys, {u"kwin"_s, u"toggle"_s, {}, {}}},
      {"nothing in it", {{{{}}}}, ours},
  };
  for (const auto& ways : all) {
    SCOPED_TRACE(ways.name);
    KdeService kde(desktop, ways);
    const auto keys = monitor();
    const Registration observing = observe(*keys);
    ASSERT_TRUE(becomes(*keys, ways.grant));
    const QDBusMessage asked = kde.service.calls(u"setShortcutKeys"_s).back();
    EXPECT_EQ(
        asked.arguments().at(0).toStringList(),
        (QStringList{u"expert.mardeck.sentrel"_s, u"toggle"_s, u"Sentrel"_s, u"Désactiver la protection"_s}));
    EXPECT_EQ(asked.arguments().at(2), 2U) << "what the person decided before goes on";
  }
  EXPECT_EQ(portal.calls("CreateSession"), 0U);
}

TEST_F(KdeKeysTest, FollowTheServiceAndThePerson) {
  const auto keys = monitor();
  Registration observing = observe(*keys);
  ASSERT_TRUE(becomes(*keys, usual)) << "through the portal, where the service is not to be seen";
  for (int start = 1; start < 3; ++start) {
    KdeService kde(desktop);
    ASSERT_TRUE(runUntilCalls(kde.service, "actionList", 1));
    ASSERT_TRUE(becomes(*keys, usual));
    portal.activate(portal.session, u"toggle"_s);
    kde.press(u"kwin"_s, u"toggle"_s);
    kde.press(u"expert_mardeck_sentrel"_s, u"cover"_s);
    kde.press(u"expert_mardeck_sentrel"_s, u"toggle"_s);
    kde.change(u"kwin"_s, Qt::Key_F7);
    kde.change(u"expert.mardeck.sentrel"_s, Qt::Key_F8);
    EXPECT_TRUE(becomes(*keys, {ShortcutGrant::Kind::granted, "F8"}));
    kde.change(u"expert.mardeck.sentrel"_s, 0);
    EXPECT_TRUE(becomes(*keys, {ShortcutGrant::Kind::refused, ""}));
    EXPECT_EQ(presses, start);
    if (start == 1) continue;
    observing.reset();
    EXPECT_TRUE(runUntilCalls(kde.service, "setInactive", 1));
  }
  EXPECT_EQ(portal.calls("CreateSession"), 1U);
}

}  // namespace
}  // namespace sentrel::test
