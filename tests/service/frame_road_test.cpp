// SPDX-License-Identifier: Apache-2.0
//
// The road of a frame, from the camera queue through the analyser and the main loop to the service.
#include <QCoreApplication>
#include <atomic>
#include <cerrno>

#include "linux/desktop/qt_main_loop.h"
#include "support/test_core.h"

namespace {
std::atomic<std::size_t> allocations{0};
}

// The C library's own names for what is counted here; operator new ends in malloc. A sanitizer brings an
// allocator of its own.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && defined(__GLIBC__)
extern "C" {
void* __libc_malloc(std::size_t size);                           // NOLINT
void* __libc_memalign(std::size_t alignment, std::size_t size);  // NOLINT

void* malloc(std::size_t size) {
  ++allocations;
  return __libc_malloc(size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  ++allocations;
  return __libc_memalign(alignment, size);
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  *memory = aligned_alloc(alignment, size);
  return *memory == nullptr ? ENOMEM : 0;
}
}
#endif

namespace sentrel {
namespace {

TEST(FrameRoad, AllocatesNothingWhenWarm) {
  if (allocations == 0) GTEST_SKIP() << "allocations are not counted under this sanitizer";
  int argumentCount = 1;
  const QCoreApplication application(argumentCount, &program_invocation_name);
  const auto loop = std::make_shared<QtMainLoop>();
  test::TestCore core(loop);
  test::TestMachine& machine = core.machine;
  const auto settle = [&] {
    for (int i = 0; i < 4; ++i) {
      machine.analysisQueue->sync([] {});
      machine.cameraQueue->sync([] {});
      while (!loop->idle()) QCoreApplication::processEvents();
    }
  };
  core.service->start();
  settle();
  ASSERT_TRUE(core.service->isActive());

  machine.detector->next = test::detectionsOf({test::faceOf(0.1)}, {test::faceOf(0.1)});
  machine.detector->timestamps.reserve(1000);
  core.camera->analyzer()->onCalibrationSample = [](double) {};
  const auto frames = [&](int count) {
    for (int i = 0; i < count; ++i) {
      machine.loop->advance(101);
      machine.cameraQueue->sync([&] { machine.session->request->onFrame(machine.frame()); });
      settle();
    }
  };
  frames(30);
  EXPECT_EQ(core.overlay->matrixDistanceCm, 200) << "the frames arrive";
  const std::size_t before = allocations;
  frames(200);
  EXPECT_EQ(allocations - before, 0U);
  EXPECT_EQ(machine.detector->timestamps.size(), 230U);
}

}  // namespace
}  // namespace sentrel
