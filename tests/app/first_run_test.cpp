// SPDX-License-Identifier: Apache-2.0
//
// The program itself as a new user meets it, by keyboard alone and as a screen reader tells it.
#include <QDBusArgument>
#include <algorithm>

#include "app/program_desk.h"

namespace sentrel::test {
namespace {

struct FirstRunTest : ProgramDesk {
  /// Starts the bus of assistive technology and says that somebody listens; programs that start later speak
  /// on it.
  FirstRunTest() {
    const auto name = u"org.a11y.Bus"_s;
    const auto path = u"/org/a11y/bus"_s;
    bus->waitForName(name);
    bus->call(name, path, u"org.freedesktop.DBus.Properties"_s, u"Set"_s,
              {u"org.a11y.Status"_s, u"IsEnabled"_s, QVariant::fromValue(QDBusVariant(true))});
    const QDBusMessage address = bus->call(name, path, name, u"GetAddress"_s);
    accessible = QDBusConnection::connectToBus(address.arguments().constFirst().toString(), u"accessible"_s);
    fs::remove(settingsFolder() / "defaults.json");
    start();
  }

  /// What a screen reader is told of.
  struct Node {
    std::string name;
    std::string role;
    bool focusable = false;
  };
  /// Everything that is on the screen just now.
  [[nodiscard]] std::vector<Node> nodes() const {
    std::vector<Node> nodes;
    visit(u"org.a11y.atspi.Registry"_s, u"/org/a11y/atspi/accessible/root"_s, nodes);
    return nodes;
  }
  /// What goes while it is asked answers with errors, and is left out.
  void visit(const QString& service, const QString& path, std::vector<Node>& nodes) const {
    const auto interface = u"org.a11y.atspi.Accessible"_s;
    const auto ask = [&](const QString& of, const QString& member, const QVariantList& values = {}) {
      QDBusMessage call = QDBusMessage::createMethodCall(service, path, of, member);
      call.setArguments(values);
      return accessible.call(call).arguments().value(0);
    };
    const auto states = qdbus_cast<QList<unsigned>>(ask(interface, u"GetState"_s));
    const auto has = [&](unsigned state) { return !states.isEmpty() && (states[0] >> state & 1U) != 0; };
    constexpr unsigned focusable = 11;
    constexpr unsigned showing = 25;
    const std::string role = ask(interface, u"GetRoleName"_s).toString().toStdString();
    if (role != "application" && role != "desktop frame" && !has(showing)) return;
    const QVariant name = ask(u"org.freedesktop.DBus.Properties"_s, u"Get"_s, {interface, u"Name"_s});
    nodes.push_back({name.value<QDBusVariant>().variant().toString().toStdString(), role, has(focusable)});
    const QVariant children = ask(interface, u"GetChildren"_s);
    for (const auto& [owner, child] : qdbus_cast<QList<std::pair<QString, QDBusObjectPath>>>(children))
      visit(owner, child.path(), nodes);
  }

  /// Waits until something on the screen has a name that begins so.
  [[nodiscard]] bool shows(const std::string& words) const {
    return waitUntil([&] { return isNow(words); }, seconds(20), milliseconds(100));
  }
  [[nodiscard]] bool isNow(const std::string& words) const {
    return std::ranges::any_of(nodes(), [&](const auto& node) { return node.name.starts_with(words); });
  }
  /// Presses a key once `words` are on the screen, and looks at every control there is then.
  void pressAt(const std::string& words, const std::string& key) {
    ASSERT_TRUE(shows(words)) << words;
    for (const auto& node : nodes()) {
      if (!node.focusable || node.role == "frame" || node.role == "filler") continue;
      EXPECT_NE(node.name, "") << node.role;
      ++controls;
    }
    press(key);
  }

  // What it is told stays in memory; a private desktop has nothing that would write it down.
  ChildProcess launcher = desktop.spawn(
      "env", {"GSETTINGS_BACKEND=memory", "/usr/libexec/at-spi-bus-launcher", "--launch-immediately"});
  QDBusConnection accessible{QString()};
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
  EXPECT_EQ(std::ranges::count(nodes(), "notification", &Node::role), 1);
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
