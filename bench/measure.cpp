// SPDX-License-Identifier: Apache-2.0
//
// sentrel-measure PROGRAM [SECONDS]: runs the program on a private desktop with a virtual camera and prints
// what it costs and how quickly it answers, one "name value" a line. Processor time and wake-ups are counted
// over runs of SECONDS, 26 unless told. What ends in "720p" is measured with a camera of 1280x720.
#include <xcb/xcb.h>

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QGuiApplication>
#include <QImage>
#include <QLoggingCategory>
#include <QPainter>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "coarse_pass.h"
#include "figures.h"
#include "film.h"
#include "stage/child_process.h"
#include "stage/document_desktop.h"
#include "stage/headless_desktop.h"
#include "stage/pictures.h"
#include "stage/state_watcher.h"
#include "stage/virtual_camera.h"

namespace sentrel::bench {

/// A panel that takes the program's icon and notes when it came. On the session bus, on the main thread.
class TrayWatcher final : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
  Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hasHost)

 public:
  TrayWatcher() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerObject(QStringLiteral("/StatusNotifierWatcher"), this,
                            QDBusConnection::ExportAllContents) ||
        !bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher")))
      throw std::runtime_error("there is another panel");
  }

  [[nodiscard]] static bool hasHost() { return true; }
  [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> iconAt() const { return iconAt_; }
  void forget() { iconAt_.reset(); }

 public Q_SLOTS:
  // NOLINTNEXTLINE: the name is the interface's
  void RegisterStatusNotifierItem(const QString& /*service*/) { iconAt_ = std::chrono::steady_clock::now(); }

 private:
  std::optional<std::chrono::steady_clock::time_point> iconAt_;
};

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

constexpr int starts = 5;
constexpr int countedRuns = 5;  // of every cost
constexpr int entries = 24;
// A third alert within 15 s would be held for long.
constexpr double secondsBetweenEntries = 7.7;
// Five seconds after the camera is closed its daemon suspends it, and tells everybody once.
constexpr double closedCameraSettles = 7;
constexpr seconds longestWait{20};
// The screen is dark when this share of its light is left: less than any state but the alert leaves.
constexpr double darkShare = 0.6;

/// A workload that never changes, so that the figures of two machines can be compared.
double referenceMs() {
  std::vector<double> runs;
  for (int run = 0; run < 9; ++run) {
    const double begin = threadMilliseconds();
    std::mt19937 random(1);
    std::vector<std::uint32_t> values(400'000);
    std::generate(values.begin(), values.end(), random);
    std::sort(values.begin(), values.end());
    volatile std::uint32_t used = values[values.size() / 2];
    (void)used;
    runs.push_back(threadMilliseconds() - begin);
  }
  return median(runs);
}

// Across the middle of the screen, over many stripes.
constexpr std::int16_t left = 200;
constexpr std::int16_t top = 540;
constexpr std::uint16_t width = 512;
constexpr std::uint16_t height = 8;

struct Release {
  void operator()(void* reply) const { std::free(reply); }  // NOLINT(cppcoreguidelines-no-malloc)
};

/// How bright a strip of the X screen is, as it is composed at the moment: what a person there would see.
class ScreenLight {
 public:
  /// Uses the display that the environment names. Throws std::runtime_error without one.
  ScreenLight() : xcb_(xcb_connect(nullptr, nullptr), &xcb_disconnect) {
    if (xcb_connection_has_error(xcb_.get()) != 0)
      throw std::runtime_error("there is no X display to look at");
    root_ = xcb_setup_roots_iterator(xcb_get_setup(xcb_.get())).data->root;
  }

  /// The mean of all colours, 0 to 255. Takes about half a millisecond.
  [[nodiscard]] double now() const {
    const std::unique_ptr<xcb_get_image_reply_t, Release> image(xcb_get_image_reply(
        xcb_.get(),
        xcb_get_image(xcb_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, root_, left, top, width, height, ~0U), nullptr));
    if (!image) throw std::runtime_error("the X display shows nothing");
    const std::span bytes(xcb_get_image_data(image.get()),
                          static_cast<std::size_t>(xcb_get_image_data_length(image.get())));
    double sum = 0;
    for (std::size_t i = 0; i + 3 < bytes.size(); i += 4) sum += bytes[i] + bytes[i + 1] + bytes[i + 2];
    return bytes.empty() ? 0 : sum / (static_cast<double>(bytes.size()) / 4 * 3);
  }

 private:
  std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> xcb_;
  xcb_window_t root_ = XCB_WINDOW_NONE;
};

constexpr int cameraFramesPerSecond = 30;
constexpr int noiseVariants = 4;
constexpr double movingSeconds = 6.3;    // some rounds of a camera that swings
constexpr double workingSeconds = 25.8;  // until a person's sway and turns begin anew together

QImage toImage(const Frame& frame) {
  return QImage(frame.data(), frame.width(), frame.height(), frame.stride(), QImage::Format_RGB32).copy();
}

/// What the virtual camera shows to the measured program: a user, with the noise of a camera in every frame.
class CameraFilm {
 public:
  using Scene = Film::Scene;

  CameraFilm() {
    const test::PortraitScene portrait;
    const QImage alone = portrait.frame({});
    const QRectF box = portrait.faceBox();
    const vision::Region face{box.x(), box.y(), box.width(), box.height()};
    still_ = filmed(alone, face, Scene::still, noiseVariants, 1);
    moving_ = filmed(alone, face, Scene::moving, static_cast<int>(movingSeconds * cameraFramesPerSecond), 1);
    // Analysed are ten frames a second; those between them would take half a gibibyte more.
    working_ =
        filmed(alone, face, Scene::working, static_cast<int>(workingSeconds * cameraFramesPerSecond), 3);
    for (const double x : {520.0, 555.0, 590.0, 95.0, 60.0}) {
      for (const double y : {110.0, 150.0}) {
        const QImage both =
            portrait.frame({0, test::SecondFace{x, y, onlookerWidth * test::PortraitScene::width}});
        onlookers_.push_back({filmed(both, face, Scene::still, noiseVariants, 1), difference(alone, both)});
      }
    }
    shown_ = &still_;
  }

  /// From the next frame on, without an onlooker.
  void show(Scene scene) {
    onlooker_ = nullptr;
    shown_ = scene == Scene::still ? &still_ : scene == Scene::working ? &working_ : &moving_;
  }

  /// From the next frame on somebody else is in it, each time at another place.
  void showOnlooker() {
    onlookerNs_ = 0;
    onlooker_ = &onlookers_[nextPlace_++ % onlookers_.size()];
  }

  /// When the first frame with the onlooker was handed on, or nothing yet.
  [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> onlookerShownAt() const {
    const std::int64_t ns = onlookerNs_;
    if (ns == 0) return std::nullopt;
    return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(ns));
  }

  /// The picture of a frame, 640 x 480 BGRA. On the camera's thread.
  [[nodiscard]] const std::uint8_t* frame(std::int64_t index) {
    const auto at = static_cast<std::size_t>(index);
    const Pictures& pictures = *shown_;
    const QImage& alone = pictures[at % pictures.size()];
    const Onlooker* onlooker = onlooker_;
    if (onlooker == nullptr) return alone.constBits();
    if (onlookerNs_ == 0)
      onlookerNs_ = std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
    both_ = alone.copy();
    QPainter painter(&both_);
    painter.drawImage(onlooker->where.topLeft(), onlooker->pictures[at % onlooker->pictures.size()],
                      onlooker->where);
    painter.end();
    return both_.constBits();
  }

  /// The same, as a camera of 1280 x 720 shows it, wider at both sides. On the camera's thread.
  [[nodiscard]] const std::uint8_t* largerFrame(std::int64_t index) {
    const QImage small(frame(index), test::PortraitScene::width, test::PortraitScene::height,
                       QImage::Format_RGB32);
    if (larger_.isNull()) larger_ = QImage(largerWidth, largerHeight, QImage::Format_RGB32);
    const double middle = 4.0 / 3 * largerHeight;
    QPainter painter(&larger_);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(QRectF((largerWidth - middle) / 2, 0, middle, largerHeight), small);
    painter.end();
    return larger_.constBits();
  }
  static constexpr int largerWidth = 1280;
  static constexpr int largerHeight = 720;

  /// Of the onlooker's face, as a share of the frame's width.
  static constexpr double onlookerWidth = 0.08;

 private:
  using Pictures = std::vector<QImage>;  // shown in turns

  struct Onlooker {
    Pictures pictures;
    QRect where;  // in them; elsewhere is the still person
  };

  /// The smallest rectangle beyond which two pictures are the same.
  static QRect difference(const QImage& one, const QImage& other) {
    QRect where;
    for (int y = 0; y < one.height(); ++y) {
      for (int x = 0; x < one.width(); ++x) {
        if (one.pixel(x, y) != other.pixel(x, y)) where |= QRect(x, y, 1, 1);
      }
    }
    return where;
  }

  static Pictures filmed(const QImage& picture, const vision::Region& face, Scene scene, int frames,
                         int step) {
    const auto still = test::toFrame(picture);
    Film film(*still, face);
    Frame shown;
    Pictures pictures;
    for (int i = 0; i < frames; i += step) {
      film.show(scene, static_cast<double>(i) / cameraFramesPerSecond, shown);
      pictures.insert(pictures.end(), static_cast<std::size_t>(step), toImage(shown));
    }
    return pictures;
  }

  Pictures still_;
  Pictures working_;
  Pictures moving_;
  std::vector<Onlooker> onlookers_;
  QImage both_;
  QImage larger_;
  std::atomic<const Pictures*> shown_;
  std::atomic<const Onlooker*> onlooker_ = nullptr;
  std::atomic<std::int64_t> onlookerNs_ = 0;  // of the steady clock; 0 while not shown
  std::size_t nextPlace_ = 0;
};

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
    pause(15);  // until everything was looked at
    {
      const Usage still = measured();
      printCost("still", still);
      printRuns("wakeups_per_s_nominal", still.wakeUpsPerSecond);
      print("pss_mib_protecting", test::ProcessUsage::of(program_.pid()).proportionalMib);
    }
    film_.show(CameraFilm::Scene::working);
    pause(15);  // until the person's habits are known
    printCost("working", measured());
    film_.show(CameraFilm::Scene::moving);
    pause(2);
    printCost("moving", measured());
    print("coarse_pass_ms", pass_.milliseconds());
    for (const bool working : {false, true}) {
      const auto scene = working ? CameraFilm::Scene::working : CameraFilm::Scene::still;
      film_.show(scene);
      pause(working ? 15 : 2);
      measureEntries(scene, working ? "_working" : "");
    }
    film_.show(CameraFilm::Scene::still);
    measurePause();
    watcher_.activateAction(QStringLiteral("toggle"));
    untilState("inactive");
    pause(closedCameraSettles);
    {
      const Usage off = measured();
      printRuns("wakeups_per_s_off", off.wakeUpsPerSecond);
      printRuns("cpu_percent_off", off.cpuPercent);
      print("pss_mib_off", test::ProcessUsage::of(program_.pid()).proportionalMib);
    }
    quit();
    measureLarger();
  }

 private:
  /// Of several runs.
  struct Usage {
    std::vector<double> cpuPercent;
    std::vector<double> wakeUpsPerSecond;
    std::vector<double> passesPerSecond;
  };

  void printCost(const std::string& film, const Usage& usage) {
    printRuns("cpu_percent_10fps_" + film, usage.cpuPercent);
    printRuns("passes_per_s_" + film, usage.passesPerSecond, 1);
  }

  void until(const std::string& what, const std::function<bool()>& condition) {
    const auto end = Clock::now() + longestWait;
    while (!condition()) {
      if (Clock::now() > end) {
        throw std::runtime_error("waited in vain until " + what + "; the program printed:\n" +
                                 program_.output());
      }
      QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
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
    Usage usage;
    for (int run = 0; run < countedRuns; ++run) {
      const double passMs = pass_.milliseconds();
      const auto begin = Clock::now();
      const auto end = begin + std::chrono::duration<double>(runSeconds_);
      test::ProcessUsage last = test::ProcessUsage::of(program_.pid());
      const double cpuBefore = last.cpuSeconds;
      std::int64_t wakeUps = 0;
      while (Clock::now() < end) {
        // Asleep nearly all the time: this process must not be what disturbs the program. What a thread did
        // since the last second is lost when it ends.
        std::this_thread::sleep_for(std::min<std::chrono::duration<double>>(seconds(1), end - Clock::now()));
        test::ProcessUsage now = test::ProcessUsage::of(program_.pid());
        wakeUps += now.wakeUpsSince(last);
        last = std::move(now);
      }
      const double passed = milliseconds(Clock::now() - begin) / 1000;
      if (!program_.isRunning()) throw std::runtime_error("the program ended:\n" + program_.output());
      usage.cpuPercent.push_back(100 * (last.cpuSeconds - cpuBefore) / passed);
      usage.wakeUpsPerSecond.push_back(static_cast<double>(wakeUps) / passed);
      usage.passesPerSecond.push_back(usage.cpuPercent.back() * 10 / passMs);
    }
    return usage;
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

  /// The same person before a camera with more pixels.
  void measureLarger() {
    camera_.vanish();
    test::VirtualCamera camera(
        {.name = "larger_camera",
         .description = "Larger camera",
         .modes = {{.width = 640, .height = 480},
                   {.width = CameraFilm::largerWidth, .height = CameraFilm::largerHeight}}});
    camera.appear();
    desktop_.waitForNode("larger_camera");
    camera.setSource([this](std::int64_t index) { return film_.largerFrame(index); });
    start();
    const auto isLarger = [&] {
      const auto mode = camera.agreedMode();
      return mode && mode->height == CameraFilm::largerHeight;
    };
    until("the camera's larger picture is taken", isLarger);
    untilState("nominal");
    film_.show(CameraFilm::Scene::working);
    pause(15);
    printCost("working_720p", measured());
    print("pss_mib_protecting_720p", test::ProcessUsage::of(program_.pid()).proportionalMib);
    quit();
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
      icon.push_back(milliseconds(*tray_.iconAt() - begin));
      ready.push_back(milliseconds(*readyAt_ - begin));
      protecting.push_back(milliseconds(state_.at - begin));
    }
    print("ms_start_to_ready", median(ready));
    print("ms_start_to_tray", median(icon));
    print("ms_start_to_protected", median(protecting));
  }

  void measurePause() {
    desktop_.run(programPath_, {"pause", "1h"});
    untilState("autoPaused");
    pause(closedCameraSettles);
    printRuns("wakeups_per_s_paused", measured().wakeUpsPerSecond);
    desktop_.run(programPath_, {"resume"});
    untilState("nominal");
  }

  /// While the camera shows `scene`; `suffix` is that of the figures' names.
  void measureEntries(CameraFilm::Scene scene, const std::string& suffix) {
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
      film_.showOnlooker();
      const auto end = Clock::now() + seconds(5);
      // Not by way of the event loop: only the screen counts.
      while (screen.now() > darkShare * calm && Clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      const auto dark = Clock::now();
      const auto shown = film_.onlookerShownAt();
      if (shown) delays.push_back(milliseconds(dark - *shown));
      unseen += dark >= end ? 1 : 0;
      film_.show(scene);
      until("the screen is calm again", [&] { return screen.now() > 0.9 * calm; });
      untilState("nominal");
    }
    std::printf("# onlooker to dark%s: %zu entries, %d of them not answered within 5 s\n", suffix.c_str(),
                delays.size(), unseen);
    print("ms_onlooker_to_dark" + suffix + "_p50", median(delays));
    print("ms_onlooker_to_dark" + suffix + "_p95", percentile(delays, 0.95));
  }

  test::HeadlessDesktop& desktop_;
  const std::string programPath_;
  const double runSeconds_;
  CoarsePass pass_{vision::readModels(test::modelFolderPath().toStdString())};
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
  const double runSeconds = argc == 3 ? std::atof(argv[2]) : 26;
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

#include "measure.moc"
