// SPDX-License-Identifier: Apache-2.0
#include "vision/candidate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace sentrel::vision {
namespace {

Candidate at(double x, double y, double side, double score) {
  Candidate candidate;
  candidate.score = score;
  candidate.box = {x, y, side, side};
  return candidate;
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

TEST(Candidate, sharesAndScaling) {
  const Region a{0, 0, 10, 10};
  EXPECT_DOUBLE_EQ(intersectionOverUnion(a, {5, 0, 10, 10}), 1.0 / 3);
  EXPECT_DOUBLE_EQ(intersectionOverUnion(a, {10, 0, 10, 10}), 0);
  EXPECT_DOUBLE_EQ(containedShare({8, 8, 4, 4}, a), 0.25);
  EXPECT_DOUBLE_EQ(containedShare(a, {8, 8, 4, 4}), 0.04);
  const Region half = scaledAboutCentre({10, 20, 40, 60}, 0.5);
  EXPECT_DOUBLE_EQ(half.x, 20);
  EXPECT_DOUBLE_EQ(half.y, 35);
  EXPECT_DOUBLE_EQ(half.width, 20);
  EXPECT_DOUBLE_EQ(half.height, 30);
}

}  // namespace
}  // namespace sentrel::vision
