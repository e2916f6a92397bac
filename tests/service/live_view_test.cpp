// SPDX-License-Identifier: Apache-2.0
#include "service/live_view.h"

#include "support/test_core.h"

namespace sentrel {
namespace {

using test::detectionsOf;
using test::faceOf;
using testing::ElementsAre;
using testing::IsEmpty;
using Face = LiveFrame::Face;
using Timer = FilterFsm::Timer;

struct LiveViewTest : testing::Test, test::TestCore {
  void watch() {
    watching = service->liveView().watch([this](const LiveFrame& frame) { frames.push_back(frame); });
  }
  [[nodiscard]] std::vector<FaceRole> roles() const {
    std::vector<FaceRole> roles;
    for (const Face& face : frames.back().faces) roles.push_back(face.role);
    return roles;
  }

  std::vector<LiveFrame> frames;
  Registration watching;
};

TEST_F(LiveViewTest, TellsWhatEveryFaceIsTakenFor) {
  start();
  watch();
  const FaceObservation person = faceOf(0.2);
  const FaceObservation read = faceOf(0.2, 0.1, 0.3);
  const FaceObservation behind = faceOf(0.07, 0.6, -0.2);
  const FaceObservation tiny = faceOf(0.019, 0.8, {});
  see(detectionsOf({person}, {person}), 100);
  EXPECT_THAT(frames.back().faces, ElementsAre(Face{person.boundingBox, 0, FaceRole::person}));
  see(detectionsOf({{person.boundingBox, {}, {}}, tiny, behind}, {read}), 200);
  EXPECT_THAT(frames.back().faces, ElementsAre(Face{person.boundingBox, 0.3, FaceRole::person},
                                               Face{tiny.boundingBox, std::nullopt, FaceRole::tooFar},
                                               Face{behind.boundingBox, -0.2, FaceRole::onlooker}));
  EXPECT_THAT(frames.back().timers, ElementsAre(Timer{Timer::Kind::onlooker, 100, 500}));
  see(FaceDetections{}, 100);
  EXPECT_THAT(frames.back().faces, IsEmpty());
  changeOptions([](ProtectionOptions& next) {
    next.watchUpToCm = 150;
    next.alertAfterMs = 2000;
  });
  service->relaxations().welcome(1, std::nullopt);
  see(detectionsOf({faceOf(0.05, 0.4), person, behind, faceOf(0.1, 0.9)}, {person}), 1000);
  EXPECT_THAT(roles(), ElementsAre(FaceRole::tooFar, FaceRole::person, FaceRole::onlooker, FaceRole::guest));
  EXPECT_THAT(frames.back().timers, ElementsAre(Timer{Timer::Kind::onlooker, 900, 2000}));
  see(detectionsOf({person}, {faceOf(0.2, 0.1, 0.9)}), 1000);
  EXPECT_THAT(frames.back().timers, ElementsAre(Timer{Timer::Kind::lookingAway, 900, 1500}));
}

TEST_F(LiveViewTest, NothingIsCopiedWhileNobodyLooks) {
  const auto expectFrames = [this](bool copied, std::size_t count) {
    see(watched, 300);
    EXPECT_EQ(static_cast<bool>(camera->analyzer()->onDetections), copied);
    EXPECT_EQ(frames.size(), count);
  };
  start();
  expectFrames(false, 0);
  watch();
  expectFrames(true, 3);
  watching.reset();
  expectFrames(false, 3);
  watch();
  stop();
  start();
  expectFrames(true, 6);  // whoever looks goes on with the next session
  // A frame's findings that come after the service has gone.
  machine.session->request->onFrame(machine.frame());
  machine.analysisQueue->sync([] {});
  machine.loop->runPosted();
}

}  // namespace
}  // namespace sentrel
