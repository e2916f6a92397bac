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
  [[nodiscard]] bool answersOnlooker(milliseconds limit = seconds(20)) {
    isWatched = true;
    return becomes("alert", limit) && process.isRunning();
  }
  /// The onlooker has gone, and then the alert; the third one in a short time is held for half a minute.
  [[nodiscard]] bool onlookerGoes() {
    isWatched = false;
    return becomes("nominal", seconds(50));
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
    EXPECT_THAT(settings(), testing::HasSubstr("\"has_completed_onboarding\": true"));
  }
  /// Onlookers come and go, and windows, for as long as it lives: it must say that it sees them, or that it
  /// does not see. Then it is ended.
  void liveAndEnd(bool mustLive = false) {
    const auto lives = [&] { return process.isRunning(); };
    if (!waitUntil([&] { return !lives() || !state().empty(); })) ADD_FAILURE() << "it hangs";
    for (const char* window : {"preferences", "statistics", "about"}) {
      isWatched = true;
      const auto answers = [&] {
        const std::string told = state();
        return told == "alert" || told == "cameraBusy" || told == "inactive";
      };
      EXPECT_TRUE(waitUntil([&] { return !lives() || answers(); })) << "it says " << state();
      try {
        perform(window);
      } catch (const std::exception&) {  // it has ended
      }
      std::this_thread::sleep_for(seconds(1));
      isWatched = false;
      (void)waitUntil([&] { return !lives() || state() != "alert"; }, seconds(5));
      expectNoPictureOnDisk();
    }
    EXPECT_TRUE(!mustLive || lives()) << process.output();
    std::printf("  %s\n", lives() ? state().c_str() : "ended");
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
    EXPECT_FALSE(becomes("inattention", seconds(7))) << "late frames";
    EXPECT_TRUE(onlookerGoes()) << state();
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
    EXPECT_FALSE(becomes("inattention", seconds(4)));
    EXPECT_TRUE(becomes("nominal")) << state();
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
  const auto unmount = [&] { ::umount2(settingsFolder().c_str(), MNT_DETACH); };
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
    EXPECT_TRUE(onlookerGoes()) << state();
  }
  EXPECT_EQ(settings(), old);
  const std::string words = "Les réglages ne peuvent pas être enregistrés";
  const std::string told = process.output();
  EXPECT_THAT(told, testing::HasSubstr(words));
  EXPECT_EQ(told.find(words), told.rfind(words)) << told;
  fs::remove(filler);
  terminate();
  EXPECT_EQ(number("stats_alert_count"), 1) << settings();  // two so soon after each other count as one
  EXPECT_EQ(number("filter_strength"), 5);
  unmount();
}

TEST_F(FaultsTest, LongTwoHundredCamerasThatComeAndGoLeaveNothingBehind) {
  startProtecting();
  const auto settled = [&] {
    std::this_thread::sleep_for(seconds(7));  // PipeWire lets go of what is not used any more after 5 s
    return ProcessUsage::of(process.pid());
  };
  const ProcessUsage before = settled();
  VirtualCamera other{{.name = "other_camera"}};
  other.setSource([this](std::int64_t) { return (isWatched ? watched : alone).constBits(); });
  std::mt19937 random(1);
  VirtualCamera* present = &camera;
  for (int i = 1; i <= 200; ++i) {
    VirtualCamera* const next = random() % 2 == 0 ? &camera : &other;
    const bool isAnother = next != present;
    // Where the next one comes first, it has another number than the one that goes.
    if (isAnother && random() % 2 == 0) next->appear();
    present->vanish();
    std::this_thread::sleep_for(milliseconds(random() % 60));
    next->appear();
    present = next;
    if (i % 20 != 0) continue;
    EXPECT_TRUE(waitUntil([&] { return present->isOpen() && state() == "nominal"; })) << i << state();
    EXPECT_TRUE(answersOnlooker()) << i;
    EXPECT_TRUE(onlookerGoes()) << state();
  }
  if (present != &camera) {
    present->vanish();
    camera.appear();
  }
  EXPECT_TRUE(cameraIs(true) && becomes("nominal"));
  const ProcessUsage after = settled();
  EXPECT_EQ(after.descriptors, before.descriptors);
  EXPECT_EQ(after.threads, before.threads);
  EXPECT_LT(after.ownMib, before.ownMib + 8);
  terminate();
}

}  // namespace
}  // namespace sentrel::test
