// SPDX-License-Identifier: Apache-2.0
//
// The program itself as a new user meets it, by keyboard alone and as a screen reader tells it.
#include <QDBusArgument>
#include <algorithm>

#include "desktop/program_desk.h"

namespace sentrel::test {
namespace {

/// What a screen reader is told of the programs on a private desktop, over the bus of assistive technology.
class AccessibleTree {
 public:
  struct Node {
    std::string name;
    std::string role;
    bool focusable = false;
    std::string path = {};
  };

  /// Starts that bus and says that somebody listens; programs that start later speak on it.
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
    const QString place = address.arguments().constFirst().toString();
    bus_ = QDBusConnection::connectToBus(place, u"accessible"_s);
    // What appears and goes is told to whoever asks for it.
    bus_.call(QDBusMessage::createMethodCall(u"org.a11y.atspi.Registry"_s, u"/org/a11y/atspi/registry"_s,
                                             u"org.a11y.atspi.Registry"_s, u"RegisterEvent"_s)
              << u"object:state-changed:showing"_s);
    events_ = desktop.spawn("dbus-monitor", {"--address", place.toStdString(), "member='StateChanged'"});
  }
  ~AccessibleTree() { QDBusConnection::disconnectFromBus(u"accessible"_s); }
  AccessibleTree(const AccessibleTree&) = delete;
  AccessibleTree& operator=(const AccessibleTree&) = delete;

  /// How often something was said to appear. Screen readers read a notification then.
  [[nodiscard]] qsizetype appearances(const Node& node) const {
    const std::string event = "path=" + node.path +
                              "; interface=org.a11y.atspi.Event.Object; member=StateChanged\n"
                              "   string \"showing\"\n   int32 1\n";
    return QByteArray::fromStdString(events_.output()).count(event.c_str());
  }
  /// Everything that is on the screen just now.
  [[nodiscard]] std::vector<Node> nodes() const {
    std::vector<Node> nodes;
    visit({u"org.a11y.atspi.Registry"_s, u"/org/a11y/atspi/accessible/root"_s}, nodes);
    return nodes;
  }

 private:
  struct Place {
    QString service;
    QString path;
  };
  [[nodiscard]] QVariant ask(const Place& place, const char* member) const {
    return bus_
        .call(QDBusMessage::createMethodCall(place.service, place.path, accessible_,
                                             QString::fromLatin1(member)))
        .arguments()
        .value(0);
  }
  [[nodiscard]] std::string property(const Place& place, const char* name) const {
    QDBusMessage get = QDBusMessage::createMethodCall(place.service, place.path,
                                                      u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
    const QDBusMessage reply = bus_.call(get << accessible_ << QString::fromLatin1(name));
    return reply.arguments().value(0).value<QDBusVariant>().variant().toString().toStdString();
  }
  /// What goes while it is asked answers with errors, and is left out.
  void visit(const Place& place, std::vector<Node>& nodes) const {
    const auto states = qdbus_cast<QList<unsigned>>(ask(place, "GetState"));
    const auto has = [&](unsigned state) { return !states.isEmpty() && (states[0] >> state & 1U) != 0; };
    constexpr unsigned focusable = 11;
    constexpr unsigned showing = 25;
    const std::string role = ask(place, "GetRoleName").toString().toStdString();
    if (role != "application" && role != "desktop frame" && !has(showing)) return;
    nodes.push_back({property(place, "Name"), role, has(focusable), place.path.toStdString()});
    const QVariant children = ask(place, "GetChildren");
    if (!children.canConvert<QDBusArgument>()) return;
    const auto list = children.value<QDBusArgument>();
    list.beginArray();
    while (!list.atEnd()) {
      Place child;
      QDBusObjectPath path;
      list.beginStructure();
      list >> child.service >> path;
      list.endStructure();
      child.path = path.path();
      visit(child, nodes);
    }
    list.endArray();
  }

  const QString accessible_ = u"org.a11y.atspi.Accessible"_s;
  ChildProcess launcher_;
  ChildProcess events_;
  QDBusConnection bus_;
};

class FirstRunTest : public ProgramDesk {
 protected:
  FirstRunTest() {
    std::filesystem::remove(settingsFolder() / "defaults.json");
    start();
  }

  /// Waits until something on the screen has a name that begins so.
  [[nodiscard]] bool shows(const std::string& words) const {
    return waitUntil([&] { return isNow(words); }, std::chrono::seconds(20), std::chrono::milliseconds(100));
  }
  [[nodiscard]] bool isNow(const std::string& words) const {
    return std::ranges::any_of(tree.nodes(), [&](const auto& node) { return node.name.starts_with(words); });
  }
  /// Presses a key once `words` are on the screen, and looks at every control there is then.
  void pressAt(const std::string& words, const std::string& key) {
    ASSERT_TRUE(shows(words)) << words;
    expectNames();
    press(key);
  }
  void expectNames() {
    for (const auto& node : tree.nodes()) {
      if (!node.focusable || node.role == "frame" || node.role == "filler") continue;
      EXPECT_NE(node.name, "") << node.role;
      ++controls;
    }
  }
  AccessibleTree tree{desktop, session.sessionBus()};
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
  EXPECT_TRUE(
      std::filesystem::exists(desktop.configFolder() / "autostart" / "expert.mardeck.sentrel.desktop"));
  EXPECT_TRUE(waitUntil([&] { return camera.isOpen() && isCovered(); }));

  isWatched = true;
  ASSERT_TRUE(shows("REGARD INDISCRET. Quelqu'un observe votre écran"));
  const auto nodes = tree.nodes();
  const auto banner = std::ranges::find(nodes, "notification", &AccessibleTree::Node::role);
  ASSERT_NE(banner, nodes.end());
  EXPECT_TRUE(waitUntil([&] { return tree.appearances(*banner) == 1; }));
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
}

}  // namespace
}  // namespace sentrel::test
