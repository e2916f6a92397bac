// SPDX-License-Identifier: Apache-2.0
//
// sentrel-bench-overlay [seconds]: prints the cost of the overlay at 1080p on a private X server, through the
// real manager and its flash, and the time that painting takes. A run has this many seconds, 30 unless told.
#include <sys/mman.h>
#include <sys/resource.h>

#include <QEventLoop>
#include <QGuiApplication>
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "linux/desktop/qt_main_loop.h"
#include "linux/desktop/system_clock.h"
#include "linux/overlay/create_overlay_backend.h"
#include "linux/overlay/painter/scene_painter.h"
#include "overlay/overlay_window_manager.h"
#include "support/headless_desktop.h"

namespace {

using namespace sentrel;  // NOLINT(google-build-using-namespace): a program of one file
using SteadyClock = std::chrono::steady_clock;

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double elapsedSeconds(SteadyClock::time_point since) {
  return std::chrono::duration<double>(SteadyClock::now() - since).count();
}

void run(MainLoop& loop, double seconds) {
  QEventLoop events;
  const Registration end =
      loop.after(static_cast<std::int64_t>(seconds * 1000), [&events] { events.quit(); });
  events.exec();
}

void measureCpu(const char* what, MainLoop& loop, double seconds) {
  run(loop, 1);  // what comes with the change itself
  const auto begin = SteadyClock::now();
  const double before = cpuSeconds();
  run(loop, seconds);
  std::printf("%-28s %6.2f %% CPU\n", what, 100 * (cpuSeconds() - before) / elapsedSeconds(begin));
}

void measurePainting(int width, int height) {
  constexpr int runs = 101;
  const OverlayScene scene{.stripes = StripePattern{11.3137, 0x000000, 0.42, 0.75}, .veilAlpha = 0.7};
  std::vector<double> milliseconds;
  for (int i = 0; i < runs; ++i) {
    const double begin = cpuSeconds();
    // Fresh memory each time, as the buffer shared with the server is.
    const auto count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    void* memory = mmap(nullptr, count * sizeof(std::uint32_t), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) continue;
    ScenePainter(scene, width, height, 1).paint(width, height, {static_cast<std::uint32_t*>(memory), count});
    milliseconds.push_back(1000 * (cpuSeconds() - begin));
    munmap(memory, count * sizeof(std::uint32_t));
  }
  std::ranges::sort(milliseconds);
  std::printf("painting %4d x %4d         %6.2f ms CPU (median of %d)\n", width, height,
              milliseconds[runs / 2], runs);
}

void measurePresenting(OverlayBackend& backend, MainLoop& loop) {
  constexpr int runs = 101;
  const auto surface = backend.createSurface(backend.screens().at(0));
  OverlayScene scene{.stripes = StripePattern{11.3137, 0x000000, 0.42, 0.75}, .veilAlpha = 0.7};
  std::vector<double> milliseconds;
  for (int i = 0; i < runs; ++i) {
    scene.stripes->period += 0.01;
    const auto begin = SteadyClock::now();
    surface->present(scene);
    milliseconds.push_back(1000 * elapsedSeconds(begin));
    run(loop, 0.02);
  }
  std::ranges::sort(milliseconds);
  std::printf("presenting new stripes       %6.2f ms (median of %d)\n", milliseconds[runs / 2], runs);
}

void printMemory() {
  std::ifstream file("/proc/self/smaps_rollup");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("Pss:") || line.starts_with("Private_")) std::printf("%s\n", line.c_str());
  }
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 30;
  measurePainting(1920, 1080);
  measurePainting(3840, 2160);

  test::HeadlessDesktop desktop({.x11 = true});
  desktop.exportToProcess();
  qputenv("QT_QPA_PLATFORM", "offscreen");
  const QGuiApplication application(argc, argv);
  const auto loop = std::make_shared<QtMainLoop>();
  const std::shared_ptr<OverlayBackend> backend = createOverlayBackend(*loop);
  run(*loop, 1);
  if (!backend->limitation().empty()) {
    std::printf("the overlay does not work here: %s\n", backend->limitation().c_str());
    return 1;
  }
  measurePresenting(*backend, *loop);
  OverlayWindowManager manager(backend, loop, std::make_shared<SystemClock>());
  manager.currentAlpha = 0.75F;
  manager.show();
  measureCpu("stripes at rest", *loop, seconds);
  manager.isAlertMode = true;
  measureCpu("alert, flashing", *loop, seconds);
  printMemory();
  manager.hide();
  return 0;
}
