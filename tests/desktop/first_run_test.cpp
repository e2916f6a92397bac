// SPDX-License-Identifier: Apache-2.0
//
// The program itself as a new user meets it, by keyboard alone and as a screen reader tells it.
#include <gmock/gmock.h>

#include <QCoreApplication>
#include <algorithm>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "desktop/accessible_tree.h"
#include "stage/headless_desktop.h"
#include "stage/played_session.h"
#include "stage/portrait_scene.h"
#include "stage/virtual_camera.h"
#include "stage/wait_until.h"

namespace sentrel::test {
namespace {

const auto program = QStringLiteral("expert.mardeck.sentrel");

class FirstRunTest : public testing::Test {
 protected:
  FirstRunTest() {
    desktop.exportToProcess();  // the camera is played here
    camera.appear();
    desktop.waitForNode("virtual_camera");
    camera.setSource([this](std::int64_t) { return user.constBits(); });
    process = desktop.spawn(SENTREL_PROGRAM);
    session.sessionBus().waitForName(program);
  }

  void press(const std::string& key) { desktop.run("xdotool", {"key", "--clearmodifiers", key}); }
  /// Waits until something on the screen has a name that begins so.
  [[nodiscard]] bool shows(const std::string& words) const {
    return waitUntil(
        [&] {
          return std::ranges::any_of(tree.nodes(),
                                     [&](const auto& node) { return node.name.starts_with(words); });
        },
        std::chrono::seconds(20), std::chrono::milliseconds(100));
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
      EXPECT_NE(node.name, "") << node.role << " " << node.description;
      ++controls;
    }
  }
  void perform(const char* action) const {
    session.sessionBus().call(program, QStringLiteral("/expert/mardeck/sentrel"),
                              QStringLiteral("org.freedesktop.Application"), QStringLiteral("ActivateAction"),
                              {QString::fromLatin1(action), QVariantList(), QVariantMap()});
  }
  [[nodiscard]] std::string settingsFile() const {
    std::ifstream file(desktop.configFolder() / "sentrel" / "defaults.json");
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }
  [[nodiscard]] bool isCovered() {
    return desktop.run("xwininfo", {"-root", "-children"}).find("1920x1080+0+0") != std::string::npos;
  }

  int argumentCount = 1;
  char name_[5] = "test";
  char* arguments[2] = {name_, nullptr};
  QCoreApplication application{argumentCount, arguments};
  HeadlessDesktop desktop{{.systemBus = true, .pipeWire = true, .x11 = true}};
  PlayedSession session{desktop};
  AccessibleTree tree{desktop, session.sessionBus()};
  const QImage user = PortraitScene().frame({}).convertToFormat(QImage::Format_RGB32);
  VirtualCamera camera{{}};
  ChildProcess process;
  int controls = 0;  // that were looked at
};

TEST_F(FirstRunTest, TheKeyboardAloneLeadsToACoveredScreenAndEveryControlHasAName) {
  ASSERT_TRUE(shows("Autoriser la caméra"));
  EXPECT_FALSE(camera.isOpen()) << "nobody has agreed yet";
  pressAt("Continuer", "Return");
  pressAt("Compris", "Return");
  pressAt("Autoriser les notifications", "Return");
  pressAt("Calibrer maintenant", "Return");
  pressAt("Démarrer", "Return");
  pressAt("Valider", "Return");
  ASSERT_TRUE(shows("✓ Calibré ("));
  press("Tab");
  pressAt("Plus tard", "space");
  pressAt("Activer", "Return");
  ASSERT_TRUE(waitUntil(
      [&] { return settingsFile().find("\"has_completed_onboarding\": true") != std::string::npos; }));
  EXPECT_THAT(settingsFile(), testing::HasSubstr("\"is_calibrated\": true"));
  EXPECT_TRUE(
      std::filesystem::exists(desktop.configFolder() / "autostart" / "expert.mardeck.sentrel.desktop"));
  EXPECT_TRUE(waitUntil([&] { return camera.isOpen() && isCovered(); }));

  perform("preferences");
  pressAt("Calibrer…", "Escape");
  for (const char* page : {"statistics", "about"}) {
    perform(page);
    pressAt(page == std::string("about") ? "Fermer" : "Remettre à zéro…", "Escape");
  }
  pressAt("Protection", "space");  // the switch has the focus
  EXPECT_TRUE(waitUntil([&] { return !camera.isOpen() && !isCovered(); }));
  std::cout << controls << " controls, all of them named\n";
  EXPECT_GE(controls, 35);
}

}  // namespace
}  // namespace sentrel::test
