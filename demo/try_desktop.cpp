// SPDX-License-Identifier: Apache-2.0
//
// sentrel-try-desktop DESKTOP FOLDER [CLICKS [PROGRAM]]: runs the program, the one of this build unless
// another is named, on a real desktop without a screen, and plays what a person does: clicks and keys go
// through its cover in every state, to each target 20 times or so many. Leaves a table and pictures in the
// folder; fails when something is lost.
#include <QGuiApplication>
#include <QLoggingCategory>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>

#include "desktop_shell.h"
#include "desktop_trial.h"

int main(int argc, char** argv) {
  using namespace sentrel::test;  // NOLINT(google-build-using-namespace): in a program's main function
  const std::string_view name = argc >= 3 && argc <= 5 ? argv[1] : "";
  const int clicks = argc >= 4 ? std::atoi(argv[3]) : 20;
  const auto& kinds = desktopKinds();
  const auto kind = std::ranges::find(kinds, name, &DesktopKind::name);
  if (kind == kinds.end() || clicks < 1) {
    std::fputs("usage: sentrel-try-desktop DESKTOP FOLDER [CLICKS [PROGRAM]]\nDesktops:", stderr);
    for (const DesktopKind& each : kinds) std::fprintf(stderr, " %s", each.name);
    std::fputs("\n", stderr);
    return 2;
  }
  const auto folder = std::filesystem::absolute(argv[2]);
  const std::string program = argc == 5 ? argv[4] : SENTREL_PROGRAM;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  try {
    HeadlessDesktop desktop(kind->options);
    const auto shell = kind->start(desktop);
    std::printf("  %s\n", shell->version().c_str());
    desktop.exportToProcess();
    qputenv("QT_QPA_PLATFORM", kind->wayland ? "wayland" : "xcb");  // for the document, not for the program
    QLoggingCategory::setFilterRules(QStringLiteral("qt.gui.imageio.warning=false"));
    QGuiApplication application(argc, argv);
    return DesktopTrial(desktop, *kind, *shell, folder, program, clicks).run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sentrel-try-desktop: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
