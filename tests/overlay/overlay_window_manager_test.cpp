// SPDX-License-Identifier: Apache-2.0
#include "overlay/overlay_window_manager.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "overlay/overlay_content_view.h"
#include "support/fake_overlay_backend.h"
#include "support/manual_main_loop.h"

namespace sentrel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const Screen first{1, "one", {0, 0, 1920, 1080}, true};
const Screen second{2, "two", {1920, 0, 1280, 1024}, false};
const Screen third{3, "three", {0, 1080, 800, 600}, false};

class OverlayWindowManagerTest : public testing::Test {
 protected:
  OverlayScene lastScene(std::uint64_t screen = 1) {
    loop->runPosted();
    const auto& scenes = backend->shown.at(screen).scenes;
    return scenes.empty() ? OverlayScene{} : scenes.back();
  }

  [[nodiscard]] std::vector<std::uint64_t> covered() const {
    std::vector<std::uint64_t> ids;
    for (const auto& [id, shown] : backend->shown) ids.push_back(id);
    return ids;
  }

  std::shared_ptr<test::ManualMainLoop> loop = std::make_shared<test::ManualMainLoop>();
  std::shared_ptr<test::FakeOverlayBackend> backend = std::make_shared<test::FakeOverlayBackend>();
  OverlayWindowManager manager{backend, loop, loop};
};

TEST_F(OverlayWindowManagerTest, CoversEveryScreenAndFollowsThemOnlyWhileShowing) {
  backend->screenList = {first, second};
  manager.hide();
  manager.show();
  manager.show();
  EXPECT_THAT(covered(), ElementsAre(1, 2));
  EXPECT_EQ(backend->created, 2);
  Screen resized = first;
  resized.frame.width = 800;
  backend->setScreens({resized, third});
  EXPECT_THAT(covered(), ElementsAre(1, 3));
  EXPECT_EQ(backend->created, 3) << "the window of a screen that stays is left alone";
  backend->setScreens({third, first});
  manager.coverAllScreens = false;
  EXPECT_THAT(covered(), ElementsAre(1)) << "the main one";
  backend->setScreens({second, third});
  EXPECT_THAT(covered(), ElementsAre(2)) << "none is marked";
  manager.coverAllScreens = true;
  EXPECT_THAT(covered(), ElementsAre(2, 3));
  backend->setScreens({});
  EXPECT_THAT(covered(), IsEmpty());
  manager.hide();
  EXPECT_FALSE(manager.isShowing());
  EXPECT_THAT(covered(), IsEmpty());
  EXPECT_EQ(backend->screensChanged.observerCount(), 0U);
}

TEST_F(OverlayWindowManagerTest, ComposesTheScene) {
  manager.show();
  EXPECT_EQ(lastScene(), OverlayScene{}) << "no stripes at opacity 0";
  manager.currentAlpha = 0.5F;
  const StripePattern stripes{8 * std::sqrt(80.0 / 60.0), 0x000000, double{0.42F}, 0.5};
  EXPECT_EQ(lastScene(), (OverlayScene{stripes, 0, false, false}));
  manager.isAlertMode = true;
  manager.shortcutAvailable = true;
  EXPECT_EQ(lastScene(), (OverlayScene{stripes, 0.7, true, true}));
  manager.hide();
  manager.matrixEnabled = false;
  manager.show();
  EXPECT_EQ(lastScene(), (OverlayScene{{}, 0.7, true, true})) << "values are kept while hidden";
}

TEST_F(OverlayWindowManagerTest, ThePictureIsOnTheMainScreen) {
  backend->screenList = {first, second};
  manager.show();
  manager.picture = RetroPicture{nullptr, 3};
  ASSERT_TRUE(backend->shown[1].picture);
  EXPECT_EQ(backend->shown[1].picture->blink, 3);
  EXPECT_FALSE(backend->shown[2].picture);
  Screen newMain = second;
  newMain.isMain = true;
  backend->setScreens({newMain});
  EXPECT_TRUE(backend->shown[2].picture) << "which it follows";
  Screen former = first;
  former.isMain = false;
  backend->setScreens({former, newMain});
  EXPECT_FALSE(backend->shown[1].picture);
  manager.picture = std::nullopt;
  EXPECT_FALSE(backend->shown[2].picture);
}

TEST_F(OverlayWindowManagerTest, RepaintsOncePerTurnAndOnlyForWhatIsSeen) {
  backend->screenList = {first, second};
  manager.currentAlpha = 0.4F;
  manager.show();
  manager.matrixColorArgb = 0xFF102030;
  manager.matrixStripeAlpha = 0.7F;
  loop->runPosted();
  EXPECT_EQ(backend->shown[1].scenes.size(), 1U);
  manager.matrixColorArgb = 0x00102030;  // the alpha byte is not seen
  manager.lastDistanceCm = 90;
  loop->runPosted();
  EXPECT_EQ(backend->shown[1].scenes.size(), 1U);
  manager.currentAlpha = 0.5F;
  loop->post([this] { manager.isAlertMode = true; });
  loop->runPosted();
  EXPECT_EQ(backend->shown[1].scenes.size(), 2U) << "a change of state is one repaint";
  manager.isAlertMode = false;
  manager.currentAlpha = 0.6F;
  manager.hide();
  loop->runPosted();
  EXPECT_THAT(covered(), IsEmpty()) << "a repaint that waits does not bring a window back";
}

TEST_F(OverlayWindowManagerTest, FlashesInStepsWhileTheAlertLasts) {
  manager.show();
  loop->runPosted();
  const std::size_t idleTimers = loop->timerCount();
  manager.isAlertMode = true;
  loop->advance(4000);
  const auto tints = backend->shown[1].tints;
  EXPECT_GT(tints.size(), 80U) << "five flashes";
  EXPECT_LT(tints.size(), 125U) << "about 30 steps a second";
  EXPECT_EQ(std::ranges::max(tints), 26);
  EXPECT_EQ(std::ranges::min(tints), 0);
  EXPECT_EQ(std::ranges::adjacent_find(tints), tints.end()) << "no level is set twice in a row";
  EXPECT_EQ(backend->shown[1].scenes.size(), 2U) << "the flash repaints nothing";

  backend->setScreens({first, second});
  loop->advance(500);
  EXPECT_THAT(backend->shown[2].tints, IsEmpty()) << "a window made in an alert flashes from the next one on";
  EXPECT_TRUE(lastScene(2).banner);

  manager.reducedMotion = true;
  loop->advance(900);
  EXPECT_EQ(backend->shown[1].tints.back(), 13);
  EXPECT_EQ(loop->timerCount(), idleTimers) << "nothing is left to move";
  manager.reducedMotion = false;
  loop->advance(400);
  EXPECT_EQ(backend->shown[1].tints.back(), 26);
  manager.isAlertMode = false;
  EXPECT_EQ(backend->shown[1].tints.back(), 0);
  EXPECT_EQ(loop->timerCount(), idleTimers);
  manager.isAlertMode = true;
  manager.hide();
  EXPECT_EQ(loop->timerCount(), idleTimers) << "closing the windows ends their flash";
}

TEST(MatrixStripeLayer, PeriodFollowsTheDistanceAndOpacitiesStayInRange) {
  constexpr float noNumber = std::numeric_limits<float>::quiet_NaN();
  constexpr auto nearest = std::numeric_limits<std::int64_t>::min();
  EXPECT_NEAR((MatrixStripeLayer{nearest, 0, 0, 0}.pattern().period), 5.65685, 1e-5);
  EXPECT_NEAR((MatrixStripeLayer{31, 0, 0, 0}.pattern().period), 5.75036, 1e-5);
  EXPECT_EQ((MatrixStripeLayer{60, 0x00FF0000, 0.5F, 0.25}.pattern()),
            (StripePattern{8, 0xFF0000, 0.5, 0.25}));
  EXPECT_EQ((MatrixStripeLayer{240, 0x123456789ABCDEF0, noNumber, 1.5}.pattern()),
            (StripePattern{16, 0xBCDEF0, 0, 1}));
}

TEST(FlashAnimation, FollowsTheCurveAndGoesOnFromWhereItIs) {
  FlashAnimation flash;
  flash.change(FlashAnimation::Mode::flashing, 1000);
  // Heights of the cubic Bezier (0.42,0)-(0.58,1): 0.12916 at a quarter, one half in the middle.
  EXPECT_NEAR(flash.alphaAt(1100), 0.3 * 0.12916, 1e-4);
  EXPECT_NEAR(flash.alphaAt(80'001'200), 0.15, 1e-4);
  flash.change(FlashAnimation::Mode::stopped, 1400);
  // (0,0)-(0.58,1): 0.6846 in the middle.
  const double left = flash.alphaAt(1550);
  EXPECT_NEAR(left, 0.3 * (1 - 0.6846), 1e-3);
  flash.change(FlashAnimation::Mode::flashing, 1550);
  EXPECT_DOUBLE_EQ(flash.alphaAt(1550), left);
  EXPECT_NEAR(flash.alphaAt(1950), 0.3, 1e-6);
  EXPECT_LT(flash.alphaAt(2360), left) << "only the first rise begins there";
}

}  // namespace
}  // namespace sentrel
