// SPDX-License-Identifier: Apache-2.0
//
// What the windows on the screens are given to show, and the onlooker's picture among it.
#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "overlay/overlay_content_view.h"
#include "overlay/overlay_window_manager.h"
#include "overlay/retro_pip_manager.h"
#include "support/fake_overlay_backend.h"
#include "support/manual_main_loop.h"

namespace sentrel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;

constexpr double noNumber = std::numeric_limits<double>::quiet_NaN();
const Screen first{1, "one", {0, 0, 1920, 1080}, true};
const Screen second{2, "two", {1920, 0, 1280, 1024}, false};
const Screen third{3, "three", {0, 1080, 800, 600}, false};

struct OverlayWindowManagerTest : testing::Test {
  const std::vector<OverlayScene>& scenes(std::uint64_t screen = 1) {
    loop->runPosted();
    return backend->shown.at(screen).scenes;
  }
  /// Red, green, blue and white, side by side.
  FrameRef colors() {
    auto frame = pool.acquire(4, 1);
    const std::uint8_t bgra[] = {0, 0, 255, 0, 0, 255, 0, 0, 255, 0, 0, 0, 255, 255, 255, 0};
    std::ranges::copy(bgra, frame->data());
    return frame;
  }

  FramePool pool{2};
  std::shared_ptr<test::ManualMainLoop> loop = std::make_shared<test::ManualMainLoop>();
  std::shared_ptr<test::FakeOverlayBackend> backend = std::make_shared<test::FakeOverlayBackend>();
  std::shared_ptr<OverlayWindowManager> overlay = std::make_shared<OverlayWindowManager>(backend, loop, loop);
  OverlayWindowManager& manager = *overlay;
  RetroPiPManager retro{overlay, loop, loop};
};
using RetroPiPManagerTest = OverlayWindowManagerTest;

TEST_F(OverlayWindowManagerTest, CoversEveryScreenAndFollowsThemOnlyWhileShowing) {
  backend->screenList = {first, second};
  manager.hide();
  manager.show();
  manager.show();
  EXPECT_THAT(backend->shown, ElementsAre(Key(1), Key(2)));
  EXPECT_EQ(backend->created, 2);
  backend->setScreens({{1, "one", {0, 0, 800, 600}, true}, third});
  EXPECT_THAT(backend->shown, ElementsAre(Key(1), Key(3)));
  EXPECT_EQ(backend->created, 3) << "the window of a screen that stays is left alone";
  backend->setScreens({third, first});
  manager.coverAllScreens = false;
  EXPECT_THAT(backend->shown, ElementsAre(Key(1))) << "the main one";
  backend->setScreens({second, third});
  EXPECT_THAT(backend->shown, ElementsAre(Key(2))) << "none is marked";
  manager.coverAllScreens = true;
  EXPECT_THAT(backend->shown, ElementsAre(Key(2), Key(3)));
  backend->setScreens({});
  EXPECT_THAT(backend->shown, IsEmpty());
  manager.hide();
  EXPECT_FALSE(manager.isShowing());
  EXPECT_EQ(backend->screensChanged.observerCount(), 0U);
}

TEST_F(OverlayWindowManagerTest, ComposesTheScene) {
  manager.show();
  EXPECT_EQ(scenes().back(), OverlayScene{}) << "no stripes at opacity 0";
  manager.currentAlpha = 0.5F;
  const StripePattern stripes{8 * std::sqrt(80.0 / 60.0), 0x000000, double{0.42F}, 0.5};
  EXPECT_EQ(scenes().back(), (OverlayScene{stripes, 0, false, ""}));
  manager.isAlertMode = true;
  manager.shortcutKeys = "⌘⇧C";
  EXPECT_EQ(scenes().back(), (OverlayScene{stripes, 0.7, true, "⌘⇧C"}));
  manager.hide();
  manager.matrixEnabled = false;
  manager.show();
  EXPECT_EQ(scenes().back(), (OverlayScene{{}, 0.7, true, "⌘⇧C"})) << "values are kept while hidden";
}

TEST_F(OverlayWindowManagerTest, ACoverHidesEveryScreenWhateverIsShownBelow) {
  backend->screenList = {first, second};
  manager.coverAllScreens = false;
  EXPECT_TRUE(manager.hasScreens());
  manager.hideScreens();
  EXPECT_THAT(backend->shown, ElementsAre(Key(1), Key(2)));
  const OverlayScene covered{.stripes = {}, .cover = Cover{}};
  EXPECT_EQ(scenes(2).back(), covered);
  // An alert comes and goes unseen.
  manager.show();
  manager.currentAlpha = 0.5F;
  manager.isAlertMode = true;
  manager.picture = RetroPicture{nullptr, 3};
  loop->advance(2000);
  EXPECT_EQ(scenes().back(), covered);
  EXPECT_THAT(backend->shown[1].tints, IsEmpty());
  EXPECT_FALSE(backend->shown[1].picture);
  backend->setScreens({first, second, third});
  EXPECT_EQ(scenes(3).back(), covered);
  backend->setScreens({first, third});
  manager.coverLook = Cover{.shortcut = true};
  EXPECT_TRUE(scenes(3).back().cover->shortcut);
  manager.hide();
  EXPECT_THAT(backend->shown, ElementsAre(Key(1), Key(3))) << "protection that ends uncovers nothing";
  manager.show();

  int asked = 0;
  const Registration reveal = manager.revealAsked.connect([&] {
    ++asked;
    manager.revealScreens();
  });
  backend->click(3);
  EXPECT_EQ(asked, 0) << "not while the window tells it";
  loop->runPosted();
  EXPECT_EQ(asked, 1);
  EXPECT_FALSE(manager.isCovered());
  EXPECT_THAT(backend->shown, ElementsAre(Key(1))) << "as before";
  EXPECT_FALSE(scenes().back().cover);
  EXPECT_TRUE(scenes().back().banner);
  EXPECT_TRUE(backend->shown[1].picture);
  loop->advance(400);
  EXPECT_THAT(backend->shown[1].tints, testing::Not(IsEmpty()));
  manager.hideScreens();
  manager.isAlertMode = false;
  manager.hide();
  manager.revealScreens();
  EXPECT_THAT(backend->shown, IsEmpty());
  EXPECT_EQ(backend->screensChanged.observerCount(), 0U);
}

TEST_F(OverlayWindowManagerTest, ThePictureIsOnTheMainScreen) {
  backend->screenList = {first, second};
  manager.show();
  manager.picture = RetroPicture{nullptr, 3};
  ASSERT_TRUE(backend->shown[1].picture);
  EXPECT_EQ(backend->shown[1].picture->blink, 3);
  EXPECT_FALSE(backend->shown[2].picture);
  backend->setScreens({{1, "one", first.frame, false}, {2, "two", second.frame, true}});
  EXPECT_FALSE(backend->shown[1].picture);
  EXPECT_TRUE(backend->shown[2].picture) << "which it follows";
  manager.picture = std::nullopt;
  EXPECT_FALSE(backend->shown[2].picture);
}

TEST_F(OverlayWindowManagerTest, RepaintsOncePerTurnAndBringsNoWindowBack) {
  manager.show();
  loop->runPosted();
  manager.currentAlpha = 0.5F;
  loop->post([this] { manager.isAlertMode = true; });
  EXPECT_EQ(scenes().size(), 2U) << "a change of state is one repaint";
  manager.currentAlpha = 0.6F;
  manager.hide();
  loop->runPosted();
  EXPECT_THAT(backend->shown, IsEmpty());
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
  EXPECT_EQ(scenes().size(), 2U) << "the flash repaints nothing";
  backend->setScreens({first, second});
  loop->advance(500);
  EXPECT_THAT(backend->shown[2].tints, IsEmpty()) << "a window made in an alert flashes from the next one on";
  EXPECT_TRUE(scenes(2).back().banner);

  manager.reducedMotion = true;
  loop->advance(900);
  EXPECT_EQ(backend->shown[1].tints.back(), 13);
  EXPECT_EQ(loop->timerCount(), idleTimers) << "nothing is left to move";
  manager.reducedMotion = false;
  manager.isAlertMode = false;
  EXPECT_EQ(backend->shown[1].tints.back(), 0);
  EXPECT_EQ(loop->timerCount(), idleTimers);
  manager.isAlertMode = true;
  manager.hide();
  EXPECT_EQ(loop->timerCount(), idleTimers) << "closing the windows ends their flash";
}

TEST(MatrixStripeLayer, PeriodFollowsTheDistanceAndOpacitiesStayInRange) {
  constexpr auto nearest = std::numeric_limits<std::int64_t>::min();
  EXPECT_NEAR((MatrixStripeLayer{nearest, 0, 0, 0}.pattern().period), 5.65685, 1e-5);
  EXPECT_NEAR((MatrixStripeLayer{31, 0, 0, 0}.pattern().period), 5.75036, 1e-5);
  EXPECT_EQ((MatrixStripeLayer{240, 0x123456789ABCDEF0, static_cast<float>(noNumber), 1.5}.pattern()),
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
  EXPECT_LT(flash.alphaAt(2360), left) << "only the first rise begins there";
}

TEST(RetroCrop, GrowsTheFaceAndStaysInTheFrame) {
  const Rect whole{0, 0, 640, 480};
  const struct {
    const char* what;
    std::optional<NormalizedRect> face;
    Rect crop;
  } cases[] = {
      {"no face", {}, whole},
      {"inside, measured from the bottom", NormalizedRect{0.5, 0.25, 0.125, 0.25}, {268, 162, 184, 276}},
      {"at the right and upper edge", NormalizedRect{0.875, 0.75, 0.125, 0.25}, {508, 0, 132, 198}},
      {"outside", NormalizedRect{2, 0.5, 0.1, 0.1}, whole},
      {"inside out", NormalizedRect{0.5, 0.5, -0.1, 0.1}, whole},
      {"no number", NormalizedRect{noNumber, 0.5, 0.1, 0.1}, whole},
      {"boundless", NormalizedRect{0, 0, std::numeric_limits<double>::infinity(), 1}, whole},
  };
  for (const auto& [what, face, crop] : cases) EXPECT_EQ(retroCrop(640, 480, face), crop) << what;
}

TEST_F(RetroPiPManagerTest, ShowsGreyPicturesAndKeepsNothing) {
  retro.openWindow();
  ASSERT_TRUE(overlay->picture.get());
  EXPECT_FALSE(overlay->picture.get()->picture) << "waiting";
  retro.renderFrame(colors(), {});
  const auto shown = overlay->picture.get()->picture;
  ASSERT_TRUE(shown);
  EXPECT_THAT(std::vector(shown->levels.begin(), shown->levels.end()), ElementsAre(53, 182, 18, 255));
  retro.renderFrame(colors(), NormalizedRect{0.4, 0, 0.1, 1});
  EXPECT_NE(overlay->picture.get()->picture, shown) << "what is shown does not change";
  retro.renderFrame(nullptr, {});
  retro.renderFrame(pool.acquire(0, 0), {});
  EXPECT_EQ(overlay->picture.get()->picture->width, 2) << "the previous one stays";
  retro.hide();
  EXPECT_FALSE(retro.isOpen());
  EXPECT_FALSE(overlay->picture.get());
  EXPECT_EQ(std::ranges::max(shown->levels), 0) << "overwritten";
  const auto free = pool.acquire(1, 1);
  EXPECT_TRUE(free && pool.acquire(1, 1)) << "no frame is held";
  retro.openWindow();
  EXPECT_FALSE(overlay->picture.get()->picture) << "no stale picture";
}

TEST_F(RetroPiPManagerTest, BlinksWhileOpenUnlessMotionIsReduced) {
  const std::size_t idleTimers = loop->timerCount();
  retro.openWindow();
  std::vector<BlinkLevel> blinks;
  const Registration shown = overlay->picture.onChange([&](const auto& picture) {
    if (picture) blinks.push_back(picture->blink);
  });
  loop->advance(2200);
  EXPECT_EQ(std::ranges::count(blinks, brightestBlink), 2);
  EXPECT_GE(std::ranges::count(blinks, 0), 1);
  EXPECT_EQ(std::ranges::adjacent_find(blinks), blinks.end()) << "no level is set twice in a row";
  overlay->reducedMotion = true;
  loop->advance(1100);
  EXPECT_EQ(blinks.back(), brightestBlink);
  EXPECT_EQ(loop->timerCount(), idleTimers);
  overlay->reducedMotion = false;
  retro.hide();
  EXPECT_EQ(loop->timerCount(), idleTimers);
}

}  // namespace
}  // namespace sentrel
