// SPDX-License-Identifier: Apache-2.0
#include "linux/hardening/self_examination.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace sentrel {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

struct SelfExaminationTest : testing::Test {
  ~SelfExaminationTest() override {
    std::error_code ignored;
    fs::remove_all(root, ignored);
  }
  void write(const fs::path& file, const std::string& text, fs::perms rights) const {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << text;
    fs::permissions(file, rights);
  }

  std::string name = "/var/tmp/sentrel-kept-XXXXXX";  // on a disk, where /tmp may be memory
  const fs::path root = fs::canonical(::mkdtemp(name.data()));
  const KeptPlaces places{.folders = {root / "own", root / "not there", {}},
                          .files = {root / "autostart/entry", {}}};
};

TEST_F(SelfExaminationTest, WhatIsNotRefusedIsNotSaidToBe) {
  const PrivacyFacts facts = examineProcess(places);
  EXPECT_EQ(facts.process, ::getpid());
  for (const auto& attempt : {facts.sockets.at(0), facts.program}) {
    EXPECT_EQ(attempt.answer, "0") << attempt.call;
    EXPECT_FALSE(attempt.isRefused);
  }
  EXPECT_TRUE(facts.isDumpable);
  EXPECT_NE(facts.coreDumps, "00000010");
}

TEST_F(SelfExaminationTest, FilesThatCouldBeWrittenAreListed) {
  write(root / "own/settings", "", fs::perms(0600));
  write(root / "alien", "", fs::perms(0600));
  const auto found = [&](const fs::path& file) {
    std::vector<bool> known;
    for (const auto& open : examineProcess(places).openForWriting) {
      if (open.path.starts_with(file.string())) known.push_back(open.isKnown);
    }
    return known;
  };
  const int reading = ::open((root / "alien").c_str(), O_RDONLY);
  EXPECT_THAT(found(root / "alien"), IsEmpty());
  const int both = ::open((root / "alien").c_str(), O_RDWR);
  EXPECT_THAT(found(root / "alien"), ElementsAre(false));
  const int own = ::open((root / "own/settings").c_str(), O_WRONLY | O_APPEND);
  EXPECT_THAT(found(root / "own"), ElementsAre(true));
  const int memory = ::memfd_create("picture", 0);
  EXPECT_THAT(found("/memfd:"), IsEmpty());
  fs::remove(root / "alien");
  EXPECT_THAT(found(root / "alien"), ElementsAre(false)) << "without a name it is still on the disk";
  for (const int descriptor : {reading, both, own, memory}) ::close(descriptor);
  EXPECT_THAT(found(root), IsEmpty());
}

TEST_F(SelfExaminationTest, WhatIsKeptIsShown) {
  EXPECT_THAT(examineProcess(places).keptFiles, IsEmpty());
  write(root / "own/b", std::string(100'000, 'b'), fs::perms(0600));
  write(root / "own/a", "{}\n", fs::perms(0640));
  write(root / "autostart/entry", "[Desktop Entry]", fs::perms(0600));
  write(root / "autostart/of another", "", fs::perms(0600));
  fs::create_directory(root / "own/folder");
  ASSERT_EQ(::mkfifo((root / "own/pipe").c_str(), 0600), 0);
  const auto kept = examineProcess(places).keptFiles;
  const auto isFile = [this](const char* path, std::int64_t bytes, bool isPrivate, std::size_t shown) {
    using Kept = PrivacyFacts::KeptFile;
    return testing::AllOf(Field(&Kept::path, (root / path).string()), Field(&Kept::bytes, bytes),
                          Field(&Kept::isPrivate, isPrivate), Field(&Kept::content, testing::SizeIs(shown)),
                          Field(&Kept::changedMs, testing::Gt(1'600'000'000'000)));
  };
  EXPECT_THAT(kept, ElementsAre(isFile("own/a", 3, false, 3), isFile("own/b", 100'000, true, 16 * 1024),
                                isFile("autostart/entry", 15, true, 15)));
}

}  // namespace
}  // namespace sentrel
