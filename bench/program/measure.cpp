// SPDX-License-Identifier: Apache-2.0
//
// sentrel-measure PROGRAM [SECONDS]: runs the program on a private desktop with a virtual camera and prints
// what it costs and how quickly it answers, one "name value" a line. Processor time and wake-ups are counted
// over runs of SECONDS, 30 unless told.
#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "program/camera_film.h"
#include "program/screen_light.h"
#include "program/tray_watcher.h"
#include "stage/child_process.h"
#include "stage/document_desktop.h"
#include "stage/headless_desktop.h"
#include "stage/state_watcher.h"
#include "stage/virtual_camera.h"

namespace sentrel::bench {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int starts = 5;
constexpr int entries = 24;
// A third alert within 15 s would be held for long.
constexpr double secondsBetweenEntries = 7.7;
constexpr seconds patience{20};
// The screen is dark when this share of its light is left: less than any state but the alert leaves.
constexpr double darkShare = 0.6;

double milli(Clock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

/// Nearest rank.
double percentile(std::vector<double> values, double share) {
  std::sort(values.begin(), values.end());
  const auto rank = static_cast<std::size_t>(std::ceil(share * static_cast<double>(values.size())));
  return values.at(std::max<std::size_t>(rank, 1) - 1);
}

void print(const char* name, double value) {
  std::printf("%s %.2f\n", name, value);
  std::fflush(stdout);
}

/// A workload that never changes, so that the figures of two machines can be compared.
double referenceMs() {
  std::vector<double> runs;
  for (int run = 0; run < 9; ++run) {
    timespec begin{};
    timespec end{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &begin);
    std::mt19937 random(1);
    std::vector<std::uint32_t> values(400'000);
    std::generate(values.begin(), values.end(), random);
    std::sort(values.begin(), values.end());
    volatile std::uint32_t used = values[values.size() / 2];
    (void)used;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
    runs.push_back(1e3 * static_cast<double>(end.tv_sec - begin.tv_sec) +
                   static_cast<double>(end.tv_nsec - begin.tv_nsec) / 1e6);
  }
  return percentile(runs, 0.5);
}

class Measurement {
 public:
  Measurement(test::HeadlessDesktop& desktop, std::string program, double runSeconds)
      : desktop_(desktop),
        programPath_(std::move(program)),
        runSeconds_(runSeconds),
        owner_(QStringLiteral("expert.mardeck.sentrel"), QDBusConnection::sessionBus(),
               QDBusServiceWatcher::WatchForRegistration),
        camera_({.name = "measured_camera", .description = "Virtual camera"}),
        watcher_([this](const test::StateWatcher::Entry& entry) { state_ = entry; }) {
    QObject::connect(&owner_, &QDBusServiceWatcher::serviceRegistered, [this] { readyAt_ = Clock::now(); });
    camera_.appear();
    desktop_.waitForNode("measured_camera");
    camera_.setSource([this](std::int64_t index) { return film_.frame(index); });
    document_.showFullScreen();
    until("the document is painted", [this] { return document_.isPainted(); });
  }

  void run() {
    print("reference_ms", referenceMs());
    measureStarts();
    pause(5);
    {
      const Usage still = measured();
      print("cpu_percent_10fps_still", still.cpuPercent);
      print("wakeups_per_s_nominal", still.wakeUpsPerSecond);
      print("pss_mib_protecting", test::ProcessUsage::of(program_.pid()).proportionalMib);
    }
    film_.show(CameraFilm::Scene::moving);
    pause(2);
    print("cpu_percent_10fps_moving", measured().cpuPercent);
    film_.show(CameraFilm::Scene::still);
    measureEntries();
    watcher_.activateAction(QStringLiteral("toggle"));
    untilState("inactive");
    pause(7);  // five seconds after the camera is closed its daemon suspends it, and tells everybody once
    {
      const Usage off = measured();
      print("wakeups_per_s_off", off.wakeUpsPerSecond);
      print("cpu_percent_off", off.cpuPercent);
      print("pss_mib_off", test::ProcessUsage::of(program_.pid()).proportionalMib);
    }
    quit();
  }

 private:
  struct Usage {
    double cpuPercent = 0;
    double wakeUpsPerSecond = 0;
  };

  void until(const std::string& what, const std::function<bool()>& condition) {
    const auto end = Clock::now() + patience;
    while (!condition()) {
      if (Clock::now() > end) {
        throw std::runtime_error("waited in vain until " + what + "; the program printed:\n" +
                                 program_.output());
      }
      QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
      std::this_thread::sleep_for(milliseconds(1));
    }
  }
  void untilState(const std::string& state) {
    until("the state is " + state, [&] { return state_.state == state; });
  }
  void pause(double length) {
    const auto end = Clock::now() + std::chrono::duration<double>(length);
    until("time has passed", [&] { return Clock::now() >= end; });
  }

  Usage measured() {
    const auto begin = Clock::now();
    const test::ProcessUsage before = test::ProcessUsage::of(program_.pid());
    // Asleep for all of it: this process must not be what disturbs the program.
    std::this_thread::sleep_for(std::chrono::duration<double>(runSeconds_));
    const test::ProcessUsage after = test::ProcessUsage::of(program_.pid());
    const double passed = milli(Clock::now() - begin) / 1000;
    if (!program_.isRunning()) throw std::runtime_error("the program ended:\n" + program_.output());
    return {100 * (after.cpuSeconds - before.cpuSeconds) / passed,
            static_cast<double>(after.wakeUps - before.wakeUps) / passed};
  }

  void start() {
    state_ = {};
    readyAt_.reset();
    tray_.forget();
    program_ = desktop_.spawn(programPath_);
  }

  void quit() {
    watcher_.activateAction(QStringLiteral("quit"));
    until("the program has ended", [this] { return !program_.isRunning(); });
  }

  void measureStarts() {
    std::vector<double> ready;
    std::vector<double> icon;
    std::vector<double> protecting;
    for (int i = 0; i < starts; ++i) {
      if (i > 0) quit();
      const auto begin = Clock::now();
      start();
      until("the program is on the bus", [this] { return readyAt_.has_value(); });
      until("the icon is in the panel", [this] { return tray_.iconAt().has_value(); });
      untilState("nominal");
      icon.push_back(milli(*tray_.iconAt() - begin));
      ready.push_back(milli(*readyAt_ - begin));
      protecting.push_back(milli(state_.at - begin));
    }
    print("ms_start_to_ready", percentile(ready, 0.5));
    print("ms_start_to_tray", percentile(icon, 0.5));
    print("ms_start_to_protected", percentile(protecting, 0.5));
  }

  void measureEntries() {
    const ScreenLight screen;
    std::mt19937 random(7);
    std::vector<double> delays;
    int unseen = 0;
    auto next = Clock::now() + seconds(2);
    for (int i = 0; i < entries; ++i) {
      until("the time has come", [&] { return Clock::now() >= next; });
      next =
          Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
                             secondsBetweenEntries + std::uniform_real_distribution<double>(0, 0.2)(random)));
      const double calm = screen.now();
      film_.show(CameraFilm::Scene::onlooker);
      const auto end = Clock::now() + seconds(5);
      // Not by way of the event loop: only the screen counts.
      while (screen.now() > darkShare * calm && Clock::now() < end)
        std::this_thread::sleep_for(milliseconds(1));
      const auto dark = Clock::now();
      const auto shown = film_.onlookerShownAt();
      if (shown) delays.push_back(milli(dark - *shown));
      unseen += dark >= end ? 1 : 0;
      film_.show(CameraFilm::Scene::still);
      until("the screen is calm again", [&] { return screen.now() > 0.9 * calm; });
      untilState("nominal");
    }
    std::printf("# onlooker to dark: %zu entries, %d of them not answered within 5 s\n", delays.size(),
                unseen);
    print("ms_onlooker_to_dark_p50", percentile(delays, 0.5));
    print("ms_onlooker_to_dark_p95", percentile(delays, 0.95));
  }

  test::HeadlessDesktop& desktop_;
  const std::string programPath_;
  const double runSeconds_;
  CameraFilm film_;
  test::DocumentDesktop document_;
  std::optional<Clock::time_point> readyAt_;
  test::StateWatcher::Entry state_;
  QDBusServiceWatcher owner_;
  TrayWatcher tray_;
  test::VirtualCamera camera_;
  test::StateWatcher watcher_;
  test::ChildProcess program_;
};

/// The person has agreed to the camera long ago.
void completeOnboarding(const std::filesystem::path& configFolder) {
  std::filesystem::create_directories(configFolder / "sentrel");
  std::ofstream(configFolder / "sentrel" / "defaults.json") << "{\n  \"has_completed_onboarding\": true\n}\n";
}

}  // namespace
}  // namespace sentrel::bench

int main(int argc, char** argv) {
  const double runSeconds = argc == 3 ? std::atof(argv[2]) : 30;
  if (argc < 2 || argc > 3 || !(runSeconds > 0)) {
    std::fputs("usage: sentrel-measure PROGRAM [SECONDS]\n", stderr);
    return 2;
  }
  try {
    const std::string program = std::filesystem::absolute(argv[1]).string();
    sentrel::test::HeadlessDesktop desktop({.systemBus = true, .pipeWire = true, .x11 = true});
    desktop.exportToProcess();
    QLoggingCategory::setFilterRules(QStringLiteral("qt.gui.imageio.warning=false"));
    sentrel::bench::completeOnboarding(desktop.configFolder());
    const QGuiApplication application(argc, argv);
    sentrel::bench::Measurement(desktop, program, runSeconds).run();
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sentrel-measure: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
