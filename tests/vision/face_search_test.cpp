// SPDX-License-Identifier: Apache-2.0
#include "vision/face_search.h"

#include <gmock/gmock.h>

namespace sentrel::vision {
namespace {

Candidate at(double x, double y, double side, double score) {
  return {score, {x, y, side, side}, {}};
}

std::vector<double> keptScores(std::vector<Candidate> candidates) {
  suppressOverlaps(candidates);
  std::vector<double> scores;
  for (const Candidate& candidate : candidates) scores.push_back(candidate.score);
  return scores;
}

TEST(Candidate, oneStaysForEachFace) {
  using ::testing::ElementsAre;
  EXPECT_THAT(keptScores({}), ElementsAre());
  // The same face from several cells.
  EXPECT_THAT(keptScores({at(100, 100, 50, 0.5), at(104, 98, 52, 0.9), at(97, 103, 47, 0.7)}),
              ElementsAre(0.9));
  // A part of a face taken for a small face, better or worse than the whole.
  EXPECT_THAT(keptScores({at(100, 100, 100, 0.8), at(120, 120, 30, 0.6)}), ElementsAre(0.8));
  EXPECT_THAT(keptScores({at(100, 100, 100, 0.6), at(120, 120, 30, 0.8)}), ElementsAre(0.8));
  // Two people side by side; a third of a small face behind a large one.
  EXPECT_THAT(keptScores({at(100, 100, 50, 0.7), at(140, 100, 50, 0.8)}), ElementsAre(0.8, 0.7));
  EXPECT_THAT(keptScores({at(100, 100, 150, 0.9), at(230, 120, 30, 0.7)}), ElementsAre(0.9, 0.7));
  // What the best one removed does not remove others.
  EXPECT_THAT(keptScores({at(100, 100, 50, 0.9), at(120, 100, 50, 0.8), at(145, 100, 50, 0.7)}),
              ElementsAre(0.9, 0.7));
}

}  // namespace
}  // namespace sentrel::vision
