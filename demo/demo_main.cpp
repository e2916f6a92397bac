// SPDX-License-Identifier: Apache-2.0
//
// sentrel-demo SCENE FOLDER [PROGRAM]: runs the program, the one of this build unless another is named, on a
// private desktop with a virtual camera, and leaves in the folder what happened over time and pictures of the
// screen. Fails when something else follows than the scene asks for. Scenes: "x11" and "wayland", an
// onlooker; "day", what happens to a session in a day; "hands", what the person asks for.
#include <QGuiApplication>
#include <QLoggingCategory>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>

#include "program_trial.h"

int main(int argc, char** argv) {
  const std::string_view scene = argc == 3 || argc == 4 ? argv[1] : "";
  if (scene != "x11" && scene != "wayland" && scene != "day" && scene != "hands") {
    std::fputs("usage: sentrel-demo x11|wayland|day|hands FOLDER [PROGRAM]\n", stderr);
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
    const auto make = scene == "day"     ? sentrel::test::dayDemo
                      : scene == "hands" ? sentrel::test::handsDemo
                                         : sentrel::test::onlookerDemo;
    return make(desktop, folder, program)->run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sentrel-demo: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
