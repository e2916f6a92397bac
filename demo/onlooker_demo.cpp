// SPDX-License-Identifier: Apache-2.0
#include <QTimer>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "program_trial.h"
#include "stage/pictures.h"

namespace sentrel::test {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using SteadyClock = std::chrono::steady_clock;

constexpr const char* wantedOrder = "nominal inattention nominal alert nominal";

/// The alert's tint pulses every 800 ms, from nothing: once at its height, when the dot of the onlooker's
/// picture is bright, too, and once without it. Taking a picture begins up to a tenth of a second after it
/// was asked for.
constexpr milliseconds alertPictureDelay{2700};
constexpr milliseconds dimAlertPictureDelay{3100};
constexpr milliseconds calmBeforeEnd{2000};
/// A limit for a machine on which something is broken; nothing is judged by it.
constexpr seconds endLimit{20};

constexpr double awayDegrees = 60;
constexpr SecondFace onlooker{.x = 535, .y = 130, .width = 80};
constexpr double outsideX = PortraitScene::width + 80;

/// What the camera shows: the user alone and looking; the head turns away and is held so; looking again; a
/// second face comes in behind and leaves; calm for good.
class OnlookerScene {
 public:
  // Moments in milliseconds since the beginning; each movement takes `movementMs`.
  static constexpr std::int64_t movementMs = 800;
  static constexpr std::int64_t turnAwayMs = 6'000;
  static constexpr std::int64_t turnBackMs = turnAwayMs + movementMs + 10'000;
  static constexpr std::int64_t enterMs = turnBackMs + movementMs + 4'000;
  static constexpr std::int64_t leaveMs = enterMs + movementMs + 5'000;
  static constexpr std::int64_t calmMs = leaveMs + movementMs;
  static constexpr std::pair<std::int64_t, const char*> events[] = {
      {0, "the user is alone and looks at the screen"},
      {turnAwayMs, "the head turns away and is held so for 10 s"},
      {turnBackMs, "the head turns back"},
      {turnBackMs + movementMs, "the user looks at the screen again"},
      {enterMs, "a second face comes in behind"},
      {leaveMs, "the second face leaves"},
      {calmMs, "the user is alone again"},
  };

  /// Renders every different frame beforehand; takes about a second.
  OnlookerScene() {
    const PortraitScene portrait;
    std::map<std::pair<double, double>, std::size_t> known;
    for (std::int64_t frame = 0; frame * 1000 / fps <= calmMs; ++frame) {
      const SceneState state = stateAt(frame * 1000 / fps);
      const std::pair key(state.yawDegrees, state.secondFace ? state.secondFace->x : outsideX);
      const auto [found, isNew] = known.try_emplace(key, pictures_.size());
      if (isNew) pictures_.push_back(portrait.frame(state));
      pictureOfFrame_.push_back(found->second);
    }
  }

  /// 640 x 480 BGRA; the last one stays after the end. Any thread.
  [[nodiscard]] const std::uint8_t* frame(std::int64_t index) const {
    const auto last = static_cast<std::int64_t>(pictureOfFrame_.size()) - 1;
    return pictures_[pictureOfFrame_[static_cast<std::size_t>(std::clamp<std::int64_t>(index, 0, last))]]
        .constBits();
  }

 private:
  static constexpr int fps = 30;  // of the camera

  /// 0 before, 1 after, and in between as a head moves: slowly off, quickly through, slowly in.
  static double moved(std::int64_t ms, std::int64_t beginMs) {
    const double t =
        std::clamp(static_cast<double>(ms - beginMs) / static_cast<double>(movementMs), 0.0, 1.0);
    return t * t * (3 - 2 * t);
  }
  static SceneState stateAt(std::int64_t ms) {
    SceneState state;
    state.yawDegrees = awayDegrees * (moved(ms, turnAwayMs) - moved(ms, turnBackMs));
    const double inside = moved(ms, enterMs) - moved(ms, leaveMs);
    if (inside > 0) {
      state.secondFace = onlooker;
      state.secondFace->x = outsideX + inside * (onlooker.x - outsideX);
    }
    return state;
  }

  std::vector<QImage> pictures_;
  std::vector<std::size_t> pictureOfFrame_;
};

class OnlookerDemo final : public ProgramTrial {
 public:
  using ProgramTrial::ProgramTrial;
  ~OnlookerDemo() override { camera_.vanish(); }
  OnlookerDemo(const OnlookerDemo&) = delete;
  OnlookerDemo& operator=(const OnlookerDemo&) = delete;

 private:
  struct Shot {
    std::string name;
    ChildProcess process;
  };

  void play() override {
    showDocument();
    camera_.appear();
    desktop_.waitForNode("demo_camera");
    camera_.setSource([this](std::int64_t index) {
      if (firstFrame_ == 0) firstFrame_ = SteadyClock::now().time_since_epoch().count();
      return scene_.frame(index);
    });
    say("the program starts");
    start();
    waitFor("the camera is open", [this] { return firstFrame_ != 0; });
    began_ = SteadyClock::time_point(SteadyClock::duration(firstFrame_));
    say("the camera is open: the scene begins");
    for (const auto& [atMs, words] : OnlookerScene::events) {
      const auto left = *began_ + milliseconds(atMs) - SteadyClock::now();
      QTimer::singleShot(std::max(milliseconds(0), std::chrono::ceil<milliseconds>(left)), Qt::PreciseTimer,
                         &timers_, [this, words = words] { say(std::string("scene: ") + words); });
    }
    const auto isOver = [this] { return isCalm() || !program_.isRunning(); };
    (void)runUntil(isOver, milliseconds(OnlookerScene::calmMs) + endLimit);
    if (!program_.isRunning()) throw std::runtime_error("the program ended");
    for (auto& [name, process] : shots_) {
      if (process.waitForExit(endLimit) != 0)
        throw std::runtime_error("no picture " + name + ": " + process.output());
    }
    const auto entries = watcher_.entries();  // before it quits
    quit();
    judge(entries);
  }

  void stateChanged(const StateWatcher::Entry& entry) override {
    say("state: " + entry.state);
    const std::string name = "0" + std::to_string(watcher_.entries().size()) + "-" + entry.state;
    if (entry.state != "alert") return shoot(name, pictureDelay_);
    shoot(name, alertPictureDelay);
    shoot(name + "-dim", dimAlertPictureDelay);
  }

  void shoot(const std::string& name, milliseconds after) {
    // Not waited for: the changes that arrive meanwhile must be stamped in time.
    QTimer::singleShot(after, &timers_, [this, name] {
      shots_.push_back({name, desktop_.beginScreenshot(pathOf(name))});
    });
  }

  [[nodiscard]] bool isCalm() const {
    const auto& entries = watcher_.entries();
    const auto end = *began_ + milliseconds(OnlookerScene::calmMs);
    return isIn("nominal") && SteadyClock::now() - std::max(entries.back().at, end) >= calmBeforeEnd;
  }

  void say(const std::string& words) const {
    if (began_) {
      std::printf("  %6.2f s  %s\n", static_cast<double>(sinceBeginning(SteadyClock::now())) / 1000,
                  words.c_str());
    } else {
      std::printf("            %s\n", words.c_str());
    }
  }

  /// Milliseconds since the scene began; 0 for what came before.
  [[nodiscard]] std::int64_t sinceBeginning(SteadyClock::time_point moment) const {
    return std::max<std::int64_t>(
        0, std::chrono::duration_cast<milliseconds>(moment - began_.value_or(moment)).count());
  }

  void judge(const std::vector<StateWatcher::Entry>& entries) const {
    std::ofstream file(folder_ / "timeline.tsv");
    std::string order;
    std::printf("\nStates (milliseconds since the scene began):\n");
    for (const auto& [at, state] : entries) {
      std::printf("%8lld  %s\n", static_cast<long long>(sinceBeginning(at)), state.c_str());
      file << sinceBeginning(at) << '\t' << state << '\n';
      order += (order.empty() ? "" : " ") + state;
    }
    std::printf("Pictures and timeline.tsv are in %s\n", folder_.c_str());
    if (order != wantedOrder)
      throw std::runtime_error("the states came in the order: " + order + "\n  wanted: " + wantedOrder);
    judgeCovers({"00-uncovered", "01-nominal", "02-inattention", "04-alert"});
    std::printf("The states came in the right order.\n");
  }

  const OnlookerScene scene_;
  std::vector<Shot> shots_;
  // Written by the camera's thread at the first frame; of the steady clock, 0 before.
  std::atomic<SteadyClock::rep> firstFrame_ = 0;
  std::optional<SteadyClock::time_point> began_;
  QObject timers_;  // the context of those that still run
};

}  // namespace

std::unique_ptr<ProgramTrial> onlookerDemo(HeadlessDesktop& desktop, const std::filesystem::path& folder,
                                           const std::string& program) {
  return std::make_unique<OnlookerDemo>(desktop, folder, program);
}

}  // namespace sentrel::test
