// SPDX-License-Identifier: Apache-2.0
//
// What the program has taken from itself, tried from within it; and what of a picture is found in its memory.
#include <algorithm>
#include <bitset>
#include <cstring>
#include <iterator>
#include <unordered_set>

#include "app/program_desk.h"

namespace sentrel::test {
namespace {

/// A picture of random black and white squares, whose rows are found again in whatever form they are kept.
class SquaresPicture {
 public:
  static constexpr int width = 640;
  static constexpr int height = 480;
  static constexpr int square = 4;  // pixels

  SquaresPicture() : pixels_(std::size_t{width} * height * 4, 0xFF) {
    std::mt19937 random(42);
    for (int y = 0; y < height; y += square) {
      std::uint64_t word = 0;
      for (int x = 0; x < width; x += square) {
        const bool bright = (random() & 1U) != 0;
        word = word << 1U | (bright ? 1U : 0U);
        if (x / square >= 63) {
          rows_.insert(word);
          ends_.set(word % ends_.size());
        }
        for (int i = 0; i < square * square; ++i) {
          const std::ptrdiff_t at = std::ptrdiff_t{y + i / square} * width + x + i % square;
          std::fill_n(pixels_.begin() + at * 4, 3, static_cast<std::uint8_t>(bright ? 235 : 16));
        }
      }
    }
  }
  /// A frame of the scene with squares below the faces.
  [[nodiscard]] QImage below(const QImage& scene) const {
    QImage frame = scene.convertToFormat(QImage::Format_RGB32);
    constexpr std::ptrdiff_t faces = std::ptrdiff_t{260} * width * 4;
    std::copy(pixels_.begin() + faces, pixels_.end(), frame.bits() + faces);
    return frame;
  }

  /// How often 64 squares of a row stand in a memory, one every `stride` bytes for the strides of the common
  /// forms: a byte, two, three or four a pixel, of the picture or of one a quarter its size.
  [[nodiscard]] long foundIn(const std::vector<char>& memory) const {
    constexpr std::size_t page = 4096;
    static const std::vector<char> empty(page, 0);
    long found = 0;
    for (const std::size_t stride : {1U, 3U, 4U, 8U, 12U, 16U}) {
      std::vector<std::uint64_t> words(stride);
      std::size_t next = 0;
      for (std::size_t begin = 0; begin < memory.size(); begin += page) {
        const std::size_t end = std::min(begin + page, memory.size());
        // Most of it was never used.
        if (std::memcmp(memory.data() + begin, empty.data(), end - begin) == 0) continue;
        for (std::size_t i = begin; i < end; ++i) {
          std::uint64_t& word = words[next];
          next = next + 1 == stride ? 0 : next + 1;
          word = word << 1U | (static_cast<std::uint8_t>(memory[i]) > 127 ? 1U : 0U);
          if (ends_[word % ends_.size()] && rows_.contains(word)) ++found;
        }
      }
    }
    return found;
  }

 private:
  std::vector<std::uint8_t> pixels_;
  std::unordered_set<std::uint64_t> rows_;
  std::bitset<1U << 20U> ends_;  // the last squares of the rows: most of memory needs no closer look
};

struct Hardening : ProgramDesk {
#ifdef __SANITIZE_ADDRESS__
  void SetUp() override {
    GTEST_SKIP() << "a sanitizer keeps freed memory and wants to be the first library";
  }
#endif

  /// The picture in all memory of a process that can be written, also in what a core dump leaves out.
  [[nodiscard]] long foundIn(pid_t pid) {
    const std::string folder = "/proc/" + std::to_string(pid);
    std::ifstream maps(folder + "/maps");
    std::ifstream memory(folder + "/mem", std::ios::binary);
    long found = 0;
    for (std::string line; std::getline(maps, line);) {
      std::size_t begin = 0;
      std::size_t end = 0;
      char rights[5] = {};
      if (std::sscanf(line.c_str(), "%zx-%zx %4s", &begin, &end, rights) != 3 || rights[1] != 'w') continue;
      std::vector<char> bytes(end - begin);
      memory.clear();
      memory.seekg(static_cast<std::streamoff>(begin));
      memory.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
      bytes.resize(static_cast<std::size_t>(memory.gcount()));
      found += picture.foundIn(bytes);
    }
    return found;
  }

  const SquaresPicture picture;
};

TEST_F(Hardening, NetworkAndWhatItNeverNeedsIsRefused) {
  process = spawn({"LD_PRELOAD=" SENTREL_PRELOADED});
  ASSERT_TRUE(waitUntil([&] { return process.output().find("probe: done") != std::string::npos; }));
  const QString told = QString::fromStdString(process.output());
  EXPECT_TRUE(told.contains(u"probe: socket 1 allowed"_s)) << told.toStdString();
  EXPECT_EQ(told.count(u"not permitted"_s), 21) << told.toStdString();
}

TEST_F(Hardening, TheProgramTriesInFrontOfThePersonWhatItClaims) {
  startProtecting();
  Said said;
  const auto hasNoPicture = [&] {
    said = say({"privacy"});
    return said.out.find("✓ Images de la caméra en mémoire\u00A0: 0\n") != std::string::npos;
  };
  EXPECT_TRUE(waitUntil([&] { return !hasNoPicture(); })) << said.out;  // there is none between two frames
  EXPECT_EQ(said.status, 0) << said.out << said.err;

  perform("toggle");
  std::ofstream(settingsFolder() / "put here") << "by somebody";
  fs::permissions(settingsFolder() / "put here", fs::perms(0644));
  EXPECT_TRUE(waitUntil(hasNoPicture)) << said.out;
  EXPECT_THAT(said.out, testing::HasSubstr("✗ Gardé, et lisible par d'autres\u00A0: put here"));
  EXPECT_EQ(said.status, 1);
}

TEST_F(Hardening, NoPictureIsInACoreDumpNorInMemoryOnceItHasStopped) {
  const QImage frames[] = {picture.below(alone), picture.below(watched)};
  std::atomic<int> played{0};
  camera.setSource([&](std::int64_t) {
    ++played;
    return frames[isWatched ? 1 : 0].constBits();
  });
  const auto play = [&](bool withOnlooker) {
    isWatched = withOnlooker;
    played = 0;
    return waitUntil([&] { return played > 15 && (!withOnlooker || state() == "alert"); });
  };
  // Without the one call that would make it forget by chance.
  process = spawn({"LD_PRELOAD=" SENTREL_PRELOADED});
  bus->waitForName(programName);
  ASSERT_TRUE(play(true));
  // For as long as the alert outlasts the onlooker, the whole frame is shown; then the part around them
  // again.
  ASSERT_TRUE(play(false));
  ASSERT_TRUE(play(true));
  ASSERT_TRUE(play(true));
  EXPECT_GT(foundIn(process.pid()), 1000) << "the search finds what is there";

  const auto core = desktop.runtimeFolder() / "core";
  desktop.run("gcore", {"-o", core.string(), std::to_string(process.pid())}, seconds(60));
  std::ifstream file(core.string() + "." + std::to_string(process.pid()), std::ios::binary);
  const std::vector<char> dump(std::istreambuf_iterator<char>(file), {});
  EXPECT_GT(dump.size(), 1000U);
  EXPECT_EQ(picture.foundIn(dump), 0) << dump.size() << " bytes";

  perform("toggle");
  ASSERT_TRUE(waitUntil([&] { return state() == "inactive" && !camera.isOpen(); }));
  EXPECT_TRUE(waitUntil([&] { return foundIn(process.pid()) == 0; }, seconds(15), milliseconds(200)));
}

}  // namespace
}  // namespace sentrel::test
