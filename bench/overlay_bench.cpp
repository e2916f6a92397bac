// SPDX-License-Identifier: Apache-2.0
//
// sentrel-bench-overlay x11|wayland [seconds]: prints what the overlay costs on a private desktop, through
// the real manager, its flash and the real back end, as lines "name value". Processor time is that of this
// process, in percent of one core, over runs of this many seconds, 30 unless told; durations are medians.
#include <sys/mman.h>

#include <QEventLoop>
#include <QGuiApplication>
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "figures.h"
#include "linux/desktop/qt_main_loop.h"
#include "linux/overlay/desktop_overlay_backend.h"
#include "linux/overlay/painter/retro_painter.h"
#include "linux/overlay/painter/scene_painter.h"
#include "overlay/overlay_window_manager.h"
#include "overlay/retro_pip_manager.h"
#include "overlay_bench_backend.h"
#include "stage/headless_desktop.h"

namespace {

using namespace sentrel;         // NOLINT(google-build-using-namespace): a program of one file
using namespace sentrel::bench;  // NOLINT(google-build-using-namespace)
using SteadyClock = std::chrono::steady_clock;

constexpr int repetitions = 51;
constexpr NormalizedRect distantFace{0.7, 0.6, 0.15, 0.2};

/// Memory that belongs to this process alone, in MiB.
double privateMemory() {
  std::ifstream file("/proc/self/smaps_rollup");
  double kibibytes = 0;
  for (std::string name, rest; file >> name; std::getline(file, rest)) {
    if (name == "Private_Clean:" || name == "Private_Dirty:") kibibytes += std::stod(rest);
  }
  return kibibytes / 1024;
}

/// What another process maps of the pictures that it was given, in MiB.
double picturesMappedBy(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/smaps");
  double kibibytes = 0;
  bool ours = false;
  for (std::string line; std::getline(file, line);) {
    if (line.find(' ') < line.find(':') || line.find("memfd:") != std::string::npos) {
      ours = line.find("memfd:sentrel-overlay") != std::string::npos;
    } else if (ours && line.starts_with("Rss:")) {
      kibibytes += std::stod(line.substr(4));
    }
  }
  return kibibytes / 1024;
}

FrameRef testFrame() {
  FramePool pool(1);
  auto frame = pool.acquire(640, 480);
  for (int i = 0; i < 640 * 480 * 4; ++i) frame->data()[i] = static_cast<std::uint8_t>(i * 7 + i / 640);
  return frame;
}

/// The picture-in-picture as it is painted for every frame, on a screen of this scale.
void measurePicture(const std::string& name, double scale, const std::optional<NormalizedRect>& face) {
  const FrameRef frame = testFrame();
  GreyPicture picture;
  RetroPainter painter(scale);
  std::vector<std::uint32_t> pixels(static_cast<std::size_t>(painter.width() * painter.height()));
  std::vector<double> times;
  for (int i = 0; i < repetitions; ++i) {
    const double begin = cpuSeconds();
    copyGrey(*frame, retroCrop(frame->width(), frame->height(), face), picture);
    painter.paint(&picture, pixels);
    times.push_back(1000 * (cpuSeconds() - begin));
  }
  print(name, median(times));
}

/// Painting the stripes and the veil of a whole screen.
void measureStripes(const std::string& name, int width, int height) {
  const OverlayScene scene{.stripes = StripePattern{11.3137, 0x000000, 0.42, 0.75}, .veilAlpha = 0.7};
  const std::size_t bytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
  std::vector<double> times;
  for (int i = 0; i < repetitions; ++i) {
    const double begin = cpuSeconds();
    // Fresh memory each time, as the buffer shared with the server is.
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("there is not enough memory for a picture");
    ScenePainter(scene, width, height, 1)
        .paint(width, height, {static_cast<std::uint32_t*>(memory), bytes / 4});
    times.push_back(1000 * (cpuSeconds() - begin));
    munmap(memory, bytes);
  }
  print(name, median(times));
}

/// One desktop with one screen of this size, and the overlay on it.
class Bench {
 public:
  Bench(bool wayland, int width, int height)
      : wayland_(wayland),
        width_(width),
        height_(height),
        desktop_({.x11 = !wayland, .sway = wayland, .width = wayland ? width : 2 * width, .height = height}) {
    desktop_.exportToProcess();
    if (!wayland) setMonitor("first", 0, "screen");
    backend_ = std::make_shared<bench::OverlayBenchBackend>(createOverlayBackend(*loop_));
    runUntil([this] { return backend_->limitation().empty() && backend_->screens().size() == 1; });
    manager_ = std::make_shared<OverlayWindowManager>(backend_, loop_, clock_);
    retro_.emplace(manager_, loop_, clock_);
    manager_->currentAlpha = 0.75F;
  }

  void measureMemory(const std::string& name) {
    // With what is loaded only once: fonts, icons, texts.
    const double before = privateMemory();
    showAlert();
    run(500);
    print(name + "_private_mib", privateMemory() - before);
    if (wayland_) print(name + "_compositor_mib", picturesMappedBy(desktop_.swayPid()));
    hide();
  }

  /// From the assignment until the scene has been sent. The first figure is what the person waits, and grows
  /// with whatever else runs on the machine; the second is what this thread works meanwhile.
  void measureStateChange(const std::string& name) {
    manager_->show();
    run(500);
    std::vector<double> times;
    std::vector<double> processorTimes;
    for (int i = 0; i < repetitions; ++i) {
      const int presented = backend_->presented();
      const auto begin = SteadyClock::now();
      const double processorBegin = threadMilliseconds();
      // As the service does it: the opacity at once, the rest in the next turn.
      const bool alert = !manager_->isAlertMode;
      manager_->currentAlpha = alert ? 0.75F : 0.45F;
      loop_->post([this, alert] { manager_->isAlertMode = alert; });
      runUntil([&] { return backend_->presented() > presented; });
      times.push_back(millisecondsSince(begin));
      processorTimes.push_back(threadMilliseconds() - processorBegin);
      run(50);
    }
    print(name + "_ms", median(times));
    print(name + "_cpu_ms", median(processorTimes));
    hide();
  }

  void measureCpu(const std::string& name, double seconds, bool alert, bool picture) {
    manager_->show();
    run(200);
    manager_->isAlertMode = alert;
    Registration frames;
    if (picture) {
      retro_->openWindow();
      frames = loop_->every(66, [this, frame = testFrame()] { retro_->renderFrame(frame, distantFace); });
    }
    run(1000);  // what comes with the change itself
    const auto begin = SteadyClock::now();
    const double before = cpuSeconds();
    run(static_cast<std::int64_t>(seconds * 1000));
    print(name, 100 * 1000 * (cpuSeconds() - before) / millisecondsSince(begin));
    hide();
  }

  /// From before the output is asked for to its cover.
  void measureNewOutput(const std::string& name) {
    manager_->show();
    run(500);
    const auto begin = SteadyClock::now();
    if (wayland_) {
      desktop_.run("swaymsg", {"create_output"});
    } else {
      setMonitor("second", width_, "none");
    }
    runUntil([this] { return backend_->shownSurfaces() == 2; });
    print(name, millisecondsSince(begin));
    hide();
  }

 private:
  void setMonitor(const std::string& name, int x, const std::string& output) {
    desktop_.run("xrandr", {"--setmonitor", name,
                            std::to_string(width_) + "/508x" + std::to_string(height_) + "/286+" +
                                std::to_string(x) + "+0",
                            output});
  }
  void showAlert() {
    manager_->show();
    manager_->isAlertMode = true;
    run(500);
  }
  void hide() {
    manager_->isAlertMode = false;
    manager_->currentAlpha = 0.75F;
    manager_->hide();
    retro_->hide();
    run(200);
  }
  void run(std::int64_t milliseconds) {
    QEventLoop events;
    const Registration end = loop_->after(milliseconds, [&events] { events.quit(); });
    events.exec();
  }
  void runUntil(const std::function<bool()>& condition) {
    const auto begin = SteadyClock::now();
    while (!condition()) {
      if (millisecondsSince(begin) > 20'000) throw std::runtime_error("the overlay does not work here");
      QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 1);
    }
  }

  const bool wayland_;
  const int width_;
  const int height_;
  test::HeadlessDesktop desktop_;
  std::shared_ptr<QtMainLoop> loop_ = std::make_shared<QtMainLoop>();
  std::shared_ptr<SystemClock> clock_ = std::make_shared<SystemClock>();
  std::shared_ptr<bench::OverlayBenchBackend> backend_;
  std::shared_ptr<OverlayWindowManager> manager_;
  std::optional<RetroPiPManager> retro_;
};

void measure(const std::string& desktop, double seconds) {
  const std::string prefix = "overlay_" + desktop + "_";
  const bool wayland = desktop == "wayland";
  {
    Bench bench(wayland, 1920, 1080);
    bench.measureMemory(prefix + "1080p");
    bench.measureStateChange(prefix + "1080p_change");
    bench.measureCpu(prefix + "1080p_static_cpu", seconds, false, false);
    bench.measureCpu(wayland ? prefix + "1080p_flashing_cpu" : "cpu_percent_overlay_flash_1080p", seconds,
                     true, false);
    bench.measureCpu(prefix + "1080p_flashing_with_picture_cpu", seconds, true, true);
    bench.measureNewOutput(prefix + "new_output_ms");
  }
  {
    Bench bench(wayland, 3840, 2160);
    bench.measureStateChange(prefix + "2160p_change");
    bench.measureCpu(prefix + "2160p_flashing_cpu", seconds, true, false);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string desktop = argc > 1 ? argv[1] : "";
  if (desktop != "x11" && desktop != "wayland") {
    std::fputs("usage: sentrel-bench-overlay x11|wayland [seconds]\n", stderr);
    return 2;
  }
  const double seconds = argc > 2 ? std::atof(argv[2]) : 30;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  qputenv("QT_QPA_PLATFORM", "offscreen");
  try {
    const QGuiApplication application(argc, argv);
    measureStripes("ms_stripes_1080p", 1920, 1080);
    measureStripes("ms_stripes_2160p", 3840, 2160);
    measurePicture("picture_frame_ms", 1, distantFace);
    measurePicture("picture_whole_frame_2x_ms", 2, {});
    measure(desktop, seconds);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sentrel-bench-overlay: %s\n", error.what());
    return 1;
  }
  return 0;
}
