// SPDX-License-Identifier: Apache-2.0
//
// sentrel-demo FOLDER: runs the program on a private desktop with a virtual camera that plays a scene, and
// leaves in the folder its states over time (timeline.tsv) and pictures of the screen. Fails when the states
// do not come in the order that the scene asks for.
#include <QGuiApplication>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>

#include "desktop/demo.h"
#include "support/headless_desktop.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: sentrel-demo FOLDER\n", stderr);
    return 2;
  }
  // The portrait's colour profile is known to be odd; that helps nobody here.
  qputenv("QT_LOGGING_RULES", "qt.gui.imageio.warning=false");
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  try {
    sentrel::test::HeadlessDesktop desktop({.pipeWire = true, .x11 = true});
    desktop.exportToProcess();
    QGuiApplication application(argc, argv);
    sentrel::test::Demo demo(desktop, std::filesystem::absolute(argv[1]));
    QTimer::singleShot(0, &demo, &sentrel::test::Demo::begin);
    return QGuiApplication::exec();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sentrel-demo: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
