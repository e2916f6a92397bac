// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/qt_main_loop.h"

#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <optional>
#include <thread>
#include <vector>

#include "linux/desktop/system_clock.h"

namespace sentrel {
namespace {

using testing::ElementsAre;

class QtMainLoopTest : public testing::Test {
 protected:
  /// Runs events until `quit()`; a guard ends it should that never come.
  void run() {
    const auto guard = loop.after(20'000, [this] {
      ADD_FAILURE() << "the loop never finished";
      events.quit();
    });
    events.exec();
  }
  void quit() { events.quit(); }

  int argumentCount = 1;
  char name[5] = "test";
  char* arguments[2] = {name, nullptr};
  QCoreApplication application{argumentCount, arguments};
  QEventLoop events;
  QtMainLoop loop;
  std::vector<int> seen;
};

TEST_F(QtMainLoopTest, KeepsTheOrderOfManyThreads) {
  constexpr int perThread = 5000;
  std::vector<int> last(2, -1);
  int total = 0;
  const auto send = [&](std::size_t thread) {
    for (int i = 0; i < perThread; ++i)
      loop.post([&, thread, i] {
        EXPECT_EQ(last[thread] + 1, i);
        last[thread] = i;
        if (++total == 2 * perThread) quit();
      });
  };
  std::thread first(send, 0);
  std::thread second(send, 1);
  run();
  first.join();
  second.join();
  EXPECT_EQ(total, 2 * perThread);
  EXPECT_TRUE(loop.idle());
}

TEST_F(QtMainLoopTest, ANestedLoopGoesOnInOrder) {
  loop.post([&] {
    seen.push_back(1);
    QEventLoop nested;
    loop.post([&] {
      seen.push_back(3);
      nested.quit();
    });
    nested.exec();
    seen.push_back(4);
  });
  loop.post([&] { seen.push_back(2); });
  loop.post([&] { loop.post([&] { quit(); }); });
  run();
  EXPECT_THAT(seen, ElementsAre(1, 2, 3, 4));
}

TEST_F(QtMainLoopTest, TimersEndWithTheirRegistration) {
  std::optional<Registration> own;
  int ticks = 0;
  auto ended = loop.after(1, [&] { seen.push_back(-1); });
  ended.reset();
  Registration last;
  // A timer that ends itself, what its task holds must live until it returns.
  own = loop.every(1, [&, text = std::string("kept alive while it runs")] {
    if (++ticks == 3) {
      own.reset();
      EXPECT_EQ(text, "kept alive while it runs");
      last = loop.after(20, [&] { quit(); });  // time for a fourth
    }
  });
  run();
  EXPECT_EQ(ticks, 3);
  EXPECT_TRUE(seen.empty());
}

TEST_F(QtMainLoopTest, RegistrationsOutliveTheLoop) {
  std::optional<QtMainLoop> shortLived(std::in_place);
  auto timer = shortLived->every(1, [] {});
  shortLived->post([] { ADD_FAILURE() << "a task of a loop that is gone"; });
  shortLived.reset();
  timer.reset();
  QCoreApplication::processEvents();
}

TEST(SystemClock, TakesNoStepsOfTheWallClock) {
  std::int64_t wall = 1'700'000'000'000;
  std::int64_t boot = 5000;
  const SystemClock clock([&] { return wall; }, [&] { return boot; });
  const std::int64_t before = clock.nowMs();
  wall -= 3'600'000;
  boot += 1400;
  EXPECT_EQ(clock.nowMs(), before + 1400);
}

}  // namespace
}  // namespace sentrel
