// SPDX-License-Identifier: Apache-2.0
//
// The program where the machine fails it: no time, no memory, no disk, no camera that stays. Whatever
// happens, it goes on as it says, or ends and leaves nothing on the screen, and no picture anywhere.
#include <sys/mount.h>

#include <set>

#include "app/program_desk.h"

namespace sentrel::test {
namespace {

/// A part of the memory controller of its own; goes with its last process.
class MemoryGroup {
 public:
  explicit MemoryGroup(std::size_t bytes) {
    std::error_code error;
    const std::string name = "sentrel-" + std::to_string(::getpid());
    // The second version of the interface, and the first.
    for (const auto& [place, limit] : {std::pair("/sys/fs/cgroup", "memory.max"),
                                       std::pair("/sys/fs/cgroup/memory", "memory.limit_in_bytes")}) {
      const fs::path made = fs::path(place) / name;
      if (!fs::create_directory(made, error)) continue;
      path_ = made;
      // Elsewhere the file would be made, and mean nothing.
      if (fs::exists(path_ / limit) && std::ofstream(path_ / limit) << bytes << std::flush) return;
      fs::remove(std::exchange(path_, fs::path()), error);
    }
  }
  ~MemoryGroup() {
    std::error_code error;
    if (!path_.empty() && !waitUntil([&] { return fs::remove(path_, error); }, seconds(5)))
      std::fprintf(stderr, "%s is left\n", path_.c_str());
  }
  MemoryGroup(const MemoryGroup&) = delete;
  MemoryGroup& operator=(const MemoryGroup&) = delete;

  /// Empty where this process may make none.
  [[nodiscard]] const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

struct FaultsTest : ProgramDesk {
  using ProgramDesk::ProgramDesk;

  FaultsTest() {
    // What anybody writes is found here.
    fs::create_directory(temporary());
    desktop.setVariable("TMPDIR", temporary().string());
  }

  [[nodiscard]] fs::path temporary() const { return desktop.home() / "tmp"; }
  void startProtecting() {
    start();
    ASSERT_TRUE(becomes("nominal")) << process.output();
  }
  [[nodiscard]] bool cameraIs(bool open) const {
    return waitUntil([&] { return camera.isOpen() == open; });
  }
  /// Its state; empty where it does not tell.
  [[nodiscard]] std::string toldState() {
    try {
      return state();
    } catch (const std::exception&) {
      return {};
    }
  }
  /// Looks for so long, and gives every state that it told.
  [[nodiscard]] std::set<std::string> statesIn(milliseconds length) {
    std::set<std::string> told;
    (void)waitUntil(
        [&] {
          told.insert(toldState());
          return !process.isRunning();
        },
        length, milliseconds(30));
    return told;
  }
  /// Somebody looks on; what it takes until it says so.
  [[nodiscard]] std::optional<milliseconds> answerToOnlooker(milliseconds limit) {
    const auto begin = std::chrono::steady_clock::now();
    isWatched = true;
    const bool answered = waitUntil([&] { return toldState() == "alert" || !process.isRunning(); }, limit) &&
                          process.isRunning();
    if (!answered) return std::nullopt;
    return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
  }
  /// The onlooker has gone, and then the alert; the third one in a short time is held for half a minute.
  [[nodiscard]] bool onlookerGoes() {
    isWatched = false;
    return waitUntil([&] { return toldState() == "nominal"; }, seconds(50));
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
  /// does not see.
  void liveOrEnd() {
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
    isWatched = false;
  }
};

TEST_F(FaultsTest, LongWithEightBusyLoopsAnOnlookerIsAnsweredAndNobodyLooksAway) {
  startProtecting();
  std::vector<ChildProcess> loops;
  const unsigned count = 4 * std::max(1U, std::thread::hardware_concurrency());
  while (loops.size() < count) loops.push_back(desktop.spawn("sh", {"-c", "while :; do :; done"}));
  (void)statesIn(seconds(3));
  for (int i = 0; i < 8; ++i) {
    const auto took = answerToOnlooker(seconds(20));
    ASSERT_TRUE(took);
    EXPECT_LE(took->count(), 2000);
    RecordProperty("answer_ms_" + std::to_string(i), std::to_string(took->count()));
    isWatched = false;
    EXPECT_FALSE(statesIn(seconds(7)).contains("inattention")) << "late frames";
    EXPECT_TRUE(onlookerGoes()) << toldState();
  }
  terminate();
}

TEST_F(FaultsTest, LongStoppedInAnAlertItGoesOnAndKilledInOneItLeavesNothing) {
  startProtecting();
  for (const bool goesMeanwhile : {false, true}) {
    ASSERT_TRUE(answerToOnlooker(seconds(20)));
    process.signal(SIGSTOP);
    isWatched = !goesMeanwhile;
    std::this_thread::sleep_for(seconds(10));
    EXPECT_TRUE(isCovered()) << "nobody takes it away";
    process.signal(SIGCONT);
    EXPECT_TRUE(becomes(goesMeanwhile ? "nominal" : "alert"));
    isWatched = false;
    EXPECT_FALSE(statesIn(seconds(4)).contains("inattention"));
    EXPECT_TRUE(becomes("nominal")) << toldState();
    EXPECT_TRUE(camera.isOpen());
  }
  ASSERT_TRUE(answerToOnlooker(seconds(20)));
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
    std::optional<MemoryGroup> limited;
    if (group > 0) limited.emplace(group);
    if (limited && limited->path().empty()) {
      std::printf("  not tried, for lack of a memory controller that may be used: %s\n", name);
      continue;
    }
    const std::string enter = limited ? "echo $$ >" + (limited->path() / "cgroup.procs").string() + "; " : "";
    const std::string limit = data > 0 ? "prlimit --data=" + std::to_string(data) + " " : "";
    process = desktop.spawn("sh", {"-c", enter + "exec " + limit + SENTREL_PROGRAM});
    liveOrEnd();
    EXPECT_TRUE(!lives || process.isRunning()) << process.output();
    std::printf("  %s: %s\n", name, process.isRunning() ? toldState().c_str() : "ended");
    if (process.isRunning()) process.signal(SIGTERM);
    EXPECT_TRUE(process.waitForExit(seconds(20))) << "it hangs";
    expectNothingIsLeft();
  }
}

TEST_F(FaultsTest, LongWithMemoryThatIsRefusedItLivesOrEndsAndLeavesNothing) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer has its own memory";
#endif
  // From the first piece on, and once it protects.
  std::map<std::string, int> ends;
  for (unsigned seed = 1; seed <= 9; ++seed) {
    SCOPED_TRACE(seed);
    const char* first = seed % 3 == 0 ? " 0" : " 150000";
    process = spawn(
        {"LD_PRELOAD=" SENTREL_FAILING_ALLOCATIONS, "SENTREL_REFUSALS=" + std::to_string(seed) + first});
    liveOrEnd();
    if (process.isRunning()) process.signal(SIGTERM);
    const auto status = process.waitForExit(seconds(20));
    EXPECT_TRUE(status) << "it hangs";
    ++ends[std::to_string(status.value_or(-1))];
    expectNothingIsLeft();
    process.kill();
  }
  for (const auto& [status, count] : ends) std::printf("  ended with %s: %d\n", status.c_str(), count);
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
    EXPECT_TRUE(answerToOnlooker(seconds(20)));
    EXPECT_TRUE(onlookerGoes()) << toldState();
  }
  EXPECT_EQ(settings(), old);
  const std::string words = "the settings cannot be saved";
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
    EXPECT_TRUE(waitUntil([&] { return present->isOpen() && toldState() == "nominal"; })) << i << toldState();
    EXPECT_TRUE(answerToOnlooker(seconds(20))) << i;
    EXPECT_TRUE(onlookerGoes()) << toldState();
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
