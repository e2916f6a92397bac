// SPDX-License-Identifier: Apache-2.0
#include "overlay/retro_pip_manager.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>

#include "support/fake_overlay_backend.h"
#include "support/manual_main_loop.h"

namespace sentrel {
namespace {

constexpr double noNumber = std::numeric_limits<double>::quiet_NaN();

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

class RetroPiPManagerTest : public testing::Test {
 protected:
  /// Columns of red, green, blue and white, in this order, ten wide and four high.
  FrameRef colors() {
    auto frame = pool.acquire(10, 4);
    const std::uint8_t bgra[][4] = {{0, 0, 255, 0}, {0, 255, 0, 0}, {255, 0, 0, 0}, {255, 255, 255, 0}};
    for (int i = 0; i < 40; ++i) {
      std::ranges::copy(bgra[std::min(i % 10, 3)], frame->data() + static_cast<std::ptrdiff_t>(i) * 4);
    }
    return frame;
  }

  FramePool pool{2};
  std::shared_ptr<test::ManualMainLoop> loop = std::make_shared<test::ManualMainLoop>();
  std::shared_ptr<test::FakeOverlayBackend> backend = std::make_shared<test::FakeOverlayBackend>();
  std::shared_ptr<OverlayWindowManager> overlay = std::make_shared<OverlayWindowManager>(backend, loop, loop);
  RetroPiPManager manager{overlay, loop, loop};
};

TEST_F(RetroPiPManagerTest, ShowsGreyPicturesAndKeepsNothing) {
  manager.openWindow();
  ASSERT_TRUE(overlay->picture.get());
  EXPECT_FALSE(overlay->picture.get()->picture) << "waiting";
  manager.renderFrame(colors(), {});
  const auto shown = overlay->picture.get()->picture;
  ASSERT_TRUE(shown);
  EXPECT_EQ(shown->width, 10);
  EXPECT_EQ(shown->height, 4);
  EXPECT_THAT(std::vector(shown->levels.begin(), shown->levels.begin() + 4),
              testing::ElementsAre(53, 182, 18, 255));
  manager.renderFrame(colors(), NormalizedRect{0.1, 0.5, 0.1, 0.25});
  EXPECT_NE(overlay->picture.get()->picture, shown) << "what is shown does not change";
  EXPECT_EQ(overlay->picture.get()->picture->width, 3);
  manager.renderFrame(nullptr, {});
  manager.renderFrame(pool.acquire(0, 0), {});
  EXPECT_EQ(overlay->picture.get()->picture->width, 3) << "the previous one stays";

  manager.hide();
  EXPECT_FALSE(manager.isOpen());
  EXPECT_FALSE(overlay->picture.get());
  EXPECT_EQ(std::ranges::max(shown->levels), 0) << "overwritten";
  const auto free = pool.acquire(1, 1);
  EXPECT_TRUE(free && pool.acquire(1, 1)) << "no frame is held";
  manager.hide();
  manager.openWindow();
  EXPECT_FALSE(overlay->picture.get()->picture) << "no stale picture";
}

TEST_F(RetroPiPManagerTest, BlinksWhileOpenUnlessMotionIsReduced) {
  const std::size_t idleTimers = loop->timerCount();
  manager.openWindow();
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
  manager.hide();
  EXPECT_EQ(loop->timerCount(), idleTimers);
}

}  // namespace
}  // namespace sentrel
