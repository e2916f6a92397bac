// SPDX-License-Identifier: Apache-2.0
#include "linux/desktop/qt_main_loop.h"

#include <QEventLoop>

#include "linux/desktop/event_desk.h"

namespace sentrel::test {
namespace {

using testing::ElementsAre;

struct QtMainLoopTest : EventDesk {
  QEventLoop events;
  std::vector<int> seen;
};

TEST_F(QtMainLoopTest, ANestedLoopGoesOnInOrder) {
  loop->post([&] {
    seen.push_back(1);
    QEventLoop nested;
    loop->post([&] {
      seen.push_back(3);
      nested.quit();
    });
    nested.exec();
    seen.push_back(4);
  });
  loop->post([&] { seen.push_back(2); });
  loop->post([&] { loop->post([&] { events.quit(); }); });
  events.exec();
  EXPECT_THAT(seen, ElementsAre(1, 2, 3, 4));
}

TEST_F(QtMainLoopTest, TimersEndWithTheirRegistrationOrWithTheLoop) {
  std::optional<QtMainLoop> shortLived(std::in_place);
  auto orphan = shortLived->every(1, [&] { seen.push_back(-1); });
  shortLived->post([&] { seen.push_back(-1); });
  shortLived.reset();
  auto ended = loop->after(1, [&] { seen.push_back(-1); });
  ended.reset();
  Registration own;
  Registration last;
  // A timer that ends itself, what its task holds must live until it returns.
  own = loop->every(1, [&, text = std::string("kept alive while it runs")] {
    seen.push_back(1);
    if (seen.size() < 3) return;
    own.reset();
    EXPECT_EQ(text, "kept alive while it runs");
    last = loop->after(20, [&] { events.quit(); });  // time for a fourth
  });
  events.exec();
  orphan.reset();
  EXPECT_THAT(seen, ElementsAre(1, 1, 1));
}

}  // namespace
}  // namespace sentrel::test
