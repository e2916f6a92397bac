// SPDX-License-Identifier: Apache-2.0
//
// sentrel-try-desktop DESKTOP FOLDER [CLICKS [PROGRAM]]: runs the program, the one of this build unless
// another is named, on a real desktop without a screen, and clicks through its cover in every state, on each
// target 60 times or so many during the alert. Leaves a table and pictures in the folder; fails when a click
// is lost. Desktops: "gnome-wayland".
#include <QGuiApplication>
#include <QLoggingCategory>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "desktop_trial.h"

int main(int argc, char** argv) {
  const std::string_view name = argc >= 3 && argc <= 5 ? argv[1] : "";
  const int clicks = argc >= 4 ? std::atoi(argv[3]) : 60;
  if (name != "gnome-wayland" || clicks < 1) {
    std::fputs("usage: sentrel-try-desktop gnome-wayland FOLDER [CLICKS [PROGRAM]]\n", stderr);
    return 2;
  }
  const auto folder = std::filesystem::absolute(argv[2]);
  const std::string program = argc == 5 ? argv[4] : SENTREL_PROGRAM;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  try {
    using namespace sentrel::test;  // NOLINT(google-build-using-namespace): in a program's main function
    HeadlessDesktop desktop({.activation = true, .systemBus = true, .pipeWire = true});
    const GnomeShell shell(desktop, {1920, 1080});
    // The person has agreed to the camera long ago.
    std::filesystem::create_directories(desktop.configFolder() / "sentrel");
    std::ofstream(desktop.configFolder() / "sentrel" / "defaults.json")
        << "{\n  \"has_completed_onboarding\": true\n}\n";
    desktop.exportToProcess();
    qputenv("QT_QPA_PLATFORM", "wayland");  // for the document, not for the program
    QLoggingCategory::setFilterRules(QStringLiteral("qt.gui.imageio.warning=false"));
    QGuiApplication application(argc, argv);
    return DesktopTrial(desktop, shell, folder, program, clicks).run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sentrel-try-desktop: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
