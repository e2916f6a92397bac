// SPDX-License-Identifier: Apache-2.0
//
// The program itself as a new user meets it, by keyboard alone and as a screen reader tells it.
#include <QDBusArgument>
#include <algorithm>

#include "app/program_desk.h"

namespace sentrel::test {
namespace {

/// What a screen reader is told of the programs on a private desktop.
class AccessibleTree {
 public:
  struct Node {
    std::string name;
    std::string role;
    bool focusable = false;
  };

  /// Starts the bus of assistive technology and says that somebody listens; programs that start later speak
  /// on it.
  AccessibleTree(HeadlessDesktop& desktop, const BusClient& sessionBus)
      // What it is told stays in memory; a private desktop has nothing that would write it down.
      : launcher_(desktop.spawn(
            "env", {"GSETTINGS_BACKEND=memory", "/usr/libexec/at-spi-bus-launcher", "--launch-immediately"})),
        bus_(QString()) {
    const auto name = u"org.a11y.Bus"_s;
    const auto path = u"/org/a11y/bus"_s;
    sessionBus.waitForName(name);
    sessionBus.call(name, path, u"org.freedesktop.DBus.Properties"_s, u"Set"_s,
                    {u"org.a11y.Status"_s, u"IsEnabled"_s, QVariant::fromValue(QDBusVariant(true))});
    const QDBusMessage address = sessionBus.call(name, path, name, u"GetAddress"_s);
    bus_ = QDBusConnection::connectToBus(address.arguments().constFirst().toString(), u"accessible"_s);
  }

  /// Everything that is on the screen just now.
  [[nodiscard]] std::vector<Node> nodes() const {
    std::vector<Node> nodes;
    visit(u"org.a11y.atspi.Registry"_s, u"/org/a11y/atspi/accessible/root"_s, nodes);
    return nodes;
  }

 private:
  /// What goes while it is asked answers with errors, and is left out.
  void visit(const QString& service, const QString& path, std::vector<Node>& nodes) const {
    const auto accessible = u"org.a11y.atspi.Accessible"_s;
    const auto ask = [&](const QString& interface, const QString& member,
                         const QVariantList& arguments = {}) {
      QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, member);
      call.setArguments(arguments);
      return bus_.call(call).arguments().value(0);
    };
    const auto states = qdbus_cast<QList<unsigned>>(ask(accessible, u"GetState"_s));
    const auto has = [&](unsigned state) { return !states.isEmpty() && (states[0] >> state & 1U) != 0; };
    constexpr unsigned focusable = 11;
    constexpr unsigned showing = 25;
    const QString role = ask(accessible, u"GetRoleName"_s).toString();
    if (role != u"application" && role != u"desktop frame" && !has(showing)) return;
    const QVariant name = ask(u"org.freedesktop.DBus.Properties"_s, u"Get"_s, {accessible, u"Name"_s});
    nodes.push_back(
        {name.value<QDBusVariant>().variant().toString().toStdString(), role.toStdString(), has(focusable)});
    const QVariant children = ask(accessible, u"GetChildren"_s);
    if (!children.canConvert<QDBusArgument>()) return;
    const auto list = children.value<QDBusArgument>();
    list.beginArray();
    while (!list.atEnd()) {
      QString childService;
      QDBusObjectPath child;
      list.beginStructure();
      list >> childService >> child;
      list.endStructure();
      visit(childService, child.path(), nodes);
    }
    list.endArray();
  }

  ChildProcess launcher_;
  QDBusConnection bus_;
};

struct FirstRunTest : ProgramDesk {
  FirstRunTest() {
    fs::remove(settingsFolder() / "defaults.json");
    start();
  }

  /// Waits until something on the screen has a name that begins so.
  [[nodiscard]] bool shows(const std::string& words) const {
    return waitUntil([&] { return isNow(words); }, seconds(20), milliseconds(100));
  }
  [[nodiscard]] bool isNow(const std::string& words) const {
    return std::ranges::any_of(tree.nodes(), [&](const auto& node) { return node.name.starts_with(words); });
  }
  /// Presses a key once `words` are on the screen, and looks at every control there is then.
  void pressAt(const std::string& words, const std::string& key) {
    ASSERT_TRUE(shows(words)) << words;
    for (const auto& node : tree.nodes()) {
      if (!node.focusable || node.role == "frame" || node.role == "filler") continue;
      EXPECT_NE(node.name, "") << node.role;
      ++controls;
    }
    press(key);
  }

  AccessibleTree tree{desktop, *bus};
  int controls = 0;  // that were looked at
};

TEST_F(FirstRunTest, TheKeyboardAloneLeadsToACoveredScreenAndEveryControlHasAName) {
  ASSERT_TRUE(shows("Autoriser la caméra"));
  EXPECT_FALSE(camera.isOpen()) << "nobody has agreed yet";
  for (const char* words : {"Continuer", "Compris", "Autoriser les notifications", "Calibrer maintenant",
                            "Démarrer", "Valider"}) {
    pressAt(words, "Return");
  }
  ASSERT_TRUE(shows("✓ Calibré ("));
  press("Tab");
  pressAt("Plus tard", "space");
  pressAt("Activer", "Return");
  ASSERT_TRUE(
      waitUntil([&] { return settings().find("\"has_completed_onboarding\": true") != std::string::npos; }));
  EXPECT_THAT(settings(), testing::HasSubstr("\"is_calibrated\": true"));
  EXPECT_TRUE(fs::exists(desktop.configFolder() / "autostart" / "expert.mardeck.sentrel.desktop"));
  EXPECT_TRUE(waitUntil([&] { return camera.isOpen() && isCovered(); }));

  isWatched = true;
  ASSERT_TRUE(shows("REGARD INDISCRET. Quelqu'un observe votre écran"));
  EXPECT_EQ(std::ranges::count(tree.nodes(), "notification", &AccessibleTree::Node::role), 1);
  isWatched = false;
  EXPECT_TRUE(waitUntil([&] { return !isNow("REGARD"); }));

  perform("preferences");
  pressAt("Calibrer…", "Escape");
  perform("about");
  pressAt("Fermer", "Escape");
  ASSERT_TRUE(shows("Protection"));  // the switch has the focus
  press("Down");
  press("Return");
  pressAt("Remettre à zéro…", "Escape");
  pressAt("Protection", "space");
  EXPECT_TRUE(waitUntil([&] { return !camera.isOpen() && !isCovered(); }));
  EXPECT_GE(controls, 35);
  terminate();
}

}  // namespace
}  // namespace sentrel::test
