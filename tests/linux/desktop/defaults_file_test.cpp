// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/defaults_file.h"

#include <QJsonDocument>
#include <QLockFile>
#include <functional>
#include <future>
#include <limits>
#include <random>

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
  file->set("matrix_stripe_alpha", 0.42F);
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
    "matrix_stripe_alpha": 0.42
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
  EXPECT_EQ(next->value("matrix_stripe_alpha"), DefaultsValue(0.42F));
  EXPECT_EQ(next->value("selected_camera_id"), std::nullopt);
  EXPECT_FALSE(next->damaged.get());
}

TEST_F(DefaultsFileTest, ReadsEveryKindExactly) {
  const struct {
    std::string text;
    std::optional<DefaultsValue> value;
  } cases[] = {
      {"5", std::int64_t{5}},
      {"9007199254740993", std::int64_t{9007199254740993}},  // no double can hold it
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
      {"0.1234567890123456", 0.12345679F},
      {"3.4028234663852886e38", std::numeric_limits<float>::max()},
      {"1e39", std::nullopt},  // nor can a float
      {"null", std::nullopt},
      {"[1, {\"a\": []}]", std::nullopt},
      {R"("\u00e9\ud83d\ude00\/\b\u0000")", std::string("é\xF0\x9F\x98\x80/\b\0", 9)},
  };
  for (const auto& [text, value] : cases) {
    write(path, "\xEF\xBB\xBF{\r\n\"key\" : 0, \"key\": " + text + "}");
    const auto file = open();
    EXPECT_FALSE(file->damaged.get()) << text;
    EXPECT_EQ(file->value("key"), value) << text;
    if (!value) continue;
    file->set("copy", *value);
    EXPECT_TRUE(settle(*file));
    EXPECT_EQ(open()->value("copy"), value) << read(path);
  }
  const auto file = open();
  file->set("copy", std::numeric_limits<float>::infinity());
  EXPECT_EQ(file->value("copy"), std::nullopt);
  EXPECT_TRUE(settle(*file));
  EXPECT_EQ(open()->value("copy"), std::nullopt);
}

TEST_F(DefaultsFileTest, KeysOfOthersStay) {
  write(path, R"({"future": {"b": [1, 2.5]}, "nothing": null, "ours": 1, "hand": 1})");
  const auto file = open();
  file->set("ours", std::int64_t{2});
  EXPECT_TRUE(settle(*file));
  const auto values = [this] {
    return QJsonDocument(DefaultsFile::read(path).values).toJson(QJsonDocument::Compact).toStdString();
  };
  constexpr auto merged = R"({"future":{"b":[1,2.5]},"hand":1,"nothing":null,"ours":2})";
  EXPECT_EQ(values(), merged);

  // A person edits the file while the program runs.
  write(path, R"({"hand": 9, "new": "x"})");
  file->set("more", true);
  EXPECT_TRUE(settle(*file));
  EXPECT_EQ(values(), R"({"hand":9,"more":true,"new":"x","ours":2})");

  // The file goes: all that the program knows comes back.
  fs::remove_all(path.parent_path());
  file->remove("more");
  EXPECT_TRUE(settle(*file));
  EXPECT_EQ(values(), merged);
}

TEST_F(DefaultsFileTest, OfADamagedFileWholeLinesAreKept) {
  const struct {
    std::string text;
    std::string keys;
  } cases[] = {
      {"", ""},
      {std::string(600, '\0'), ""},
      {"[1, 2]\n", ""},
      {"{\n\"a\": 1\n\"b\": 2\n}", "a b "},        // no comma
      {"{\n\"a\": 1, // why\n\"b\": 2\n}", "b "},  // a comment
      {"{\n\"a\": 1,\n\"b\": 2", "a "},            // perhaps once 20
      {"{\n\"a\": 05,\n\"b\": 0x1,\n\"c\": NaN,\n\"d\": 7\n}", "d "},
      {"{\n\"a\": \"\xC3(\",\n\"b\": \"\xFF\",\n\"c\": 1\n}", "c "},
      {"{\n    \"a\": {\n        \"inner\": 1\n    },\n    \"b\": tru\n    \"c\": 1,\n}", "c "},
      {"{\n\"a\": " + std::string(500'000, '[') + "\n,\n\"b\": 2\n}", "b "},
  };
  for (const auto& [text, keys] : cases) {
    write(path, text);
    const auto [bytes, values, damaged, error] = DefaultsFile::read(path);
    EXPECT_TRUE(damaged) << text.substr(0, 80);
    EXPECT_FALSE(error);
    std::string found;
    for (const QString& key : values.keys()) found += key.toStdString() + " ";
    EXPECT_EQ(found, keys) << text.substr(0, 80);
  }
}

/// Bytes that flip, and an end that is missing, harm their own lines and no other.
TEST_F(DefaultsFileTest, DamageStaysWhereItIs) {
  {
    const std::shared_ptr<DefaultsFile> file = open();
    FilterSettings settings;
    settings.selectedCameraID = "caméra \"{1}\"";
    SettingsRepository(file, std::make_shared<test::FakeLoginItem>()).save(settings);
    EXPECT_TRUE(settle(*file));
  }
  const std::string text = read(path);
  const QJsonObject whole = DefaultsFile::read(path).values;
  std::mt19937 random(20261121);  // NOLINT(cert-msc51-cpp): the same damage in every run
  for (int round = 0; round < 2'000; ++round) {
    std::string damaged = text.substr(0, round % 2 == 0 ? text.size() : random() % text.size());
    for (int flips = round % 4; flips > 0 && !damaged.empty(); --flips) {
      damaged[random() % damaged.size()] ^= static_cast<char>(1U << (random() % 8U));
    }
    write(path, damaged);
    const QJsonObject read = DefaultsFile::read(path).values;
    // An entry is kept when neither its line nor the ends of line around it were touched.
    std::size_t begin = text.find('\n');
    for (auto at = whole.begin(); at != whole.end(); ++at) {
      const std::size_t end = text.find('\n', begin + 1);
      if (end < damaged.size() &&
          damaged.compare(begin, end + 1 - begin, text, begin, end + 1 - begin) == 0) {
        EXPECT_EQ(read[at.key()], at.value()) << at.key().toStdString() << " is lost in\n" << damaged;
      }
      begin = end;
    }
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

TEST_F(DefaultsFileTest, WhoeverHangsWithTheLockHoldsNothingBack) {
  write(path, "{}");
  QLockFile lock(QString::fromStdString(path.string() + ".lock"));
  ASSERT_TRUE(lock.lock());
  const auto file = open();
  file->set("key", std::int64_t{1});
  EXPECT_TRUE(settle(*file));
  EXPECT_EQ(open()->value("key"), DefaultsValue(std::int64_t{1}));
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
                               0.1F, false, false, 20,    true,  "caméra"};
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
