// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/defaults_file.h"

#include <QJsonDocument>
#include <QLockFile>
#include <functional>
#include <future>
#include <limits>

#include "linux/desktop/personal_file.h"

namespace sentrel::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

struct DefaultsFileTest : PersonalFileTest {
  [[nodiscard]] std::unique_ptr<DefaultsFile> open() const {
    return std::make_unique<DefaultsFile>(path, loop, queue);
  }
  /// Ends the turn of the main loop and waits for the file.
  [[nodiscard]] bool settle(DefaultsFile& file) const {
    loop->runPosted();
    const bool isWritten = file.flush(20s);
    loop->runPosted();  // what the store queue reported
    return isWritten;
  }
  void store(DefaultsFile& file, std::string_view key, DefaultsValue value) const {
    file.set(key, std::move(value));
    EXPECT_TRUE(settle(file));
  }

  const fs::path path = root / "sentrel" / "defaults.json";
  const fs::path aside = root / "sentrel" / "defaults.json.damaged-1";
};

constexpr auto sample = R"({
    "battery_threshold": 10,
    "haptic_on_alert": false
}
)";

TEST_F(DefaultsFileTest, WritesWhatAPersonCanReadAndNobodyElse) {
  const auto file = open();
  file->set("matrix_stripe_alpha", 0.42F);
  file->set("has_completed_onboarding", true);
  store(*file, "selected_camera_id", std::string("caméra"));
  file->remove("selected_camera_id");
  file->set("filter_strength", std::int64_t{4});
  EXPECT_EQ(file->value("filter_strength"), DefaultsValue(std::int64_t{4})) << "counts at once";
  EXPECT_TRUE(settle(*file));
  EXPECT_EQ(read(path), R"({
    "filter_strength": 4,
    "has_completed_onboarding": true,
    "matrix_stripe_alpha": 0.42
}
)");
  EXPECT_EQ(mode(path), 0600);
  EXPECT_EQ(mode(path.parent_path()), 0700);
  EXPECT_THAT(namesIn(path.parent_path()), ElementsAre("defaults.json"));
  for (const fs::path& opened : {path.parent_path(), path}) fs::permissions(opened, fs::perms(0755));
  EXPECT_TRUE(settle(*open()));
  for (const fs::path& closed : {path.parent_path(), path}) EXPECT_EQ(mode(closed), 0700) << closed;
}

TEST_F(DefaultsFileTest, ReadsEveryKindExactly) {
  const std::map<std::string, std::optional<DefaultsValue>> cases{
      {"9007199254740993", std::int64_t{9007199254740993}},  // no double can hold it
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
      {"0.1234567890123456", 0.12345679F},
      {"1e39", std::nullopt},  // no float can hold it
      {"[1, {\"a\": []}]", std::nullopt},
      {R"("\u00e9\ud83d\ude00\/\b\u0000")", std::string("é\xF0\x9F\x98\x80/\b\0", 9)},
  };
  for (const auto& [text, value] : cases) {
    write(path, "\xEF\xBB\xBF{\r\n\"key\" : 0, \"key\": " + text + "}");
    const auto file = open();
    EXPECT_FALSE(file->damaged.get()) << text;
    EXPECT_EQ(file->value("key"), value) << text;
    if (!value) continue;
    store(*file, "copy", *value);
    EXPECT_EQ(open()->value("copy"), value) << read(path);
  }
}

TEST_F(DefaultsFileTest, KeysOfOthersStay) {
  write(path, R"({"future": {"b": [1, 2.5]}, "nothing": null, "ours": 1, "hand": 1})");
  QLockFile lock(QString::fromStdString(path.string() + ".lock"));
  ASSERT_TRUE(lock.lock()) << "whoever hangs with the lock holds nothing back";
  const auto file = open();
  store(*file, "ours", std::int64_t{2});
  const auto values = [this] {
    return QJsonDocument(DefaultsFile::read(path).values).toJson(QJsonDocument::Compact).toStdString();
  };
  constexpr auto merged = R"({"future":{"b":[1,2.5]},"hand":1,"nothing":null,"ours":2})";
  EXPECT_EQ(values(), merged);

  // A person edits the file while the program runs.
  write(path, R"({"hand": 9, "new": "x"})");
  store(*file, "more", true);
  EXPECT_EQ(values(), R"({"hand":9,"more":true,"new":"x","ours":2})");

  // The file goes: all that the program knows comes back.
  fs::remove_all(path.parent_path());
  file->remove("more");
  EXPECT_TRUE(settle(*file));
  EXPECT_EQ(values(), merged);
}

TEST_F(DefaultsFileTest, OfADamagedFileWholeLinesAreKept) {
  const std::map<std::string, std::string> cases{
      {"", ""},
      {std::string(600, '\0'), ""},
      {"{\n\"a\": 1\n\"b\": 2\n}", "a b "},        // no comma
      {"{\n\"a\": 1, // why\n\"b\": 2\n}", "b "},  // a comment
      {"{\n\"a\": 1,\n\"b\": 2", "a "},            // perhaps once 20
      {"{\n\"a\": 05,\n\"b\": \"\xFF\",\n\"c\": NaN,\n\"d\": 7\n}", "d "},
      {"{\n    \"a\": {\n        \"inner\": 1\n    },\n    \"b\": tru\n    \"c\": 1,\n}", "c "},
      {"{\n\"a\": " + std::string(500'000, '[') + "\n,\n\"b\": 2\n}", "b "},
  };
  for (const auto& [text, keys] : cases) {
    write(path, text);
    const auto [bytes, values, damaged, error] = DefaultsFile::read(path);
    EXPECT_TRUE(damaged && !error) << text.substr(0, 80);
    std::string found;
    for (const QString& key : values.keys()) found += key.toStdString() + " ";
    EXPECT_EQ(found, keys) << text.substr(0, 80);
  }
}

TEST_F(DefaultsFileTest, ADamagedFileIsKeptMendedAndToldOnce) {
  const std::string damaged = std::string(sample) + "}";
  write(path, damaged);
  testing::internal::CaptureStderr();
  const auto file = open();
  EXPECT_TRUE(file->damaged.get());
  EXPECT_EQ(file->value("haptic_on_alert"), DefaultsValue(false));
  EXPECT_TRUE(settle(*file)) << "without any change";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "sentrel: settings_kept (" + aside.string() + ")\n");
  EXPECT_EQ(read(path), sample);
  EXPECT_EQ(read(aside), damaged);
  EXPECT_EQ(mode(aside), 0600);

  // Damaged while the program runs, more often than is kept.
  const auto running = open();
  int told = 0;
  const auto watch = running->damaged.onChange([&](bool) { ++told; });
  for (std::int64_t round = 2; round < 9; ++round) {
    write(path, "{ \"lost\": " + std::to_string(round));
    store(*running, "round", round);
  }
  EXPECT_EQ(told, 1);
  const auto names = namesIn(path.parent_path());
  EXPECT_EQ(names.size(), 6U) << "the newest five";
  EXPECT_TRUE(names.contains("defaults.json.damaged-8"));
  EXPECT_EQ(open()->value("battery_threshold"), DefaultsValue(std::int64_t{10})) << "memory is the truth";
}

TEST_F(DefaultsFileTest, WhateverStandsInThePlaceIsMovedAside) {
  const std::map<std::string, std::function<void()>> cases{
      {"a folder", [&] { write(path / "file", "mine"); }},
      {"a dangling link", [&] { fs::create_symlink(root / "away" / "defaults.json", path); }},
      {"a device", [&] { fs::create_symlink("/dev/full", path); }},
      {"a pipe", [&] { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); }},
      {"somebody's big file", [&] { write(path, std::string(3'000'000, 'x')); }},
  };
  for (const auto& [name, put] : cases) {
    SCOPED_TRACE(name);
    fs::remove_all(path.parent_path());
    fs::create_directories(path.parent_path());
    put();
    const auto file = open();
    EXPECT_TRUE(file->damaged.get());
    file->set("battery_threshold", std::int64_t{10});
    store(*file, "haptic_on_alert", false);
    EXPECT_EQ(read(path), sample);
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path)));
    EXPECT_THAT(namesIn(path.parent_path()), ElementsAre("defaults.json", "defaults.json.damaged-1"));
  }
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

TEST_F(DefaultsFileTest, NoRoomForTheFileIsToldOnceEachTime) {
  const auto file = open();
  store(*file, "padding", std::string(4000, 'x'));
  for (const std::int64_t time : {10, 20}) {
    const std::string old = read(path);
    const std::string told = withRoomFor(2048, [&] {
      for (const std::int64_t change : {1, 2}) {
        file->set("change", time + change);
        EXPECT_FALSE(settle(*file));
      }
    });
    EXPECT_THAT(told, testing::MatchesRegex("sentrel: settings_unsaved [^\n]*File too large.\n"));
    EXPECT_EQ(read(path), old);
    store(*file, "after", time);  // the first change afterwards writes everything
    EXPECT_EQ(open()->value("change"), DefaultsValue(time + 2));
    EXPECT_THAT(namesIn(path.parent_path()), ElementsAre("defaults.json"));
  }
}

TEST_F(DefaultsFileTest, WhatCannotBeReadIsToldAndNeverReplaced) {
  constexpr auto theirs = "{\n  \"filter_strength\": 5\n}\n";
  write(path, theirs);
  const fs::path other = root / "other.json";
  testing::internal::CaptureStderr();
  fs::rename(path, other);
  fs::create_symlink("/proc/self/mem", path);  // the first page of this process, where nothing is
  const auto file = open();
  fs::rename(other, path);
  ASSERT_TRUE(file->readError());
  EXPECT_THAT(*file->readError(), HasSubstr("Input/output error"));
  EXPECT_FALSE(file->damaged.get());
  file->set("filter_strength", std::int64_t{3});  // the standard value, as all others that are saved
  EXPECT_FALSE(settle(*file));
  EXPECT_EQ(read(path), theirs);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("sentrel: settings_unsaved ("));
  EXPECT_FALSE(open()->readError()) << "the next start reads it";
}

}  // namespace
}  // namespace sentrel::test
