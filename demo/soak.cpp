// SPDX-License-Identifier: Apache-2.0
//
// sentrel-soak MINUTES FOLDER [SEED] [PROGRAM] [races]: the program, the one of this build unless another is
// named, with a random life on a private desktop. Fails when the program breaks one of its promises or leaves
// something behind; or, for races, when the thread sanitizer that it was built with reports one: its cameras
// then give 60 frames a second, and it may be late. Leaves a log in the folder.
#include <QCoreApplication>
#include <QString>
#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "soak_life.h"
#include "stage/headless_desktop.h"

namespace sentrel::test {

namespace fs = std::filesystem;
using std::chrono::seconds;
using SteadyClock = std::chrono::steady_clock;

namespace {

constexpr int happeningsBetweenRests = 24;
constexpr int mostBreaches = 20;
constexpr double mostGrowthMib = 1;
constexpr int leastRests = 6;   // fewer do not show growth
constexpr seconds warmUp{120};  // the heap, the pools of frames and of threads
constexpr seconds settling{6};  // PipeWire suspends a camera 5 s after it was closed

std::string kinds(const ProcessUsage& before, const ProcessUsage& after) {
  std::string words;
  std::map<std::string, int> changes = after.descriptors;
  for (const auto& [kind, count] : before.descriptors) changes[kind] -= count;
  for (const auto& [kind, change] : changes) {
    if (change != 0) words += " " + kind + (change > 0 ? "+" : "") + std::to_string(change);
  }
  return words;
}

int count(const ProcessUsage& usage) {
  int count = 0;
  for (const auto& [kind, number] : usage.descriptors) count += number;
  return count;
}

std::string asMib(double mib) {
  return QString::asprintf("%.2f MiB", mib).toStdString();
}

/// A random life with the program, an hour's happenings in a minute, between rests at which nothing may have
/// been left behind. The same seed gives the same life, as far as the machine is as quick. Main thread.
class Soak {
 public:
  struct Options {
    std::chrono::minutes length;
    unsigned seed;
    std::filesystem::path folder;  ///< gets the log and what the program printed and kept
    std::string program;
    bool races;                            ///< nothing but races counts
    const std::atomic<bool>& interrupted;  ///< the person wants an end
  };

  /// The desktop is what `SoakLife` needs; the folder is empty.
  Soak(HeadlessDesktop& desktop, const Options& options)
      : desktop_(desktop),
        options_(options),
        journal_(options_.folder / "soak.log"),
        life_({.desktop = desktop,
               .journal = journal_,
               .program = options_.program,
               .seed = options_.seed,
               .fps = options_.races ? 60 : 15,
               .interrupted = options_.interrupted}) {}

  /// Lives to the end; the exit code.
  int run() {
    journal_.say("seed " + std::to_string(options_.seed) + ", " + std::to_string(options_.length.count()) +
                 " minutes; the log is " + (options_.folder / "soak.log").string());
    bool hasLived = true;  // to the end
    try {
      life_.begin();
      while (goesOn()) {
        for (int i = 0; i < happeningsBetweenRests && goesOn(); ++i) life_.happen();
        rest();
      }
      life_.quit();
      if (!options_.races) {
        compareHours();
        compareMemory();
      }
      const auto& watch = life_.watch();
      const auto longest = watch.longest();
      const QString figures = QString::asprintf(
          "at most: camera closed after %.0f ms, protecting again after %.0f ms, without a frame %.0f ms, "
          "silent for %.0f ms",
          longest.closingMs, longest.protectingMs, longest.blindMs, longest.answerMs);
      journal_.say(figures.toStdString());
      journal_.say(std::to_string(journal_.happenings()) + " happenings, " + std::to_string(watch.alerts()) +
                   " alerts, " + std::to_string(journal_.breaches()) + " breaches");
    } catch (const std::exception& error) {
      journal_.breach(error.what());
      hasLived = false;
    }
    keepPapers();
    const bool raced = life_.program().output().find("WARNING: ThreadSanitizer") != std::string::npos;
    if (raced) journal_.say("it races, as it has printed");
    if (hasLived && !raced && (options_.races || journal_.breaches() == 0)) return EXIT_SUCCESS;
    journal_.say("the same life again: scripts/soak " + std::to_string(options_.length.count()) + " " +
                 std::to_string(options_.seed) + "; the log and what the program printed are in " +
                 options_.folder.string());
    return EXIT_FAILURE;
  }

 private:
  [[nodiscard]] bool goesOn() const {
    return !options_.interrupted && journal_.passed() < options_.length &&
           (options_.races || journal_.breaches() < mostBreaches);
  }

  void rest() {
    life_.calmDown();
    // Locked only once it protects: else it would still be starting.
    life_.lookOn();
    life_.lock(true);
    restIn("autoPaused");
    life_.lock(false);
    restIn("nominal");
  }

  /// Waits for the state, and compares what is held with the rests before.
  void restIn(const std::string& state) {
    life_.reach(state);
    // Whatever came before, memory is given back after a window, and Qt's threads have painted within 30 s.
    life_.glance();
    const ProcessUsage usage = settledUsage();
    if (!goesOn()) return;
    journal_.say("at rest, " + state + ": PSS " + asMib(usage.proportionalMib) + " (its own " +
                 asMib(usage.ownMib) + "), " + std::to_string(count(usage)) + " descriptors, " +
                 std::to_string(usage.threads) + " threads; " + std::to_string(journal_.happenings()) +
                 " happenings, " + std::to_string(life_.watch().alerts()) + " alerts, " +
                 std::to_string(journal_.breaches()) + " breaches");
    if (journal_.passed() * 10 < options_.length || journal_.passed() < warmUp) return;
    auto& rests = rests_[state];
    rests.push_back(usage);
    const ProcessUsage& first = rests.front();
    if (usage.descriptors != first.descriptors)
      journal_.breach("at rest (" + state +
                      ") it holds other descriptors than before:" + kinds(first, usage));
    if (usage.threads != first.threads)
      journal_.breach("at rest (" + state + ") it has " + std::to_string(usage.threads) +
                      " threads, before " + std::to_string(first.threads));
  }

  /// Once nothing comes and goes any more.
  [[nodiscard]] ProcessUsage settledUsage() {
    const pid_t pid = life_.program().pid();
    ProcessUsage last = ProcessUsage::of(pid);
    auto since = SteadyClock::now();
    (void)life_.wait([&] {
      ProcessUsage now = ProcessUsage::of(pid);
      if (now.descriptors != last.descriptors || now.threads != last.threads) since = SteadyClock::now();
      last = std::move(now);
      return SteadyClock::now() - since > settling;
    });
    return last;
  }

  /// A start that failed counts no time of protection.
  void compareHours() {
    std::ifstream file(desktop_.configFolder() / "sentrel" / "defaults.json");
    const std::string kept{std::istreambuf_iterator<char>(file), {}};
    const std::string key = "\"stats_total_active_seconds\": ";
    const auto at = kept.find(key);
    const double counted = at == std::string::npos ? 0 : std::atof(kept.c_str() + at + key.size());
    const double seen = life_.watch().activeFor().count();
    const std::string words = "it has counted " + std::to_string(static_cast<int>(counted)) +
                              " s of protection, and " + std::to_string(static_cast<int>(seen)) + " s in " +
                              std::to_string(life_.watch().sessions()) + " sessions were seen";
    // Each session counts in whole seconds, and is seen with a delay.
    std::abs(counted - seen) > 5 + 1.5 * life_.watch().sessions() ? journal_.breach(words)
                                                                  : journal_.say(words);
  }

  /// In the steady state: how much of the heap a closed camera leaves in use is chance.
  void compareMemory() {
    const auto& rests = rests_["nominal"];
    if (std::ssize(rests) < leastRests) return;
    const auto least = [](auto begin, auto end) {
      return std::ranges::min_element(begin, end, {}, &ProcessUsage::ownMib)->ownMib;
    };
    // One rest is higher than another by a frame or two, as it happens, and the first use of a kind of window
    // keeps a megabyte; what is never given back stays.
    const auto part = std::ssize(rests) / 3 + 1;
    const double first = least(rests.begin(), rests.begin() + part);
    const double last = least(rests.end() - part, rests.end());
    const std::string words = "its own memory, at rest after the first tenth: from " + asMib(first) + " to " +
                              asMib(last) + " in " + std::to_string(rests.size()) + " rests";
    last - first > mostGrowthMib ? journal_.breach("it grows: " + words) : journal_.say(words);
  }

  void keepPapers() {
    std::ofstream(options_.folder / "program.log") << life_.program().output();
    std::error_code none;  // a program that has not lived has kept nothing
    fs::copy_file(desktop_.configFolder() / "sentrel" / "defaults.json", options_.folder / "defaults.json",
                  none);
  }

  HeadlessDesktop& desktop_;
  const Options options_;
  SoakJournal journal_;
  SoakLife life_;
  std::map<std::string, std::vector<ProcessUsage>> rests_;  // by state, since the first tenth
};

}  // namespace

}  // namespace sentrel::test

namespace {

std::atomic<bool> interrupted = false;

template <class Number>
bool read(std::string_view text, Number& number) {
  const auto end = text.data() + text.size();
  return std::from_chars(text.data(), end, number).ptr == end;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace sentrel::test;  // NOLINT(google-build-using-namespace): a program of one function
  int minutes = 0;
  unsigned seed = std::random_device()() % 1'000'000;
  const bool races = argc == 6 && std::string_view(argv[5]) == "races";
  if (argc < 3 || argc > (races ? 6 : 5) || !read(argv[1], minutes) || minutes < 1 ||
      (argc > 3 && !read(argv[3], seed))) {
    std::fputs("usage: sentrel-soak MINUTES FOLDER [SEED] [PROGRAM] [races]\n", stderr);
    return 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) std::signal(number, [](int) { interrupted = true; });
  try {
    HeadlessDesktop desktop({.systemBus = true,
                             .pipeWire = true,
                             .x11 = true,
                             .width = SoakLife::screenWidth * SoakLife::mostScreens,
                             .height = SoakLife::screenHeight});
    desktop.exportToProcess();
    const QCoreApplication application(argc, argv);
    const auto folder = std::filesystem::absolute(argv[2]);
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    return Soak(desktop, {.length = std::chrono::minutes(minutes),
                          .seed = seed,
                          .folder = folder,
                          .program = argc > 4 ? argv[4] : SENTREL_PROGRAM,
                          .races = races,
                          .interrupted = interrupted})
        .run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sentrel-soak: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
