// SPDX-License-Identifier: Apache-2.0
//
// The program where the machine fails it: no time, no memory, no disk, no camera that stays. Whatever
// happens, it goes on as it says, or ends and leaves nothing on the screen, and no picture anywhere.
#include <sys/mount.h>

#include "app/program_desk.h"

namespace sentrel::test {
namespace {

/// A part of the memory controller of its own, by the second version of its interface or the first; no path
/// where this process may make none.
fs::path makeMemoryGroup(std::size_t bytes) {
  for (const auto& [place, limit] : {std::pair("/sys/fs/cgroup", "memory.max"),
                                     std::pair("/sys/fs/cgroup/memory", "memory.limit_in_bytes")}) {
    const fs::path group = fs::path(place) / ("sentrel-" + std::to_string(::getpid()));
    std::error_code error;
    // Elsewhere the file would be made, and mean nothing.
    if (fs::create_directory(group, error) && fs::exists(group / limit) &&
        std::ofstream(group / limit) << bytes << std::flush)
      return group;
    fs::remove(group, error);
  }
  return {};
}

struct FaultsTest : ProgramDesk {
  FaultsTest() {
    // What anybody writes is found here.
    fs::create_directory(temporary());
    desktop.setVariable("TMPDIR", temporary().string());
  }

  [[nodiscard]] fs::path temporary() const { return desktop.home() / "tmp"; }
  /// Its state; empty where it does not tell.
  [[nodiscard]] std::string toldState() {
    try {
      return state();
    } catch (const std::exception&) {
      return {};
    }
  }
  /// Whether it tells a state while it is looked at for so long.
  [[nodiscard]] bool tellsWithin(const std::string& wanted, milliseconds length) {
    return waitUntil([&] { return toldState() == wanted; }, length, milliseconds(30));
  }
  [[nodiscard]] bool answersOnlooker(milliseconds limit = seconds(20)) {
    isWatched = true;
    return tellsWithin("alert", limit) && process.isRunning();
  }
  /// The onlooker has gone, and then the alert; the third one in a short time is held for half a minute.
  [[nodiscard]] bool onlookerGoes() {
    isWatched = false;
    return tellsWithin("nominal", seconds(50));
  }
  /// A picture, in whatever form, takes more room than all that is written.
  void expectNoPictureOnDisk() const {
    for (const fs::path& place : {desktop.home(), desktop.runtimeFolder()}) {
      for (const auto& file : fs::recursive_directory_iterator(place)) {
        const bool isOurs = file.path().string().find("/.cache/") == std::string::npos;
        if (!file.is_regular_file() || !isOurs) continue;
        EXPECT_LT(file.file_size(), 10'000U) << file.path();
      }
    }
  }
  /// After its end.
  void expectNothingIsLeft() {
    EXPECT_TRUE(waitUntil([&] { return !isCovered(); }));
    EXPECT_TRUE(cameraIs(false));
    expectNoPictureOnDisk();
    EXPECT_EQ(settings().find("{\n"), 0U) << settings();
    EXPECT_NE(settings().find("\"has_completed_onboarding\": true"), std::string::npos) << settings();
  }
  /// Onlookers come and go, and windows, for as long as it lives: it must say that it sees them, or that it
  /// does not see. Then it is ended.
  void liveAndEnd(bool mustLive = false) {
    const auto lives = [&] { return process.isRunning(); };
    if (!waitUntil([&] { return !lives() || !toldState().empty(); })) ADD_FAILURE() << "it hangs";
    for (const char* window : {"preferences", "statistics", "about"}) {
      isWatched = true;
      const auto answers = [&] {
        const std::string told = toldState();
        return told == "alert" || told == "cameraBusy" || told == "inactive";
      };
      EXPECT_TRUE(waitUntil([&] { return !lives() || answers(); })) << "it says " << toldState();
      try {
        perform(window);
      } catch (const std::exception&) {  // it has ended
      }
      std::this_thread::sleep_for(seconds(1));
      isWatched = false;
      (void)waitUntil([&] { return !lives() || toldState() != "alert"; }, seconds(5));
      expectNoPictureOnDisk();
    }
    EXPECT_TRUE(!mustLive || lives()) << process.output();
    std::printf("  %s\n", lives() ? toldState().c_str() : "ended");
    if (lives()) process.signal(SIGTERM);
    EXPECT_TRUE(process.waitForExit(seconds(20))) << "it hangs";
    expectNothingIsLeft();
    process.kill();
  }
};

TEST_F(FaultsTest, LongWithEightBusyLoopsAnOnlookerIsAnsweredAndNobodyLooksAway) {
  startProtecting();
  std::vector<ChildProcess> loops;
  const unsigned count = 4 * std::max(1U, std::thread::hardware_concurrency());
  while (loops.size() < count) loops.push_back(desktop.spawn("sh", {"-c", "while :; do :; done"}));
  std::this_thread::sleep_for(seconds(3));
  for (int i = 0; i < 8; ++i) {
    EXPECT_TRUE(answersOnlooker(seconds(2)));
    isWatched = false;
    EXPECT_FALSE(tellsWithin("inattention", seconds(7))) << "late frames";
    EXPECT_TRUE(onlookerGoes()) << toldState();
  }
  terminate();
}

TEST_F(FaultsTest, LongStoppedInAnAlertItGoesOnAndKilledInOneItLeavesNothing) {
  startProtecting();
  for (const bool goesMeanwhile : {false, true}) {
    ASSERT_TRUE(answersOnlooker());
    process.signal(SIGSTOP);
    isWatched = !goesMeanwhile;
    std::this_thread::sleep_for(seconds(10));
    EXPECT_TRUE(isCovered()) << "nobody takes it away";
    process.signal(SIGCONT);
    EXPECT_TRUE(becomes(goesMeanwhile ? "nominal" : "alert"));
    isWatched = false;
    EXPECT_FALSE(tellsWithin("inattention", seconds(4)));
    EXPECT_TRUE(becomes("nominal")) << toldState();
    EXPECT_TRUE(camera.isOpen());
  }
  ASSERT_TRUE(answersOnlooker());
  process.kill();
  expectNothingIsLeft();
  isWatched = false;
  startProtecting();
  terminate();
}

TEST_F(FaultsTest, LongWithLittleMemoryItLivesOrEndsAndLeavesNothing) {
  constexpr std::size_t mib = 1024 * 1024;
  const struct {
    const char* name;
    std::size_t data;   // of the program's own, that it may ask for; 0 is no limit
    std::size_t group;  // that it may have in use; 0 is no limit
    bool lives;
  } cases[] = {
      {"100 MiB in use", 0, 100 * mib, true},
      {"30 MiB in use", 0, 30 * mib, false},
      {"100 MiB asked for", 100 * mib, 0, false},
      {"40 MiB asked for", 40 * mib, 0, false},
  };
  for (const auto& [name, data, group, lives] : cases) {
    SCOPED_TRACE(name);
    const fs::path limited = group > 0 ? makeMemoryGroup(group) : fs::path();
    if (group > 0 && limited.empty()) {
      std::printf("  not tried, for lack of a memory controller that may be used: %s\n", name);
      continue;
    }
    const std::string enter = group > 0 ? "echo $$ >" + (limited / "cgroup.procs").string() + "; " : "";
    const std::string limit = data > 0 ? "prlimit --data=" + std::to_string(data) + " " : "";
    process = desktop.spawn("sh", {"-c", enter + "exec " + limit + SENTREL_PROGRAM});
    liveAndEnd(lives);
    std::error_code error;
    EXPECT_TRUE(group == 0 || waitUntil([&] { return fs::remove(limited, error); }, seconds(5)));
  }
}

TEST_F(FaultsTest, LongWithMemoryThatIsRefusedItLivesOrEndsAndLeavesNothing) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer has its own memory";
#endif
  // From the first piece on, and once it protects.
  for (unsigned seed = 1; seed <= 9; ++seed) {
    SCOPED_TRACE(seed);
    const char* first = seed % 3 == 0 ? " 0" : " 150000";
    process = spawn(
        {"LD_PRELOAD=" SENTREL_FAILING_ALLOCATIONS, "SENTREL_REFUSALS=" + std::to_string(seed) + first});
    liveAndEnd();
  }
}

TEST_F(FaultsTest, LongOnAFullDiskTheOldSettingsStayAndTheNewOnesFollow) {
  const std::string old = settings();
  if (::mount("sentrel", settingsFolder().c_str(), "tmpfs", 0, "size=64k,mode=700") != 0)
    GTEST_SKIP() << "no file system may be mounted here: " << std::strerror(errno);
  std::ofstream(settingsFolder() / "defaults.json") << old;
  const fs::path filler = settingsFolder() / "filler";
  {
    std::ofstream full(filler);
    while (full << std::string(512, 'x') << std::flush) {
    }
  }
  startProtecting();
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(answersOnlooker());
    EXPECT_TRUE(onlookerGoes()) << toldState();
  }
  EXPECT_EQ(settings(), old);
  const QString told = QString::fromStdString(process.output());
  EXPECT_EQ(told.count(u"Les réglages ne peuvent pas être enregistrés"_s), 1) << told.toStdString();
  fs::remove(filler);
  terminate();
  EXPECT_EQ(number("stats_alert_count"), 1) << settings();  // two so soon after each other count as one
  EXPECT_EQ(number("filter_strength"), 5);
  ::umount2(settingsFolder().c_str(), MNT_DETACH);
}

}  // namespace
}  // namespace sentrel::test
