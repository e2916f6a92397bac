// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <functional>
#include <iostream>
#include <random>
#include <thread>

#include "linux/desktop/defaults_fixture.h"

namespace sentrel {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

#ifdef __SANITIZE_ADDRESS__
constexpr bool isSanitized = true;  // which takes descriptors of its own
#else
constexpr bool isSanitized = false;
#endif

class DefaultsFailureTest : public test::DefaultsFixture {
 protected:
  /// The folder refuses between `obstruct` and `clear`: nothing is lost, the person is told once for the
  /// whole time, and the first change afterwards writes everything.
  void expectToldOnceAndMadeGood(const std::function<void()>& obstruct, const std::function<void()>& clear,
                                 const std::string& reason) {
    const auto file = open();
    file->set("before", true);
    file->set("padding", std::string(4000, 'x'));
    ASSERT_TRUE(settle(*file));
    for (std::int64_t time = 0; time < 2; ++time) {
      const std::string old = read(path);
      testing::internal::CaptureStderr();
      obstruct();
      for (std::int64_t change = 0; change < 3; ++change) {
        file->set("change", change + 10 * time);
        EXPECT_FALSE(settle(*file));
      }
      clear();
      const std::string told = testing::internal::GetCapturedStderr();
      EXPECT_THAT(told, HasSubstr("sentrel: the settings cannot be saved: "));
      EXPECT_THAT(told, HasSubstr(reason));
      EXPECT_EQ(std::ranges::count(told, '\n'), 1) << told;
      EXPECT_EQ(read(path), old);
      file->set("after", time);
      EXPECT_TRUE(settle(*file));
      const auto next = open();
      EXPECT_EQ(next->value("before"), DefaultsValue(true));
      EXPECT_EQ(next->value("change"), DefaultsValue(2 + 10 * time));
      EXPECT_EQ(next->value("after"), DefaultsValue(time));
      EXPECT_EQ(names(), std::vector<std::string>{"defaults.json"});
    }
  }
};

TEST_F(DefaultsFailureTest, NoRoomForTheFile) {
  // No file of this process may grow beyond 2 KiB, as if the disk were full.
  std::signal(SIGXFSZ, SIG_IGN);  // NOLINT(cert-err33-c)
  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  const rlimit tiny{.rlim_cur = 2048, .rlim_max = before.rlim_max};
  expectToldOnceAndMadeGood([&] { ::setrlimit(RLIMIT_FSIZE, &tiny); },
                            [&] { ::setrlimit(RLIMIT_FSIZE, &before); }, "File too large");
}

TEST_F(DefaultsFailureTest, ReadOnly) {
  fs::permissions(root, fs::perms(0755));
  constexpr uid_t nobody = 65534;
  for (const bool wholeFolder : {true, false}) {
    SCOPED_TRACE(wholeFolder ? "the folder" : "the file");
    fs::remove_all(path.parent_path());
    // Nothing is read-only to root.
    const bool isRoot = ::geteuid() == 0;
    if (isRoot) {
      fs::create_directories(path.parent_path());
      ASSERT_EQ(::chown(path.parent_path().c_str(), nobody, nobody), 0);
      ASSERT_EQ(::setresuid(nobody, nobody, 0), 0);
    }
    const fs::path target = wholeFolder ? path.parent_path() : path;
    const auto allow = [&](unsigned mode) { fs::permissions(target, fs::perms(mode)); };
    expectToldOnceAndMadeGood([&] { allow(wholeFolder ? 0555 : 0444); },
                              [&] { allow(wholeFolder ? 0700 : 0600); },
                              wholeFolder ? "Permission denied" : "not writable");
    EXPECT_TRUE(!isRoot || ::setresuid(0, 0, 0) == 0);
  }
}

TEST_F(DefaultsFailureTest, WhatCannotBeReadIsToldAndNeverReplaced) {
  constexpr auto theirs = "{\n  \"filter_strength\": 5\n}\n";
  const fs::path other = root / "other.json";
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{.rlim_cur = 0, .rlim_max = before.rlim_max};
  const struct {
    const char* reason;
    std::function<void()> obstruct;
    std::function<void()> clear;
  } cases[] = {
      {"Too many open files", [&] { ::setrlimit(RLIMIT_NOFILE, &none); },
       [&] { ::setrlimit(RLIMIT_NOFILE, &before); }},
      {"Input/output error",  // of the first page of this process, where nothing is
       [&] { fs::rename(path, other), fs::create_symlink("/proc/self/mem", path); },
       [&] { fs::rename(other, path); }},
  };
  for (const auto& [reason, obstruct, clear] : cases) {
    if (isSanitized && std::string_view(reason) == "Too many open files") continue;
    write(path, theirs);
    testing::internal::CaptureStderr();
    obstruct();
    const auto file = open();
    clear();
    ASSERT_TRUE(file->readError()) << reason;
    EXPECT_THAT(*file->readError(), HasSubstr(reason));
    EXPECT_FALSE(file->damaged.get());
    file->set("filter_strength", std::int64_t{3});  // the standard value, as all others that are saved
    EXPECT_FALSE(settle(*file));
    EXPECT_EQ(read(path), theirs);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("sentrel: the settings cannot be saved: "));
    EXPECT_FALSE(open()->readError()) << "the next start reads it";
  }
}

TEST_F(DefaultsFailureTest, NoPlaceAtAll) {
  write(root / "a file", "x");
  for (const fs::path& place : {fs::path(), root / "a file" / "sentrel" / "defaults.json"}) {
    path = place;
    testing::internal::CaptureStderr();
    const auto file = open();
    file->set("key", std::int64_t{1});
    EXPECT_FALSE(settle(*file));
    file->set("key", std::int64_t{2});
    EXPECT_FALSE(settle(*file));
    EXPECT_FALSE(file->damaged.get());
    EXPECT_EQ(file->value("key"), DefaultsValue(std::int64_t{2}));
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_THAT(told, HasSubstr(place.empty() ? "there is no home folder" : "Not a directory"));
    EXPECT_EQ(std::ranges::count(told, '\n'), 1) << told;
  }
}

/// Writes settings without end and tells each step: a number before it sets it, and the negative number once
/// it is in the file.
[[noreturn]] void writeForEver(const std::filesystem::path& path, int pipe) {
  const auto tell = [pipe](std::int64_t step) {
    if (::write(pipe, &step, sizeof step) != sizeof step) std::_Exit(3);
  };
  const auto loop = std::make_shared<test::ManualMainLoop>();
  DefaultsFile file(path, loop, std::make_shared<SerialQueue>("com.mardeck.sentrel.store"));
  const auto stored = file.value("first");
  for (std::int64_t number = stored ? std::get<std::int64_t>(*stored) + 1 : 1;; ++number) {
    tell(number);
    file.set("first", number);
    file.set("middle", std::string(static_cast<std::size_t>(number * 977 % 100'000), 'x'));
    file.set("last", number);
    loop->runPosted();
    if (!file.flush(std::chrono::seconds(30))) std::_Exit(4);
    tell(-number);
  }
}

TEST_F(DefaultsFailureTest, AKillAtAnyMomentLeavesTheOldOrTheNewState) {
  constexpr int kills = 200;
  std::mt19937 random(20261121);  // NOLINT(cert-msc51-cpp): the same moments in every run
  std::int64_t last = 0;
  int isNew = 0;
  for (int round = 0; round < kills; ++round) {
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
    const pid_t writer = ::fork();
    if (writer == 0) {
      ::close(pipe[0]);
      writeForEver(path, pipe[1]);
    }
    ::close(pipe[1]);
    pollfd begun{.fd = pipe[0], .events = POLLIN, .revents = 0};
    ASSERT_EQ(::poll(&begun, 1, 30'000), 1);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 6000));
    ::kill(writer, SIGKILL);
    ASSERT_EQ(::waitpid(writer, nullptr, 0), writer);

    std::int64_t begunNumber = last;
    std::int64_t writtenNumber = last;
    for (std::int64_t step = 0; ::read(pipe[0], &step, sizeof step) == sizeof step;) {
      (step < 0 ? writtenNumber : begunNumber) = std::abs(step);
    }
    ::close(pipe[0]);
    ASSERT_GT(begunNumber, last);

    const DefaultsFile::Content content = DefaultsFile::read(path);
    ASSERT_FALSE(content.damaged) << read(path);
    last = content.values["first"].toInteger();
    EXPECT_EQ(content.values["last"].toInteger(), last) << "half a change";
    EXPECT_EQ(content.values["middle"].toString().size(), last * 977 % 100'000);
    ASSERT_GE(last, writtenNumber) << "a state that was in the file is gone";
    ASSERT_LE(last, begunNumber);
    if (last == begunNumber) ++isNew;
  }
  std::cout << kills << " kills; the state being written was found " << isNew << " times, the one before it "
            << kills - isNew << " times\n";

  // What the killed left behind, a lock among it, holds nothing up.
  const auto file = open();
  file->set("first", last + 1);
  EXPECT_TRUE(settle(*file));
  std::cout << "left behind: " << testing::PrintToString(names()) << "\n";
}

}  // namespace
}  // namespace sentrel
