// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/journal_file.h"

#include <QDateTime>
#include <algorithm>

#include "linux/desktop/personal_file.h"

namespace sentrel::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::int64_t dayMs = std::int64_t{24} * 60 * 60 * 1000;
const std::string firstLine = R"({"sentrel":"alerts","version":1})"
                              "\n";

struct JournalFileTest : PersonalFileTest {
  JournalFileTest() { loop->advance(nowMs()); }

  [[nodiscard]] static std::int64_t nowMs() { return QDateTime::currentMSecsSinceEpoch(); }
  [[nodiscard]] std::unique_ptr<JournalFile> open() {
    auto journal = std::make_unique<JournalFile>(path, loop, loop, queue);
    settle();
    return journal;
  }
  void settle() {
    queue->sync([] {});
    loop->runPosted();
  }
  [[nodiscard]] std::vector<AlertRecord> recordsOf(JournalFile& journal) {
    std::vector<AlertRecord> told;
    journal.read([&told](const auto& records) { told = records; });
    settle();
    return told;
  }
  /// One that began so long ago.
  [[nodiscard]] AlertRecord record(std::int64_t agoMs, const std::string& camera = "Caméra") const {
    return {.beganMs = loop->nowMs() - agoMs,
            .lengthMs = 12'345,
            .faces = 3,
            .widestFace = 0.083,
            .camera = camera,
            .darkened = true,
            .end = AlertEnd::nobody};
  }
  void add(JournalFile& journal, AlertRecord added) {
    journal.add(std::move(added));
    settle();
  }
  [[nodiscard]] std::string text() const { return read(path); }

  const fs::path path = root / "state" / "sentrel" / "alerts.jsonl";
};

TEST_F(JournalFileTest, KeepsWhatItIsGivenForThePersonAlone) {
  const auto journal = open();
  EXPECT_FALSE(fs::exists(path.parent_path())) << "nothing is made before there is something to keep";
  add(*journal, record(5000));
  loop->advance(60'000);  // the program's clock is ahead of the one on the wall
  add(*journal, record(1000));
  EXPECT_EQ(mode(path), 0600);
  EXPECT_EQ(mode(path.parent_path()), 0700);
  EXPECT_THAT(text(), testing::StartsWith(firstLine + "{\"began\":\""));
  EXPECT_THAT(text(),
              HasSubstr(R"("camera":"Caméra","darkened":true,"end":"nobody","faces":3,"length_ms":12345,)"
                        R"("notified":false,"widest_face":0.083})"));

  auto again = recordsOf(*open());
  ASSERT_THAT(again, SizeIs(2));
  EXPECT_NEAR(static_cast<double>(nowMs() - again[0].beganMs), 5000, 4000);
  EXPECT_NEAR(static_cast<double>(nowMs() - again[1].beganMs), 1000, 4000);
  AlertRecord expected = record(0);
  expected.beganMs = again[0].beganMs;
  EXPECT_EQ(again[0], expected);

  journal->erase();
  EXPECT_THAT(recordsOf(*journal), IsEmpty());
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(JournalFileTest, OldLinesGoAndNeverMoreThanTwoMebibytesStay) {
  const auto journal = open();
  add(*journal, record(90 * dayMs - 60'000, "kept"));
  add(*journal, record(91 * dayMs, "old"));
  EXPECT_THAT(text(), testing::Not(HasSubstr("old")));
  EXPECT_THAT(recordsOf(*journal), SizeIs(1));

  std::string many = text();
  const std::string line = many.substr(firstLine.size());
  while (std::ssize(many) < JournalFile::mostBytes + 100'000) many += line;
  write(path, many);
  const auto tidied = open();
  EXPECT_LE(std::ssize(text()), JournalFile::mostBytes);
  EXPECT_GT(std::ssize(text()), JournalFile::mostBytes - 1000);
  add(*tidied, record(0, "newest"));
  EXPECT_LE(std::ssize(text()), JournalFile::mostBytes);
  EXPECT_EQ(recordsOf(*tidied).back().camera, "newest");
}

TEST_F(JournalFileTest, OfADamagedFileWholeLinesAreKept) {
  add(*open(), record(0));
  const std::string good = text().substr(firstLine.size());
  const auto with = [&](const std::string& name, const char* value) {
    std::string changed = good;
    const auto at = changed.find(name) + name.size();
    return firstLine + changed.replace(at, changed.find_first_of(",}", at) - at, value) + good;
  };
  const struct {
    std::string text;
    std::size_t records;
    bool isDamaged;
  } cases[] = {
      {firstLine + good + good, 2, false},
      {firstLine, 0, false},
      {"", 0, false},
      {good + good, 2, true},  // its first line is gone
      {firstLine + good + "{\"began\":\n" + good, 2, true},
      {firstLine + good + good.substr(0, good.size() - 1), 1, true},  // its end may be missing
      {firstLine + std::string(10'000, 'x') + '\n' + good, 1, true},
      {firstLine + std::string(3, '\0') + '\n' + good, 1, true},
      {with("\"faces\":", "\"2\""), 1, true},
      {with("\"widest_face\":", "1e9"), 1, true},
      {with("\"length_ms\":", "-1"), 1, true},
      {with("\"end\":", "\"eaten\""), 1, true},
      {with("\"began\":", "\"yesterday\""), 1, true},
  };
  for (const auto& [damaged, records, isDamaged] : cases) {
    SCOPED_TRACE(damaged);
    write(path, damaged);
    const auto content = JournalFile::read(path);
    EXPECT_THAT(content.records, SizeIs(records));
    EXPECT_EQ(content.isDamaged, isDamaged);
    EXPECT_EQ(content.error, "");
    const auto journal = open();
    add(*journal, record(0));
    EXPECT_EQ(journal->trouble.get(), isDamaged ? "journal_damaged" : "");
    EXPECT_THAT(JournalFile::read(path).records, SizeIs(records + 1));
    EXPECT_FALSE(JournalFile::read(path).isDamaged) << "mended";
  }
}

TEST_F(JournalFileTest, AFileOfANewerVersionIsLeftAloneUntilItIsErased) {
  const std::string newer = "{\"sentrel\":\"alerts\",\"version\":2}\nwhatever that is\n";
  write(path, newer);
  const auto journal = open();
  add(*journal, record(0));
  EXPECT_EQ(text(), newer);
  EXPECT_EQ(journal->trouble.get(), "journal_newer");
  EXPECT_THAT(recordsOf(*journal), IsEmpty());
  journal->erase();
  add(*journal, record(0));
  EXPECT_THAT(recordsOf(*journal), SizeIs(1));
  EXPECT_EQ(journal->trouble.get(), "");
}

TEST_F(JournalFileTest, WithoutRoomTheOldFileStaysAndTheRecordWaits) {
  const auto journal = open();
  for (int i = 0; i < 10; ++i) add(*journal, record(1000));
  const std::string before = text();
  const std::string said = withRoomFor(512, [&] {
    for (const char* camera : {"waits", "waits, too"}) add(*journal, record(0, camera));
  });
  EXPECT_EQ(std::ranges::count(said, '\n'), 1) << said;
  EXPECT_EQ(text(), before);
  EXPECT_EQ(journal->trouble.get(), "journal_unwritable");
  EXPECT_THAT(recordsOf(*journal), SizeIs(12)) << "shown all the same";
  add(*journal, record(0));
  EXPECT_EQ(journal->trouble.get(), "");
  EXPECT_THAT(JournalFile::read(path).records, SizeIs(13));
}

TEST_F(JournalFileTest, WhereNothingCanBeWrittenItIsTold) {
  write(root / "file", "no folder");
  ASSERT_EQ(::mkfifo((root / "pipe").c_str(), 0600), 0);
  testing::internal::CaptureStderr();
  for (const fs::path& place : {root / "file" / "alerts.jsonl", root, root / "pipe", fs::path()}) {
    SCOPED_TRACE(place);
    JournalFile journal(place, loop, loop, queue);
    add(journal, record(0));
    EXPECT_EQ(journal.trouble.get(), "journal_unwritable");
    EXPECT_THAT(recordsOf(journal), SizeIs(1));
  }
  testing::internal::GetCapturedStderr();
}

TEST_F(JournalFileTest, ATableIsNothingToCalculate) {
  const std::pair<std::string, std::string> cameras[] = {
      {R"(the "good" one, 1080p)", R"("the ""good"" one, 1080p")"},
      {R"(=HYPERLINK("x"))", R"-("'=HYPERLINK(""x"")")-"},
      {"+1", R"("'+1")"},
      {"-1", R"("'-1")"},
      {"@SUM(A1)", R"-("'@SUM(A1)")-"},
      {"\t=1", R"("'	=1")"},
      {"", R"("")"},
  };
  for (const auto& [camera, cell] : cameras) {
    AlertRecord given = record(0, camera);
    given.beganMs = QDateTime(QDate(2026, 11, 22), QTime(14, 35, 7)).toMSecsSinceEpoch();
    EXPECT_EQ(asTable(std::vector{given}).toStdString(),
              "began,length_s,faces,widest_face_percent,camera,darkened,notified,end\r\n"
              "2026-11-22 14:35:07,12.3,3,8.3," +
                  cell + ",yes,no,nobody\r\n");
  }

  const auto journal = open();
  add(*journal, record(0, std::string(10'000, '=') + "\x1b[2J\n"));
  EXPECT_EQ(recordsOf(*journal).front().camera, std::string(100, '='));
  const fs::path table = root / "table.csv";
  for (const bool works : {true, false}) {
    bool isDone = !works;
    testing::internal::CaptureStderr();
    journal->exportTo(works ? table : path / "in a file", [&isDone](bool done) { isDone = done; });
    settle();
    EXPECT_EQ(testing::internal::GetCapturedStderr().empty(), works);
    EXPECT_EQ(isDone, works);
  }
  EXPECT_EQ(mode(table), 0600);
}

}  // namespace
}  // namespace sentrel::test
