// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <utility>
#include <vector>

#include "linux/camera/capture_fixture.h"

namespace sentrel::test {
namespace {

using Fault = VirtualCamera::Fault;
using Format = VirtualCamera::Format;
using Report = CaptureUser::Report;
using std::chrono::milliseconds;

/// How late a report may be seen: the limit of what a loaded machine does, not of the session.
constexpr milliseconds lateness{1500};

TEST_F(CaptureTest, ACameraThatIsPulledIsReportedAndTakenUpAgain) {
  VirtualCamera camera({});
  camera.appear();
  CaptureUser user;
  user.start("virtual_camera");
  ASSERT_TRUE(user.getsFrames());

  const auto pulled = SteadyClock::now();
  camera.vanish();
  ASSERT_TRUE(user.eventually([&] { return user.count(Report::interrupted) == 2; }));
  const auto reports = user.reports();
  EXPECT_LT(reports[0].at - pulled, lateness);
  EXPECT_GT(reports[1].at - reports[0].at, milliseconds(1900));
  EXPECT_LT(reports[1].at - reports[0].at, milliseconds(2000) + lateness);
  user.onQueue([&] { EXPECT_FALSE(user.session->awaitDevices({})) << "it was here"; });
  EXPECT_TRUE(user.session->devices().empty());
  ASSERT_TRUE(user.session->interruptionCause());

  user.clear();
  camera.appear();
  const auto returned = SteadyClock::now();
  ASSERT_TRUE(user.eventually([&] { return user.count(Report::ended) == 1; }));
  ASSERT_TRUE(user.getsFrames(1));
  const auto recovery = user.handed().front().at - returned;
  EXPECT_LT(recovery, milliseconds(1000) + lateness);
  std::cout << "first frame " << std::chrono::duration_cast<milliseconds>(recovery) << " after the return\n";
  EXPECT_FALSE(user.session->interruptionCause());
}

TEST_F(CaptureTest, TheServiceMayComeLateDieAndComeBack) {
  desktop.stopPipeWire();
  CaptureUser user;
  ASSERT_TRUE(user.eventually([&] {
    std::optional<CaptureError> missing;
    user.onQueue([&] { missing = user.session->awaitDevices(milliseconds(50)); });
    return missing && missing->kind == CaptureError::Kind::noService;
  }));
  user.start();
  ASSERT_TRUE(user.eventually([&] { return user.count(Report::interrupted) >= 2; }));
  ASSERT_TRUE(user.session->interruptionCause());
  EXPECT_EQ(user.session->interruptionCause()->kind, CaptureError::Kind::noService);

  VirtualCamera camera({});
  const auto serve = [&] {
    desktop.startPipeWire();
    camera.vanish();  // its connection has died as well
    camera.appear();
    ASSERT_TRUE(user.eventually([&] { return user.count(Report::ended) == 1; }));
    EXPECT_TRUE(user.getsFrames());
  };
  serve();
  user.clear();
  desktop.killPipeWire();
  ASSERT_TRUE(user.eventually([&] { return user.count(Report::interrupted) >= 1; }));
  EXPECT_TRUE(user.session->devices().empty());
  serve();
}

TEST_F(CaptureTest, BrokenBuffersAreDroppedAndCounted) {
  const std::vector<std::pair<Format, std::vector<Fault>>> cases{
      {Format::yuy2,
       {Fault::zeroLength, Fault::shortChunk, Fault::wrongStride, Fault::otherSize, Fault::offsetBeyond,
        Fault::corruptedFlag, Fault::backwardsTimestamps}},
      {Format::nv12, {Fault::shortChunk, Fault::otherSize, Fault::offsetBeyond}},
      {Format::mjpeg, {Fault::zeroLength, Fault::shortChunk, Fault::offsetBeyond, Fault::garbage}}};
  for (const auto& [format, faults] : cases) {
    VirtualCamera camera({.modes = {{.format = format}}});
    const auto picture = bars(640, 480);
    camera.setSource([&](std::int64_t) { return picture.data(); });
    camera.appear();
    CaptureUser user;
    user.start();
    ASSERT_TRUE(user.getsFrames());
    for (const Fault fault : faults) {
      SCOPED_TRACE(testing::Message()
                   << "format " << static_cast<int>(format) << " fault " << static_cast<int>(fault));
      const auto before = user.session->brokenFrames();
      camera.setFault(fault);
      // The first of them may follow good ones that are still under way.
      ASSERT_TRUE(user.eventually([&] { return user.session->brokenFrames() >= before + 2; }));
      const auto handed = user.handed().size();
      ASSERT_TRUE(user.eventually([&] { return user.session->brokenFrames() >= before + 6; }));
      EXPECT_EQ(user.handed().size(), handed);
      camera.setFault(Fault::none);
      ASSERT_TRUE(user.getsFrames());
    }
  }
}

TEST_F(CaptureTest, ACameraWithoutAGoodFrameIsInterrupted) {
  // Three ways to give nothing: silence, buffers that are visibly broken, and pictures that cannot be read.
  struct Case {
    VirtualCamera camera;
    Fault fault;
    CaptureUser user = {};
  };
  std::array<Case, 3> cases{
      {{VirtualCamera({.name = "silent"}), Fault::none},
       {VirtualCamera({.name = "empty"}), Fault::zeroLength},
       {VirtualCamera({.name = "garbage", .modes = {{Format::mjpeg}}}), Fault::garbage}}};
  for (Case& one : cases) one.camera.appear();
  const std::array names{"silent", "empty", "garbage"};
  for (std::size_t i = 0; i < cases.size(); ++i) {
    cases.at(i).user.start(names.at(i), 101);
    ASSERT_TRUE(cases.at(i).user.getsFrames());
  }
  const auto stopped = SteadyClock::now();
  for (Case& one : cases) {
    one.camera.setFault(one.fault);
    one.camera.setPlaying(one.fault != Fault::none);
  }
  ASSERT_TRUE(cases[0].user.eventually([&] {
    // Each is asked each time, so that none sees its reports late.
    return std::ranges::count_if(cases, [](Case& one) { return one.user.count(Report::interrupted) >= 2; }) ==
           3;
  }));
  for (Case& one : cases) {
    SCOPED_TRACE(static_cast<int>(one.fault));
    EXPECT_GT(one.user.reports().front().at - stopped, milliseconds(1800));
    EXPECT_LT(one.user.reports().front().at - stopped, milliseconds(2000) + lateness);
    one.camera.setFault(Fault::none);
    one.camera.setPlaying(true);
    ASSERT_TRUE(one.user.eventually([&] { return one.user.count(Report::ended) == 1; }));
    EXPECT_TRUE(one.user.getsFrames());
  }
}

}  // namespace
}  // namespace sentrel::test
