// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/defaults_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <functional>
#include <future>

#include "linux/desktop/defaults_fixture.h"
#include "settings/settings_repository.h"
#include "support/fake_settings.h"

namespace sentrel {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::ElementsAre;

using DefaultsFileTest = test::DefaultsFixture;

constexpr auto sample = R"({
  "battery_threshold": 10,
  "haptic_on_alert": false
}
)";

TEST_F(DefaultsFileTest, WritesWhatAPersonCanReadAndNobodyElse) {
  const auto file = open();
  file->set("matrix_stripe_alpha", 3.0F);
  file->set("selected_camera_id", std::string("caméra"));
  file->set("has_completed_onboarding", true);
  file->set("filter_strength", std::int64_t{4});
  EXPECT_EQ(file->value("filter_strength"), DefaultsValue(std::int64_t{4})) << "counts at once";
  EXPECT_TRUE(settle(*file));
  file->remove("selected_camera_id");
  EXPECT_TRUE(settle(*file));
  EXPECT_EQ(read(path), R"({
  "filter_strength": 4,
  "has_completed_onboarding": true,
  "matrix_stripe_alpha": 3.0
}
)");
  EXPECT_EQ(mode(path), 0600);
  EXPECT_EQ(mode(path.parent_path()), 0700);
  EXPECT_THAT(names(), ElementsAre("defaults.json"));
  fs::permissions(path.parent_path(), fs::perms(0755));
  fs::permissions(path, fs::perms(0644));
  const auto next = open();
  EXPECT_TRUE(settle(*next));
  EXPECT_EQ(mode(path.parent_path()), 0700) << "somebody has opened it";
  EXPECT_EQ(mode(path), 0600);
  EXPECT_EQ(next->value("matrix_stripe_alpha"), DefaultsValue(3.0F));
  EXPECT_EQ(next->value("selected_camera_id"), std::nullopt);
  EXPECT_FALSE(next->damaged.get());
}

TEST_F(DefaultsFileTest, LinesOfOthersStay) {
  write(
      path,
      R"({"future": {"b": [1, 2.50]}, "exact": 0.12345678901234567890, "nothing": null, "ours": 1, "hand": 1})");
  const auto file = open();
  file->set("ours", std::int64_t{2});
  EXPECT_TRUE(settle(*file));
  constexpr auto merged = R"({
  "exact": 0.12345678901234567890,
  "future": {"b":[1,2.50]},
  "hand": 1,
  "nothing": null,
  "ours": 2
}
)";
  EXPECT_EQ(read(path), merged);

  // A person edits the file while the program runs.
  write(path, R"({"hand": 9, "new": "x"})");
  file->set("more", true);
  EXPECT_TRUE(settle(*file));
  EXPECT_EQ(read(path), "{\n  \"hand\": 9,\n  \"more\": true,\n  \"new\": \"x\",\n  \"ours\": 2\n}\n");

  // The file goes: all that the program knows comes back.
  fs::remove_all(path.parent_path());
  file->remove("more");
  EXPECT_TRUE(settle(*file));
  EXPECT_EQ(read(path), merged);
}

TEST_F(DefaultsFileTest, ADamagedFileIsKeptMendedAndToldOnce) {
  const std::string damaged = std::string(sample) + "}";
  write(path, damaged);
  testing::internal::CaptureStderr();
  const auto file = open();
  EXPECT_TRUE(file->damaged.get());
  EXPECT_EQ(file->value("haptic_on_alert"), DefaultsValue(false));
  EXPECT_TRUE(settle(*file)) << "without any change";
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "sentrel: the settings file was damaged; it is kept as " + path.string() + ".damaged-1\n");
  EXPECT_EQ(read(path), sample);
  EXPECT_EQ(read(path.string() + ".damaged-1"), damaged);
  EXPECT_EQ(mode(path.string() + ".damaged-1"), 0600);
  EXPECT_FALSE(open()->damaged.get());

  // Damaged while the program runs, more often than is kept.
  const auto running = open();
  int told = 0;
  const auto watch = running->damaged.onChange([&](bool) { ++told; });
  testing::internal::CaptureStderr();
  for (std::int64_t round = 2; round < 9; ++round) {
    write(path, "{ \"lost\": " + std::to_string(round));
    running->set("round", round);
    EXPECT_TRUE(settle(*running));
  }
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(told, 1);
  EXPECT_THAT(names(),
              ElementsAre("defaults.json", "defaults.json.damaged-4", "defaults.json.damaged-5",
                          "defaults.json.damaged-6", "defaults.json.damaged-7", "defaults.json.damaged-8"));
  EXPECT_EQ(open()->value("battery_threshold"), DefaultsValue(std::int64_t{10})) << "memory is the truth";
}

TEST_F(DefaultsFileTest, WhateverStandsInThePlaceIsMovedAside) {
  const struct {
    std::string name;
    std::function<void()> put;
  } cases[] = {
      {"a folder", [&] { write(path / "file", "mine"); }},
      {"a dangling link", [&] { fs::create_symlink(root / "away" / "defaults.json", path); }},
      {"a link to itself", [&] { fs::create_symlink(path, path); }},
      {"a device", [&] { fs::create_symlink("/dev/full", path); }},
      {"a pipe", [&] { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); }},
      {"somebody's big file", [&] { write(path, std::string(3'000'000, 'x')); }},
      {"an unreadable file", [&] { write(path, sample), fs::permissions(path, fs::perms::none); }},
  };
  for (const auto& [name, put] : cases) {
    SCOPED_TRACE(name);
    fs::remove_all(path.parent_path());
    fs::create_directories(path.parent_path());
    put();
    testing::internal::CaptureStderr();
    const auto file = open();
    const bool isReadable = name == "an unreadable file" && ::geteuid() == 0;  // to root
    EXPECT_EQ(file->damaged.get(), !isReadable);
    file->set("battery_threshold", std::int64_t{10});
    file->set("haptic_on_alert", false);
    const bool isWritten = settle(*file);
    EXPECT_TRUE(isWritten);
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(told.find("cannot be saved"), std::string::npos) << told;
    EXPECT_EQ(read(path), sample);
    if (isReadable) continue;
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path)));
    EXPECT_EQ(mode(path), 0600);
    EXPECT_THAT(names(), ElementsAre("defaults.json", "defaults.json.damaged-1"));
  }
}

TEST_F(DefaultsFileTest, UnfinishedFilesGoUnlessSomebodyMayStillBeWritingThem) {
  write(path.string() + ".new-aBcDeF", "{");
  write(path.string() + ".backup", "a person's own");
  const int folder = ::open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(::flock(folder, LOCK_EX), 0);
  const auto file = open();
  file->set("key", std::int64_t{1});
  EXPECT_TRUE(settle(*file)) << "whoever hangs with the lock holds nothing back";
  EXPECT_EQ(open()->value("key"), DefaultsValue(std::int64_t{1}));
  EXPECT_THAT(names(), ElementsAre("defaults.json", "defaults.json.backup", "defaults.json.new-aBcDeF"));
  ::close(folder);
  file->set("key", std::int64_t{2});
  EXPECT_TRUE(settle(*file));
  EXPECT_THAT(names(), ElementsAre("defaults.json", "defaults.json.backup"));
}

TEST_F(DefaultsFileTest, TwoProcessesLoseNothingOfEachOther) {
  const auto otherQueue = std::make_shared<SerialQueue>("other");
  const auto one = open();
  const auto other = std::make_unique<DefaultsFile>(path, loop, otherQueue);
  for (std::int64_t round = 0; round < 40; ++round) {
    one->set("one", round);
    other->set("other", round);
    other->set("key" + std::to_string(round), true);
    loop->runPosted();
  }
  EXPECT_TRUE(settle(*one));
  EXPECT_TRUE(settle(*other));
  const auto later = open();
  EXPECT_EQ(later->value("one"), DefaultsValue(std::int64_t{39}));
  EXPECT_EQ(later->value("other"), DefaultsValue(std::int64_t{39}));
  EXPECT_EQ(later->value("key0"), DefaultsValue(true));
}

TEST_F(DefaultsFileTest, FlushWaitsNoLongerThanItIsTold) {
  const auto file = open();
  std::promise<void> release;
  queue->async([wait = std::make_shared<std::future<void>>(release.get_future())] { wait->wait(); });
  file->set("key", true);
  EXPECT_FALSE(file->flush(10ms));
  release.set_value();
  EXPECT_TRUE(file->flush(20s)) << "also when the turn did not end";
  EXPECT_EQ(open()->value("key"), DefaultsValue(true));
}

TEST_F(DefaultsFileTest, EverySettingOutlivesTheProcess) {
  const auto loginItem = std::make_shared<test::FakeLoginItem>();
  const FilterSettings changed{5,    1,     3000,  5,     false, false,
                               0,    false, true,  false, 4.0F,  0x8000000000ABCDEF,
                               0.1F, false, false, 20,    true,  "caméra \xFF"};
  const std::shared_ptr<DefaultsFile> file = open();
  SettingsRepository(file, loginItem).save(changed);
  EXPECT_TRUE(settle(*file));
  EXPECT_EQ(SettingsRepository(open(), loginItem).settings.get(), changed);
  SettingsRepository(file, loginItem).save(FilterSettings());
  EXPECT_TRUE(settle(*file));
  EXPECT_EQ(SettingsRepository(open(), loginItem).settings.get(), FilterSettings());
}

}  // namespace
}  // namespace sentrel
