// SPDX-License-Identifier: Apache-2.0
#include "support/serial_queue.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace sentrel::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(SerialQueue, runsWhatIsDueInTheOrderOfTheMomentsAndNeverTooEarly) {
  std::string order;
  SerialQueue queue("queue");
  const auto now = steady_clock::now();
  const auto at = [&](milliseconds delay, char name) {
    queue.asyncAt(now + delay, [&order, name, moment = now + delay] {
      order += steady_clock::now() < moment ? '-' : name;
    });
  };
  // The thread that waits for one of these is told of an earlier one.
  at(milliseconds(40), 'c');
  at(milliseconds(20), 'b');
  at(milliseconds(-1), 'a');
  std::this_thread::sleep_until(now + milliseconds(41));
  queue.sync([] {});
  EXPECT_EQ(order, "abc");
}

TEST(SerialQueue, dropsWhatIsNotYetDueAtItsEnd) {
  const auto held = std::make_shared<int>();
  SerialQueue("queue").asyncAt(steady_clock::time_point::max(), [held] { ADD_FAILURE(); });
  EXPECT_EQ(held.use_count(), 1);
}

TEST(SerialQueue, sharesAThreadAndWaitsAtItsEndForItsOwnTasks) {
  std::string order;
  std::thread::id threads[2];
  auto first = std::make_unique<SerialQueue>("first");
  {
    SerialQueue second("second", *first);
    first->async([&] {
      threads[0] = std::this_thread::get_id();
      second.async([&] {
        threads[1] = std::this_thread::get_id();
        order += 'b';
      });
      order += 'a';
    });
    first->sync([] {});
  }
  EXPECT_EQ(order, "ab");
  EXPECT_EQ(threads[0], threads[1]);
  // The last one that lets go on the thread itself ends it.
  SerialQueue third("third", *first);
  third.async([last = std::move(first)] {});
  third.sync([&] { order += 'c'; });
  EXPECT_EQ(order, "abc");
}

}  // namespace
}  // namespace sentrel::test
