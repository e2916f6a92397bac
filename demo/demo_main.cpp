// SPDX-License-Identifier: Apache-2.0
//
// sentrel-demo SCENE FOLDER [PROGRAM]: runs the program, the one of this build unless another is named, on a
// private desktop with a virtual camera, and leaves in the folder what happened over time and pictures of the
// screen. Fails when something else follows than the scene asks for. Scenes: "x11" and "wayland", an
// onlooker; "day", what happens to a session in a day; "hands", what the person asks for; "shows", what the
// program shows of itself.
#include <QGuiApplication>
#include <QLoggingCategory>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "program_trial.h"

int main(int argc, char** argv) {
  const std::string_view scene = argc == 3 || argc == 4 ? argv[1] : "";
  using sentrel::test::ProgramTrial;
  using Make = std::unique_ptr<ProgramTrial>(sentrel::test::HeadlessDesktop&, const std::filesystem::path&,
                                             const std::string&);
  static const std::map<std::string_view, Make*> scenes{{"x11", sentrel::test::onlookerDemo},
                                                        {"wayland", sentrel::test::onlookerDemo},
                                                        {"day", sentrel::test::dayDemo},
                                                        {"hands", sentrel::test::handsDemo},
                                                        {"shows", sentrel::test::showsDemo}};
  const auto chosen = scenes.find(scene);
  if (chosen == scenes.end()) {
    std::fputs("usage: sentrel-demo x11|wayland|day|hands|shows FOLDER [PROGRAM]\n", stderr);
    return 2;
  }
  const auto folder = std::filesystem::absolute(argv[2]);
  const std::string program = argc == 4 ? argv[3] : SENTREL_PROGRAM;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  try {
    const bool wayland = scene == "wayland";
    sentrel::test::HeadlessDesktop desktop(
        {.systemBus = true, .pipeWire = true, .x11 = !wayland, .sway = wayland});
    desktop.exportToProcess();
    qputenv("QT_QPA_PLATFORM", wayland ? "wayland" : "xcb");  // for the document, not for the program
    // The portrait's colour profile is known to be odd; that helps nobody here.
    QLoggingCategory::setFilterRules(QStringLiteral("qt.gui.imageio.warning=false"));
    const QGuiApplication application(argc, argv);
    return chosen->second(desktop, folder, program)->run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sentrel-demo: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
