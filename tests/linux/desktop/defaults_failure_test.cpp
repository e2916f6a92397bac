// SPDX-License-Identifier: Apache-2.0
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <utility>

#include "linux/desktop/defaults_fixture.h"

namespace sentrel {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// Takes back what a test did to the process or to the machine.
class Undo {
 public:
  explicit Undo(std::function<void()> action) : action_(std::move(action)) {}
  ~Undo() { now(); }
  Undo(const Undo&) = delete;
  Undo& operator=(const Undo&) = delete;
  void now() {
    if (const auto action = std::exchange(action_, nullptr)) action();
  }

 private:
  std::function<void()> action_;
};

class DefaultsFailureTest : public test::DefaultsFixture {
 protected:
  /// The folder refuses while `obstacle` lasts: nothing is lost, the person is told once for the whole time,
  /// and the first change afterwards writes everything.
  void expectToldOnceAndMadeGood(const std::function<std::unique_ptr<Undo>()>& obstacle,
                                 const std::string& reason) {
    const auto file = open();
    file->set("before", true);
    file->set("padding", std::string(4000, 'x'));
    ASSERT_TRUE(settle(*file));
    for (std::int64_t time = 0; time < 2; ++time) {
      const std::string old = read(path);
      testing::internal::CaptureStderr();
      {
        const auto lasting = obstacle();
        for (std::int64_t change = 0; change < 3; ++change) {
          file->set("change", change + 10 * time);
          EXPECT_FALSE(settle(*file));
        }
      }
      const std::string told = testing::internal::GetCapturedStderr();
      EXPECT_THAT(told, HasSubstr("sentrel: the settings cannot be saved: "));
      EXPECT_THAT(told, HasSubstr(reason));
      EXPECT_EQ(std::ranges::count(told, '\n'), 1) << told;
      EXPECT_EQ(read(path), old);
      EXPECT_EQ(file->value("change"), DefaultsValue(2 + 10 * time));
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
  expectToldOnceAndMadeGood(
      [] {
        rlimit before{};
        ::getrlimit(RLIMIT_FSIZE, &before);
        const rlimit tiny{.rlim_cur = 2048, .rlim_max = before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &tiny);
        return std::make_unique<Undo>([before] { ::setrlimit(RLIMIT_FSIZE, &before); });
      },
      "File too large");
}

TEST_F(DefaultsFailureTest, ReadOnly) {
  fs::permissions(root, fs::perms(0755));
  const struct {
    std::string name;
    std::function<fs::path()> target;
    fs::perms allowed;
    fs::perms refused;
  } cases[] = {
      {"the folder", [&] { return path.parent_path(); }, fs::perms(0700), fs::perms(0555)},
      {"the file", [&] { return path; }, fs::perms(0600), fs::perms(0444)},
  };
  constexpr uid_t nobody = 65534;
  for (const auto& [name, target, allowed, refused] : cases) {
    SCOPED_TRACE(name);
    fs::remove_all(path.parent_path());
    // Nothing is read-only to root.
    const bool isRoot = ::geteuid() == 0;
    if (isRoot) {
      fs::create_directories(path.parent_path());
      ASSERT_EQ(::chown(path.parent_path().c_str(), nobody, nobody), 0);
      ASSERT_EQ(::seteuid(nobody), 0);
    }
    Undo becomeRoot([isRoot] { EXPECT_TRUE(!isRoot || ::seteuid(0) == 0); });
    expectToldOnceAndMadeGood(
        [target = target(), allowed = allowed, refused = refused] {
          fs::permissions(target, refused);
          return std::make_unique<Undo>([target, allowed] { fs::permissions(target, allowed); });
        },
        "Permission denied");
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

}  // namespace
}  // namespace sentrel
