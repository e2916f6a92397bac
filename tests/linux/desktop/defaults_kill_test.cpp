// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <iostream>
#include <random>
#include <thread>

#include "linux/desktop/defaults_fixture.h"
#include "stage/child_process.h"

namespace sentrel {
namespace {

class DefaultsKillTest : public test::DefaultsFixture {
 protected:
  DefaultsKillTest() : watch_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    std::filesystem::create_directories(path.parent_path());
    EXPECT_GE(::inotify_add_watch(watch_, path.parent_path().c_str(), IN_CREATE | IN_MODIFY | IN_MOVED_TO),
              0);
  }
  ~DefaultsKillTest() override { ::close(watch_); }

  /// Waits until a file in the folder is made, written to or renamed, as a rule not the first one.
  void waitForWriting(std::uint_fast32_t skipped) const {
    std::array<char, 65536> events{};
    for (std::uint_fast32_t turn = 0; turn <= skipped; ++turn) {
      pollfd next{.fd = watch_, .events = POLLIN, .revents = 0};
      ::poll(&next, 1, 30'000);
      while (::read(watch_, events.data(), events.size()) > 0) {
      }
    }
  }

  int watch_;
};

TEST_F(DefaultsKillTest, AKillAtAnyMomentLeavesTheOldOrTheNewState) {
  constexpr int kills = 200;
  std::mt19937 random(20261121);  // NOLINT(cert-msc51-cpp): the same moments in every run
  std::int64_t last = 0;
  int isNew = 0;
  for (int round = 0; round < kills; ++round) {
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
    test::ChildProcess writer({.program = DEFAULTS_KILL_WRITER,
                               .arguments = {path.string(), std::to_string(pipe[1])},
                               .environment = test::currentEnvironment(),
                               .log = root / "log",
                               .inheritedFd = pipe[1]});
    ::close(pipe[1]);
    pollfd begun{.fd = pipe[0], .events = POLLIN, .revents = 0};
    ASSERT_EQ(::poll(&begun, 1, 30'000), 1);
    // At any time, and just when the disk is being written to.
    if (round % 2 == 0) {
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 6000));
    } else {
      waitForWriting(random() % 20);
      const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 60);
      while (std::chrono::steady_clock::now() < end) {
      }
    }
    writer.kill();

    std::int64_t begunNumber = last;
    std::int64_t writtenNumber = last;
    for (std::int64_t step = 0; ::read(pipe[0], &step, sizeof step) == sizeof step;) {
      (step < 0 ? writtenNumber : begunNumber) = std::abs(step);
    }
    ::close(pipe[0]);
    ASSERT_GT(begunNumber, last) << writer.output();

    const DefaultsFileContent content = readDefaultsFile(path);
    ASSERT_FALSE(content.damaged) << read(path);
    last = 0;
    if (!content.values.empty()) {
      last = std::get<std::int64_t>(content.values.at("first").value.value());
      EXPECT_EQ(content.values.at("last").value, DefaultsValue(last)) << "half a change";
      const auto middle = std::get<std::string>(content.values.at("middle").value.value());
      EXPECT_EQ(static_cast<std::int64_t>(middle.size()), last * 977 % 100'000);
    }
    ASSERT_GE(last, writtenNumber) << "a state that was in the file is gone";
    ASSERT_LE(last, begunNumber);
    if (last == begunNumber) ++isNew;
  }
  std::cout << kills << " kills; the state being written was found " << isNew << " times, the one before it "
            << kills - isNew << " times\n";

  // What the killed left behind goes with the next write.
  const auto file = open();
  file->set("first", last + 1);
  EXPECT_TRUE(settle(*file));
  for (const std::string& name : names()) EXPECT_FALSE(name.starts_with("defaults.json.new")) << name;
}

}  // namespace
}  // namespace sentrel
