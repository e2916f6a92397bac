// SPDX-License-Identifier: Apache-2.0
#include "support/test_core.h"

namespace sentrel {
namespace {

using Phase = CalibrationSession::Phase;

struct CalibrationSessionTest : testing::Test, test::TestCore {
  /// From the start into the measuring.
  void measure(const std::vector<double>& widths) {
    session->start();
    machine.advance(3000, 500);
    for (const double width : widths) camera->analyzer()->onCalibrationSample(width);
    machine.settle();
  }

  std::shared_ptr<CalibrationSession> session = newCalibration();
};

TEST_F(CalibrationSessionTest, CountsAndMeasuresTheMedianFace) {
  const Phase failed = Phase::failed("Aucun visage détecté. Assurez-vous d'être bien en face de la caméra.");
  const struct {
    std::vector<double> widths;
    Phase expected;
  } cases[] = {
      {{0.30, 0.10, 0.20}, Phase::done(49)},  {{0.16, 0.10, 0.14, 0.12}, Phase::done(70)},
      {{0.15, 0.15, 0.15}, Phase::done(66)},  {{0.5, 0.5, 0.5}, Phase::done(30)},
      {{0.02, 0.02, 0.02}, Phase::done(200)}, {{0.2, 0.2}, failed},
  };
  std::vector<std::int64_t> counted;
  const auto watch = session->phase().onChange([&](const Phase& p) { counted.push_back(p.remaining); });
  for (const auto& [widths, expected] : cases) {
    counted.clear();
    measure(widths);
    EXPECT_THAT(counted, testing::ElementsAre(3, 2, 1, 0));
    EXPECT_EQ(session->phase().get(), Phase::measuring());
    machine.advance(3000, 500);
    EXPECT_EQ(session->phase().get(), expected) << widths[0];
    EXPECT_EQ(camera->analyzer(), nullptr) << "detached, and nobody else wants frames";
    session->start();
    EXPECT_EQ(session->phase().get(), expected) << "only from idle";
    session->cancel();
  }
  EXPECT_FALSE(machine.session->running) << "the light is out";
}

}  // namespace
}  // namespace sentrel
